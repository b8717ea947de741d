// SPDX-License-Identifier: MIT
// One device as a walk finds it.
#pragma once

#include <string>
#include <vector>

namespace quillet::platform {

struct FoundDevice {
    std::string portName;  // serial ports: such as COM3
    // HID devices: what stands for the device from plug to plug. See device_path.h for its forms.
    std::string interfacePath;
    std::string node;          // the file behind it at this moment
    std::string registration;  // the file that registers it; empty for the kernel's own
    std::string instanceId;
    std::string parentId;
    std::string description;
    std::string manufacturer;
};

using FoundDevices = std::vector<FoundDevice>;

}  // namespace quillet::platform
