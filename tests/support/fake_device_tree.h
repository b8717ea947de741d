// SPDX-License-Identifier: MIT
// Devices that tests plug in and pull out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/device_tree.h"

namespace quillet::test {

// One device as a set shows it. A HID device has its interface with it; what is not there can't be read.
struct FakeTreeDevice {
    platform::DeviceClass deviceClass = platform::DeviceClass::Ports;
    platform::KeyValue portName;
    platform::KeyValue portNumber;
    std::string description;
    std::string manufacturer;
    std::string id;
    std::string parentId;
    platform::InterfaceStep interfaceStep = platform::InterfaceStep::Selected;
    std::optional<std::string> interfacePath;
    std::optional<std::string> interfaceDeviceId;
};

inline platform::KeyValue TextValue(std::string text) {
    return {platform::KeyValue::Kind::Text, std::move(text), 0};
}
inline platform::KeyValue NumberValue(uint32_t number) {
    return {platform::KeyValue::Kind::Number, {}, number};
}

inline FakeTreeDevice SerialPortDevice(uint32_t number,
                                       platform::DeviceClass deviceClass = platform::DeviceClass::Ports) {
    FakeTreeDevice device;
    device.deviceClass = deviceClass;
    device.portName = TextValue("COM" + std::to_string(number));
    device.id = "ACPI\\PNP0501\\" + std::to_string(number);
    return device;
}

// A scanner as a virtual serial port.
inline FakeTreeDevice VirtualPortDevice(uint32_t number) {
    FakeTreeDevice device = SerialPortDevice(number);
    device.id = "USB\\VID_18D1&PID_0009\\SERIAL" + std::to_string(number);
    return device;
}

// A scanner as a HID device; other ids make it another's device.
inline FakeTreeDevice HidDevice(const std::string& path, const std::string& ids = "VID_18D1&PID_010B") {
    FakeTreeDevice device;
    device.deviceClass = platform::DeviceClass::HidInterface;
    device.id = "HID\\" + ids + "\\" + path;
    device.interfacePath = path;
    device.interfaceDeviceId = device.id;
    return device;
}

// In use from its making to its end, empty at first. Any thread may plug and unplug.
class FakeDeviceTree : public platform::DeviceTree {
  public:
    FakeDeviceTree() { platform::ReplaceDeviceTree(this); }
    ~FakeDeviceTree() override { platform::ReplaceDeviceTree(nullptr); }

    void Plug(FakeTreeDevice device) {
        std::lock_guard lock(m_Mutex);
        m_Devices.push_back(std::move(device));
    }
    // By instance ID.
    void Unplug(const std::string& id) {
        std::lock_guard lock(m_Mutex);
        std::erase_if(m_Devices, [&](const FakeTreeDevice& device) { return device.id == id; });
    }
    void FailClass(platform::DeviceClass deviceClass) {
        std::lock_guard lock(m_Mutex);
        m_Failing.insert(deviceClass);
    }
    // Sets opened, of all classes or of one.
    uint64_t Looks() {
        std::lock_guard lock(m_Mutex);
        return m_Looks.size();
    }
    int64_t LooksAt(platform::DeviceClass deviceClass) {
        std::lock_guard lock(m_Mutex);
        return std::count(m_Looks.begin(), m_Looks.end(), deviceClass);
    }

    std::unique_ptr<platform::DeviceSet> OpenSet(platform::DeviceClass deviceClass) override {
        std::lock_guard lock(m_Mutex);
        m_Looks.push_back(deviceClass);
        if (m_Failing.contains(deviceClass)) return nullptr;
        auto set = std::make_unique<Set>();
        std::copy_if(m_Devices.begin(), m_Devices.end(), std::back_inserter(set->devices),
                     [=](const FakeTreeDevice& device) { return device.deviceClass == deviceClass; });
        return set;
    }

  private:
    struct Set : platform::DeviceSet {
        bool SelectDevice(size_t index) override {
            device = index < devices.size() ? &devices[index] : nullptr;
            return device != nullptr;
        }
        platform::KeyValue ReadKeyValue(const char* name) override {
            return name == std::string("PortName")     ? device->portName
                   : name == std::string("PortNumber") ? device->portNumber
                                                       : platform::KeyValue{};
        }
        std::string ReadProperty(platform::DeviceProperty property) override {
            return property == platform::DeviceProperty::Description ? device->description : device->manufacturer;
        }
        std::string DeviceId() override { return device->id; }
        std::string ParentId() override { return device->parentId; }
        platform::InterfaceStep SelectInterface(size_t index) override {
            if (index >= devices.size()) return platform::InterfaceStep::End;
            selected = &devices[index];
            return selected->interfaceStep;
        }
        bool InterfacePath(std::string& path) override {
            path = selected->interfacePath.value_or("");
            return selected->interfacePath.has_value();
        }
        bool InterfaceDeviceId(std::string& id) override {
            id = selected->interfaceDeviceId.value_or("");
            return selected->interfaceDeviceId.has_value();
        }

        std::vector<FakeTreeDevice> devices;
        const FakeTreeDevice* device = nullptr;
        const FakeTreeDevice* selected = nullptr;
    };

    std::mutex m_Mutex;  // guards the three below
    std::vector<FakeTreeDevice> m_Devices;
    std::set<platform::DeviceClass> m_Failing;
    std::vector<platform::DeviceClass> m_Looks;
};

}  // namespace quillet::test
