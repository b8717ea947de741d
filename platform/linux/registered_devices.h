// SPDX-License-Identifier: MIT
// Devices that programs register: a file "<name>.device" of key=value lines each, in a directory of devices.
// The keys: class (serial or hid), port (its name; serial), path (terminal, hidraw node or SOCK_SEQPACKET
// socket), instance, parent (serial), description, manufacturer, lock. A device is plugged in when its file is
// renamed into place. One that names a lock, a file beside it, counts only while somebody holds a write lock on that
// file: the terminal that a killed program's file names may belong to another program by now.
#pragma once

#include <optional>

#include "platform/linux/found_device.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// In the order of the directories, and in byte order of the names within each. Directories and files that
// others than root and this process's effective user could have written are left out.
// Each may throw LookFailed.
FoundDevices FindRegisteredPorts(const LinuxRoots& roots);
FoundDevices FindRegisteredHidDevices(const LinuxRoots& roots);

// What the file of a registered device tells by now; nothing if it would be left out.
std::optional<FoundDevice> FindRegistration(const FoundDevice& before);

}  // namespace quillet::platform
