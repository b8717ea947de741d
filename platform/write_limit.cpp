// SPDX-License-Identifier: MIT
#include "platform/write_limit.h"

#include <algorithm>

#include "platform/clock.h"

namespace quillet::platform {
namespace {

constexpr int64_t kNsPerMs = 1'000'000;

}  // namespace

void WriteLimit::Begin(uint32_t limitMs) noexcept {
    const std::lock_guard lock(m_Mutex);
    if (m_Closing++ > 0) return;
    m_EndNs = TheClock().NowNs() + limitMs * kNsPerMs;
    m_Begun.Set();
}

void WriteLimit::End() noexcept {
    const std::lock_guard lock(m_Mutex);
    if (--m_Closing == 0) m_Begun.Reset();
}

void WriteLimit::GiveUp() noexcept {
    const std::lock_guard lock(m_Mutex);
    m_Begun.Close();
}

// Rounded up, so that a wait for the rest ends at 0.
uint32_t WriteLimit::LeftMs() const noexcept {
    const std::lock_guard lock(m_Mutex);
    if (m_Closing == 0) return kNoLimitMs;
    const int64_t leftNs = std::max<int64_t>(m_EndNs - TheClock().NowNs(), 0);
    return static_cast<uint32_t>((leftNs + kNsPerMs - 1) / kNsPerMs);
}

}  // namespace quillet::platform
