// SPDX-License-Identifier: MIT
// Texts and values of one device. What can't be read is empty.
#pragma once

#include <windows.h>
#include <cfgmgr32.h>
#include <memory>
#include <setupapi.h>
#include <string>
#include <type_traits>

#include "platform/device_tree.h"

namespace quillet::platform {

struct KeyCloser {
    void operator()(HKEY key) const noexcept { ::RegCloseKey(key); }
};
using UniqueKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

KeyValue ReadRegistryValue(HKEY key, const char* name);
std::string ReadDeviceProperty(HDEVINFO list, SP_DEVINFO_DATA& device, DWORD property);
// Instance ID of a node of the device tree.
std::string ReadDeviceId(DEVINST node);

}  // namespace quillet::platform
