// SPDX-License-Identifier: MIT
// The line of a terminal. Each gives 0 or an errno.
#pragma once

#include <cstdint>

#include "platform/device_access.h"

namespace quillet::platform {

// No line discipline, no echo, no flow control, modem lines ignored; input that waits stays.
// ENOTTY if it is no terminal.
uint32_t MakeRaw(int fd) noexcept;
uint32_t GetLineSettings(int fd, SerialSettings& settings) noexcept;
// EINVAL for what a line can't do here: one and a half stop bits, DSR flow control, dropped zeros.
uint32_t SetLineSettings(int fd, const SerialSettings& settings) noexcept;

}  // namespace quillet::platform
