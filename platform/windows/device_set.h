// SPDX-License-Identifier: MIT
// One class of devices, as the device installation functions list it.
#pragma once

#include <windows.h>
#include <cfgmgr32.h>
#include <memory>
#include <setupapi.h>
#include <utility>

#include "platform/device_tree.h"

namespace quillet::platform {

struct DeviceInfoListCloser {
    void operator()(HDEVINFO list) const noexcept { ::SetupDiDestroyDeviceInfoList(list); }
};
using UniqueDeviceInfoList = std::unique_ptr<void, DeviceInfoListCloser>;

class WindowsDeviceSet final : public DeviceSet {
  public:
    WindowsDeviceSet(UniqueDeviceInfoList list, const GUID& guid) noexcept;

    bool SelectDevice(size_t index) override;
    KeyValue ReadKeyValue(const char* name) override;
    std::string ReadProperty(DeviceProperty property) override;
    std::string DeviceId() override;
    std::string ParentId() override;

    InterfaceStep SelectInterface(size_t index) override;
    // Also selects the interface's device: with several interfaces on one device the two walks get out of
    // step, and texts must belong to the path.
    bool InterfacePath(std::string& path) override;
    bool InterfaceDeviceId(std::string& id) override;

  private:
    const UniqueDeviceInfoList m_List;
    const GUID m_Guid;
    SP_DEVINFO_DATA m_Device{};
    SP_DEVICE_INTERFACE_DATA m_Interface{};
};

}  // namespace quillet::platform
