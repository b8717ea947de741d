// SPDX-License-Identifier: MIT
// The line settings in the system's record.
#pragma once

#include <windows.h>

#include "platform/device_access.h"

namespace quillet::platform {

SerialSettings SettingsOf(const DCB& dcb) noexcept;
// What SerialSettings doesn't name stays as it is.
void StoreSettings(const SerialSettings& settings, DCB& dcb) noexcept;

}  // namespace quillet::platform
