// SPDX-License-Identifier: MIT
// Threads aren't cancelled on this system.
#include "platform/cancellation.h"

namespace quillet::platform {

CancellationHeldOff::CancellationHeldOff() noexcept = default;

CancellationHeldOff::~CancellationHeldOff() = default;

}  // namespace quillet::platform
