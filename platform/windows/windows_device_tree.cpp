// SPDX-License-Identifier: MIT
#include "platform/windows/windows_device_tree.h"

#include <array>

#include "platform/no_destroy.h"
#include "platform/windows/device_set.h"

namespace quillet::platform {
namespace {

struct ClassSearch {
    GUID guid;
    DWORD flags;
};

constexpr DWORD kOfSetupClass = DIGCF_PRESENT;
constexpr DWORD kOfInterfaceClass = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;

// In the order of DeviceClass. Written out, as the headers of the compilers differ in which of them they define.
constexpr std::array<ClassSearch, 5> kSearches = {{
    {{0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, kOfSetupClass},
    {{0x4D36E96D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, kOfSetupClass},
    {{0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}}, kOfInterfaceClass},
    {{0x2C7089AA, 0x2E0E, 0x11D1, {0xB1, 0x14, 0x00, 0xC0, 0x4F, 0xC2, 0xAA, 0xE4}}, kOfInterfaceClass},
    {{0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}}, kOfInterfaceClass},
}};

}  // namespace

std::unique_ptr<DeviceSet> WindowsDeviceTree::OpenSet(DeviceClass deviceClass) {
    const ClassSearch& search = kSearches[static_cast<size_t>(deviceClass)];
    UniqueDeviceInfoList list(::SetupDiGetClassDevsA(&search.guid, nullptr, nullptr, search.flags));
    if (list.get() == INVALID_HANDLE_VALUE) {
        static_cast<void>(list.release());
        return nullptr;
    }
    return std::make_unique<WindowsDeviceSet>(std::move(list), search.guid);
}

DeviceTree& SystemDeviceTree() {
    static NoDestroy<WindowsDeviceTree> tree;
    return tree.Get();
}

}  // namespace quillet::platform
