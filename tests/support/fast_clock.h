// SPDX-License-Identifier: MIT
// A clock that runs faster than the system's.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/clock.h"

namespace quillet::test {

// In use from its making to its end. Waits take a fraction of the time asked, but never none at all; the clock itself
// runs ahead by the same factor. It also adds up what was asked for, so that a test can tell a wait from none.
class FastClock : public platform::Clock {
  public:
    explicit FastClock(uint32_t factor) : m_Factor(factor), m_Start(platform::SystemClock().NowNs()) {
        platform::ReplaceClock(this);
    }
    ~FastClock() override { platform::ReplaceClock(nullptr); }

    int64_t NowNs() override {
        return m_Start + (platform::SystemClock().NowNs() - m_Start) * static_cast<int64_t>(m_Factor);
    }
    platform::LocalTime Local() override { return platform::SystemClock().Local(); }
    void SleepMs(uint32_t ms) override {
        sleptMs += ms;
        platform::SystemClock().SleepMs(Shortened(ms));
    }
    platform::WaitResult Wait(platform::Event& event, uint32_t timeoutMs) override {
        longestWaitMs = std::max(longestWaitMs.load(), timeoutMs);
        if (timeoutMs == platform::kNoLimitMs) ++endlessWaits;
        if (patient && timeoutMs >= kLongMs) timeoutMs = platform::kNoLimitMs;
        return platform::SystemClock().Wait(event, Shortened(timeoutMs));
    }

    // While set, waits of half a second and more have no limit: what they wait for is sure to come, on a busy machine
    // later than the clock's own pace would allow.
    std::atomic<bool> patient{false};

    // What was asked for so far.
    std::atomic<uint64_t> sleptMs{0};
    std::atomic<uint32_t> longestWaitMs{0};
    std::atomic<int> endlessWaits{0};

  private:
    uint32_t Shortened(uint32_t ms) const {
        return ms == 0 || ms == platform::kNoLimitMs ? ms : std::max(ms / m_Factor, 1u);
    }

    static constexpr uint32_t kLongMs = 500;

    const uint32_t m_Factor;
    const int64_t m_Start;
};

}  // namespace quillet::test
