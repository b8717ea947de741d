// The device tree of one set of roots.
#pragma once

#include <memory>
#include <utility>

#include "platform/device_tree.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// Each set is a fresh look at the system, taken whole when it is opened; registered devices come before the
// kernel's, and a registered port hides a kernel port of its name.
class LinuxDeviceTree final : public DeviceTree {
  public:
    explicit LinuxDeviceTree(LinuxRoots roots) : m_Roots(std::move(roots)) {}
    std::unique_ptr<DeviceSet> OpenSet(DeviceClass deviceClass) override;

  private:
    const LinuxRoots m_Roots;
};

}  // namespace quillet::platform
