// SPDX-License-Identifier: MIT
// The device access of one set of roots.
#pragma once

#include <utility>

#include "platform/device_access.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// Takes the paths of device_path.h. One that stands for a kernel's HID device which isn't there fails with
// ENODEV, and a look that gets no descriptor with its own code. Exclusive opens a terminal, Shared a hidraw node
// or a SOCK_SEQPACKET socket.
class LinuxDeviceAccess final : public DeviceAccess {
  public:
    explicit LinuxDeviceAccess(LinuxRoots roots) : m_Roots(std::move(roots)) {}
    OpenResult Open(const std::string& path, Sharing sharing) override;

  private:
    const LinuxRoots m_Roots;
};

}  // namespace quillet::platform
