// SPDX-License-Identifier: MIT
// The device tree of one set of roots.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/device_tree.h"
#include "platform/linux/found_device.h"
#include "platform/linux/linux_roots.h"

namespace quillet::platform {

// Each set is a fresh look at the system, taken whole when it is opened; registered devices come before the
// kernel's, and a registered port hides a kernel port of its name. A look that runs out of descriptors or memory is
// answered with the last set of its class that was read whole: a host near its limits doesn't lose its scanners.
class LinuxDeviceTree final : public DeviceTree {
  public:
    explicit LinuxDeviceTree(LinuxRoots roots) : m_Roots(std::move(roots)) {}
    std::unique_ptr<DeviceSet> OpenSet(DeviceClass deviceClass) override;
    QuickLook LookFor(DeviceClass deviceClass, const std::string& device) override;

  private:
    using List = std::shared_ptr<const FoundDevices>;

    List Look(DeviceClass deviceClass);
    List LastList(DeviceClass deviceClass);
    QuickLook LookForPort(const std::string& name);
    QuickLook LookForHid(const std::string& path);

    const LinuxRoots m_Roots;
    std::mutex m_Mutex;  // guards the two below, never held while looking
    List m_LastPorts;    // the last that were read whole; null before
    List m_LastHids;
};

}  // namespace quillet::platform
