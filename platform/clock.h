// SPDX-License-Identifier: MIT
// Time, replaceable in tests.
#pragma once

#include <cstdint>

#include "platform/event.h"

namespace quillet::platform {

// The local time of one moment.
struct LocalTime {
    int year = 0;         // four digits
    int month = 0;        // 1 to 12
    int day = 0;          // 1 to 31
    int hour = 0;         // 0 to 23
    int minute = 0;       // 0 to 59
    int second = 0;       // 0 to 60
    int millisecond = 0;  // 0 to 999
};

// All waiting with a limit, and all reading of clocks, above the platform layer goes through TheClock(). All
// operations may be called from any thread.
class Clock {
  public:
    virtual ~Clock() = default;

    // Nanoseconds of a monotonic clock with an arbitrary start.
    virtual int64_t NowNs() = 0;
    virtual LocalTime Local() = 0;
    virtual void SleepMs(uint32_t ms) = 0;
    // As Event::Wait, in this clock's milliseconds.
    virtual WaitResult Wait(Event& event, uint32_t timeoutMs) = 0;
};

// The clock in use: the system's, unless a test has put one of its own in its place.
Clock& TheClock() noexcept;
// Replaces the clock for the whole process; null puts the system's back. The caller keeps the object alive
// until then and sees to it that no other thread is using the old one any more.
void ReplaceClock(Clock* clock) noexcept;

// Given by the operating system's folder; needs no memory.
Clock& SystemClock() noexcept;

// A time limit that begins with the object. The clock outlives it.
class Countdown {
  public:
    Countdown(Clock& clock, uint32_t limitMs) : m_Clock(clock), m_StartNs(clock.NowNs()), m_LimitMs(limitMs) {}
    // What is left, 0 when it is over; always kNoLimitMs of a limit that is kNoLimitMs.
    uint32_t LeftMs() const {
        if (m_LimitMs == kNoLimitMs) return kNoLimitMs;
        const int64_t passedMs = (m_Clock.NowNs() - m_StartNs) / 1'000'000;
        return passedMs >= m_LimitMs ? 0 : m_LimitMs - static_cast<uint32_t>(passedMs);
    }

  private:
    Clock& m_Clock;
    const int64_t m_StartNs;
    const uint32_t m_LimitMs;
};

}  // namespace quillet::platform
