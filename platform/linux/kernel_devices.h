// SPDX-License-Identifier: MIT
// The serial ports and HID devices that the kernel shows in sysfs. Nothing is opened but sysfs itself.
// Each may throw LookFailed.
#pragma once

#include <string>

#include "platform/linux/found_device.h"
#include "platform/linux/hid_address.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// In the order of their numbers.
FoundDevices FindKernelPorts(const LinuxRoots& roots);
FoundDevices FindKernelHidDevices(const LinuxRoots& roots);

// True if FindKernelPorts would have the port of this name.
bool IsKernelPortListed(const LinuxRoots& roots, const std::string& portName);
// Instance ID of the hidraw device of a name such as hidraw3; empty if FindKernelHidDevices wouldn't have it.
std::string KernelHidInstanceId(const LinuxRoots& roots, const std::string& name);
// The node of the first device that is at the address; empty if none is.
std::string KernelHidNodeAt(const LinuxRoots& roots, const HidAddress& address);

// The tty that a port name such as COM3 stands for, whether or not the machine has it; empty for other names.
std::string TtyOfPortName(const std::string& portName);

}  // namespace quillet::platform
