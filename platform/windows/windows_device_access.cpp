// SPDX-License-Identifier: MIT
#include "platform/windows/windows_device_access.h"

#include <utility>

#include "platform/no_destroy.h"
#include "platform/windows/device_file.h"

namespace quillet::platform {

OpenResult WindowsDeviceAccess::Open(const std::string& path, Sharing sharing) {
    const DWORD share = sharing == Sharing::Shared ? FILE_SHARE_READ | FILE_SHARE_WRITE : 0;
    UniqueHandle handle(::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr));
    if (!handle.IsOpen()) return {nullptr, ::GetLastError()};
    return {std::make_unique<WindowsDeviceFile>(std::move(handle)), 0};
}

DeviceAccess& SystemDeviceAccess() {
    static NoDestroy<WindowsDeviceAccess> access;
    return access.Get();
}

}  // namespace quillet::platform
