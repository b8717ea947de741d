// SPDX-License-Identifier: MIT
// From the path of a device, as discovery tells it, to the file that is opened. A path stands for the same
// device from plug to plug, while the file behind it changes; so it is looked up at each open:
//
//   \\.\COM3, COM3     a registered port of that name, else the tty that has the number by the fixed table
//   hid:<...>          the hidraw device of an identity at a place; see hid_address.h
//   registered:<file>  the HID device that this registration file tells
//   /...               the file itself
#pragma once

#include <string>

#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// Empty if the path stands for nothing at this moment. May throw LookFailed.
std::string FileOfDevicePath(const LinuxRoots& roots, const std::string& path);

}  // namespace quillet::platform
