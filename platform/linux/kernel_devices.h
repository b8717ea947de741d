// The serial ports and HID devices that the kernel shows in sysfs. Nothing is opened but sysfs itself.
#pragma once

#include <string>

#include "platform/linux/found_device.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// In the order of their numbers.
FoundDevices FindKernelPorts(const LinuxRoots& roots);
FoundDevices FindKernelHidDevices(const LinuxRoots& roots);

// The tty that a port name such as COM3 stands for, whether or not the machine has it; empty for other names.
std::string TtyOfPortName(const std::string& portName);

}  // namespace quillet::platform
