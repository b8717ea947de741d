// SPDX-License-Identifier: MIT
// Processes aren't copied on this system.
#include "platform/process_origin.h"

namespace quillet::platform {

ProcessOrigin::ProcessOrigin() noexcept : m_Generation(0) {}

bool ProcessOrigin::IsHere() const noexcept {
    return m_Generation == 0;
}

}  // namespace quillet::platform
