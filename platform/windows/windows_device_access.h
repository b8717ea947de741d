// SPDX-License-Identifier: MIT
// The device access of the system.
#pragma once

#include "platform/device_access.h"

namespace quillet::platform {

class WindowsDeviceAccess final : public DeviceAccess {
  public:
    OpenResult Open(const std::string& path, Sharing sharing) override;
};

}  // namespace quillet::platform
