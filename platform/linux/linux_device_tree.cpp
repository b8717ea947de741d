// SPDX-License-Identifier: MIT
#include "platform/linux/linux_device_tree.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "platform/linux/found_device.h"
#include "platform/linux/kernel_devices.h"
#include "platform/linux/registered_devices.h"
#include "platform/linux/small_file.h"
#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

// Devices and interfaces are one and the same here.
class FoundDeviceSet final : public DeviceSet {
  public:
    // Null for an empty set.
    FoundDeviceSet(std::shared_ptr<const FoundDevices> devices, bool hasInterfaces)
        : m_Devices(std::move(devices)), m_HasInterfaces(hasInterfaces) {}

    bool SelectDevice(size_t index) override {
        m_Device = DeviceAt(index);
        return m_Device != nullptr;
    }

    KeyValue ReadKeyValue(const char* name) override {
        KeyValue value;
        if (m_Device != nullptr && !m_Device->portName.empty() && std::strcmp(name, "PortName") == 0) {
            value.kind = KeyValue::Kind::Text;
            value.text = m_Device->portName;
        }
        return value;
    }

    std::string ReadProperty(DeviceProperty property) override {
        return TextOf(property == DeviceProperty::Description ? &FoundDevice::description : &FoundDevice::manufacturer);
    }
    std::string DeviceId() override { return TextOf(&FoundDevice::instanceId); }
    std::string ParentId() override { return TextOf(&FoundDevice::parentId); }

    InterfaceStep SelectInterface(size_t index) override {
        m_Interface = m_HasInterfaces ? DeviceAt(index) : nullptr;
        return m_Interface != nullptr ? InterfaceStep::Selected : InterfaceStep::End;
    }

    bool InterfacePath(std::string& path) override { return CopyInterface(&FoundDevice::interfacePath, path); }
    bool InterfaceDeviceId(std::string& id) override { return CopyInterface(&FoundDevice::instanceId, id); }

  private:
    const FoundDevice* DeviceAt(size_t index) const {
        return m_Devices && index < m_Devices->size() ? &(*m_Devices)[index] : nullptr;
    }
    std::string TextOf(std::string FoundDevice::*member) const {
        return m_Device != nullptr ? m_Device->*member : std::string();
    }
    bool CopyInterface(std::string FoundDevice::*member, std::string& text) const {
        if (m_Interface != nullptr) text = m_Interface->*member;
        return m_Interface != nullptr;
    }

    const std::shared_ptr<const FoundDevices> m_Devices;
    const bool m_HasInterfaces;
    const FoundDevice* m_Device = nullptr;
    const FoundDevice* m_Interface = nullptr;
};

FoundDevices ListPorts(const LinuxRoots& roots) {
    FoundDevices ports = FindRegisteredPorts(roots);
    FoundDevices kernel = FindKernelPorts(roots);
    std::erase_if(kernel, [&](const FoundDevice& port) {
        return std::any_of(ports.begin(), ports.end(),
                           [&](const FoundDevice& registered) { return registered.portName == port.portName; });
    });
    std::move(kernel.begin(), kernel.end(), std::back_inserter(ports));
    return ports;
}

FoundDevices ListHidDevices(const LinuxRoots& roots) {
    FoundDevices devices = FindRegisteredHidDevices(roots);
    FoundDevices kernel = FindKernelHidDevices(roots);
    std::move(kernel.begin(), kernel.end(), std::back_inserter(devices));
    return devices;
}

// The device of a list with this port name or interface path.
const FoundDevice* FindIn(const FoundDevices* list, std::string FoundDevice::*key, const std::string& wanted) {
    if (list == nullptr) return nullptr;
    const auto found =
        std::find_if(list->begin(), list->end(), [&](const FoundDevice& device) { return device.*key == wanted; });
    return found != list->end() ? &*found : nullptr;
}

}  // namespace

LinuxDeviceTree::List LinuxDeviceTree::LastList(DeviceClass deviceClass) {
    const std::lock_guard lock(m_Mutex);
    return deviceClass == DeviceClass::Ports ? m_LastPorts : m_LastHids;
}

LinuxDeviceTree::List LinuxDeviceTree::Look(DeviceClass deviceClass) try {
    const bool ports = deviceClass == DeviceClass::Ports;
    auto list = std::make_shared<const FoundDevices>(ports ? ListPorts(m_Roots) : ListHidDevices(m_Roots));
    const std::lock_guard lock(m_Mutex);
    (ports ? m_LastPorts : m_LastHids) = list;
    return list;
} catch (const LookFailed&) {
    return LastList(deviceClass);
} catch (const std::bad_alloc&) {
    return LastList(deviceClass);
}

std::unique_ptr<DeviceSet> LinuxDeviceTree::OpenSet(DeviceClass deviceClass) {
    switch (deviceClass) {
        case DeviceClass::Ports: return std::make_unique<FoundDeviceSet>(Look(deviceClass), false);
        case DeviceClass::HidInterface: return std::make_unique<FoundDeviceSet>(Look(deviceClass), true);
        default: return std::make_unique<FoundDeviceSet>(nullptr, false);
    }
}

// The last lists tell where to look; what is there is read afresh.
QuickLook LinuxDeviceTree::LookFor(DeviceClass deviceClass, const std::string& device) try {
    switch (deviceClass) {
        case DeviceClass::Ports: return LookForPort(device);
        case DeviceClass::HidInterface: return LookForHid(device);
        default: return {};
    }
} catch (const LookFailed&) {
    return {QuickLook::Outcome::Failed, {}};
} catch (const std::bad_alloc&) {
    return {QuickLook::Outcome::Failed, {}};
}

QuickLook LinuxDeviceTree::LookForPort(const std::string& name) {
    if (IsKernelPortListed(m_Roots, name)) {  // or the registered one that hides it
        return {QuickLook::Outcome::Found, {}};
    }
    const List last = LastList(DeviceClass::Ports);
    const FoundDevice* before = FindIn(last.get(), &FoundDevice::portName, name);
    if (before == nullptr || before->registration.empty()) return {};
    const auto found = FindRegistration(*before);
    return {found && found->portName == name ? QuickLook::Outcome::Found : QuickLook::Outcome::NotFound, {}};
}

QuickLook LinuxDeviceTree::LookForHid(const std::string& path) {
    const List last = LastList(DeviceClass::HidInterface);
    const FoundDevice* before = FindIn(last.get(), &FoundDevice::interfacePath, path);
    if (before == nullptr) return {};
    std::string id;
    if (before->registration.empty()) {
        id = KernelHidInstanceId(m_Roots, before->node.substr(before->node.rfind('/') + 1));
    } else if (auto found = FindRegistration(*before)) {
        id = std::move(found->instanceId);
    }
    return {id.empty() ? QuickLook::Outcome::NotFound : QuickLook::Outcome::Found, std::move(id)};
}

DeviceTree& SystemDeviceTree() {
    static NoDestroy<LinuxDeviceTree> tree(SystemRoots());
    return tree.Get();
}

}  // namespace quillet::platform
