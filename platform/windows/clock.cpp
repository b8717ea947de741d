// SPDX-License-Identifier: MIT
// The system's clocks.
#include "platform/clock.h"

#include <windows.h>

#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

int64_t CounterFrequency() noexcept {
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);  // never fails on a system that runs this
    return frequency.QuadPart;
}

class WindowsClock final : public Clock {
  public:
    // In two steps: the counter times a billion would overflow within hours.
    int64_t NowNs() override {
        LARGE_INTEGER counter;
        ::QueryPerformanceCounter(&counter);
        const int64_t seconds = counter.QuadPart / m_Frequency;
        const int64_t rest = counter.QuadPart % m_Frequency;
        return seconds * kNsPerSecond + rest * kNsPerSecond / m_Frequency;
    }

    LocalTime Local() override {
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
    }

    void SleepMs(uint32_t ms) override { ::Sleep(ms); }

    WaitResult Wait(Event& event, uint32_t timeoutMs) override { return event.Wait(timeoutMs); }

  private:
    const int64_t m_Frequency = CounterFrequency();  // fixed at boot
};

}  // namespace

Clock& SystemClock() noexcept {
    static NoDestroy<WindowsClock> clock;
    return clock.Get();
}

}  // namespace quillet::platform
