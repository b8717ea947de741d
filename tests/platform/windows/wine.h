// Whether the tests run under Wine, which lacks some of what Windows does.
#pragma once

#include <windows.h>

namespace quillet::platform {

inline bool UnderWine() {
    return ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace quillet::platform
