// SPDX-License-Identifier: MIT
// The device tree of the system.
#pragma once

#include "platform/device_tree.h"

namespace quillet::platform {

class WindowsDeviceTree final : public DeviceTree {
  public:
    std::unique_ptr<DeviceSet> OpenSet(DeviceClass deviceClass) override;
};

}  // namespace quillet::platform
