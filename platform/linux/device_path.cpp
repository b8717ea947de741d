// SPDX-License-Identifier: MIT
#include "platform/linux/device_path.h"

#include <algorithm>
#include <string_view>

#include "platform/linux/kernel_devices.h"
#include "platform/linux/registered_devices.h"

namespace quillet::platform {
namespace {

constexpr std::string_view kDevicePrefix = "\\\\.\\";

std::string NodeOf(const FoundDevices& devices, std::string FoundDevice::*key, const std::string& wanted) {
    const auto found =
        std::find_if(devices.begin(), devices.end(), [&](const FoundDevice& device) { return device.*key == wanted; });
    return found != devices.end() ? found->node : std::string();
}

std::string FileOfPort(const LinuxRoots& roots, const std::string& name) {
    std::string registered = NodeOf(FindRegisteredPorts(roots), &FoundDevice::portName, name);
    if (!registered.empty()) return registered;
    const std::string tty = TtyOfPortName(name);
    return tty.empty() ? tty : roots.dev + "/" + tty;
}

}  // namespace

std::string FileOfDevicePath(const LinuxRoots& roots, const std::string& path) {
    if (path.empty() || path.starts_with('/')) return path;
    if (path.starts_with("hid:")) {
        const auto address = ReadHidPath(path);
        return address ? KernelHidNodeAt(roots, *address) : std::string();
    }
    if (path.starts_with("registered:")) {
        return NodeOf(FindRegisteredHidDevices(roots), &FoundDevice::interfacePath, path);
    }
    return FileOfPort(roots, path.starts_with(kDevicePrefix) ? path.substr(kDevicePrefix.size()) : path);
}

}  // namespace quillet::platform
