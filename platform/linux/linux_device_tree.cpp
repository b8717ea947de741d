#include "platform/linux/linux_device_tree.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/linux/found_device.h"
#include "platform/linux/kernel_devices.h"
#include "platform/linux/registered_devices.h"
#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

// Devices and interfaces are one and the same here.
class FoundDeviceSet final : public DeviceSet {
  public:
    FoundDeviceSet(FoundDevices devices, bool hasInterfaces)
        : m_Devices(std::move(devices)), m_HasInterfaces(hasInterfaces) {}

    bool SelectDevice(size_t index) override {
        m_Device = index < m_Devices.size() ? &m_Devices[index] : nullptr;
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
        m_Interface = m_HasInterfaces && index < m_Devices.size() ? &m_Devices[index] : nullptr;
        return m_Interface != nullptr ? InterfaceStep::Selected : InterfaceStep::End;
    }

    bool InterfacePath(std::string& path) override { return CopyInterface(&FoundDevice::interfacePath, path); }
    bool InterfaceDeviceId(std::string& id) override { return CopyInterface(&FoundDevice::instanceId, id); }

  private:
    std::string TextOf(std::string FoundDevice::*member) const {
        return m_Device != nullptr ? m_Device->*member : std::string();
    }
    bool CopyInterface(std::string FoundDevice::*member, std::string& text) const {
        if (m_Interface != nullptr) {
            text = m_Interface->*member;
        }
        return m_Interface != nullptr;
    }

    const FoundDevices m_Devices;
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

}  // namespace

std::unique_ptr<DeviceSet> LinuxDeviceTree::OpenSet(DeviceClass deviceClass) {
    switch (deviceClass) {
        case DeviceClass::Ports: return std::make_unique<FoundDeviceSet>(ListPorts(m_Roots), false);
        case DeviceClass::HidInterface: return std::make_unique<FoundDeviceSet>(ListHidDevices(m_Roots), true);
        default: return std::make_unique<FoundDeviceSet>(FoundDevices(), false);
    }
}

DeviceTree& SystemDeviceTree() noexcept {
    static NoDestroy<LinuxDeviceTree> tree(SystemRoots());
    return tree.Get();
}

}  // namespace quillet::platform
