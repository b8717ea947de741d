// SPDX-License-Identifier: MIT
// What the exported calls do with a handle.
#pragma once

#include <cstdint>

#include "protocol/packet.h"

namespace quillet {

// 10 for a null handle; else sends on the handle's link: 0, or 109 without a link. Never throws.
int32_t SendOnHandle(void* handle, CommandPacket& packet) noexcept;

}  // namespace quillet
