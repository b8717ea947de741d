// Devices that programs register: a file "<name>.device" of key=value lines each, in a directory of devices.
// The keys: class (serial or hid), port (its name; serial), path (terminal, hidraw node or SOCK_SEQPACKET
// socket), instance, parent (serial), description, manufacturer. A device is plugged in when its file is
// renamed into place.
#pragma once

#include "platform/linux/found_device.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// In the order of the directories, and in byte order of the names within each. Directories and files that
// others than root and this process's effective user could have written are left out.
FoundDevices FindRegisteredPorts(const LinuxRoots& roots);
FoundDevices FindRegisteredHidDevices(const LinuxRoots& roots);

}  // namespace quillet::platform
