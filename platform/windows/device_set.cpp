// SPDX-License-Identifier: MIT
#include "platform/windows/device_set.h"

#include <array>
#include <cstddef>
#include <vector>

#include "platform/windows/device_texts.h"

namespace quillet::platform {
namespace {

constexpr size_t kInstanceIdSize = 260;

}  // namespace

WindowsDeviceSet::WindowsDeviceSet(UniqueDeviceInfoList list, const GUID& guid) noexcept
    : m_List(std::move(list)), m_Guid(guid) {
    m_Device.cbSize = sizeof m_Device;
    m_Interface.cbSize = sizeof m_Interface;
}

bool WindowsDeviceSet::SelectDevice(size_t index) {
    return ::SetupDiEnumDeviceInfo(m_List.get(), static_cast<DWORD>(index), &m_Device) != FALSE;
}

KeyValue WindowsDeviceSet::ReadKeyValue(const char* name) {
    const HKEY key = ::SetupDiOpenDevRegKey(m_List.get(), &m_Device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
    if (key == INVALID_HANDLE_VALUE) return {};
    const UniqueKey open(key);
    return ReadRegistryValue(open.get(), name);
}

std::string WindowsDeviceSet::ReadProperty(DeviceProperty property) {
    const DWORD number = property == DeviceProperty::Description ? SPDRP_DEVICEDESC : SPDRP_MFG;
    return ReadDeviceProperty(m_List.get(), m_Device, number);
}

std::string WindowsDeviceSet::DeviceId() {
    return ReadDeviceId(m_Device.DevInst);
}

std::string WindowsDeviceSet::ParentId() {
    ULONG status = 0;
    ULONG problem = 0;
    DEVINST parent = 0;
    if (::CM_Get_DevNode_Status(&status, &problem, m_Device.DevInst, 0) != CR_SUCCESS ||
        ::CM_Get_Parent(&parent, m_Device.DevInst, 0) != CR_SUCCESS) {
        return {};
    }
    return ReadDeviceId(parent);
}

InterfaceStep WindowsDeviceSet::SelectInterface(size_t index) {
    const auto number = static_cast<DWORD>(index);
    if (::SetupDiEnumDeviceInterfaces(m_List.get(), nullptr, &m_Guid, number, &m_Interface) != FALSE) {
        return InterfaceStep::Selected;
    }
    return ::GetLastError() == ERROR_NO_MORE_ITEMS ? InterfaceStep::End : InterfaceStep::Failed;
}

bool WindowsDeviceSet::InterfacePath(std::string& path) {
    using Detail = SP_DEVICE_INTERFACE_DETAIL_DATA_A;
    DWORD size = 0;
    ::SetupDiGetDeviceInterfaceDetailA(m_List.get(), &m_Interface, nullptr, 0, &size, nullptr);
    if (size < sizeof(Detail)) return false;
    // Of DWORDs, for the alignment; the path is terminated whatever the system leaves.
    std::vector<DWORD> buffer(size / sizeof(DWORD) + 2);
    auto* const detail = reinterpret_cast<Detail*>(buffer.data());
    detail->cbSize = sizeof(Detail);
    if (::SetupDiGetDeviceInterfaceDetailA(m_List.get(), &m_Interface, detail, size, &size, &m_Device) == FALSE) {
        return false;
    }
    path = detail->DevicePath;
    return true;
}

bool WindowsDeviceSet::InterfaceDeviceId(std::string& id) {
    std::array<char, kInstanceIdSize> buffer{};
    const auto size = static_cast<DWORD>(buffer.size());
    if (::SetupDiGetDeviceInstanceIdA(m_List.get(), &m_Device, buffer.data(), size, nullptr) == FALSE) return false;
    id = buffer.data();
    return true;
}

}  // namespace quillet::platform
