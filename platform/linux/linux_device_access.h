// The device access of one set of roots.
#pragma once

#include <utility>

#include "platform/device_access.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// Takes the paths of device_path.h. Exclusive opens a terminal, Shared a hidraw node or a SOCK_SEQPACKET
// socket.
class LinuxDeviceAccess final : public DeviceAccess {
  public:
    explicit LinuxDeviceAccess(LinuxRoots roots) : m_Roots(std::move(roots)) {}
    OpenResult Open(const std::string& path, Sharing sharing) override;

  private:
    const LinuxRoots m_Roots;
};

}  // namespace quillet::platform
