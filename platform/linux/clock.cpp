// SPDX-License-Identifier: MIT
// The system's clocks.
#include "platform/clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <thread>

#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

// The offset of local time from UTC, cached together with the second it was computed for in one word: the C
// library takes a lock for every conversion. It is computed again with each new second, so that a change of
// the time zone is noticed.
class ZoneOffset {
  public:
    int64_t At(int64_t second) noexcept {
        const int64_t known = m_Known.load(std::memory_order_relaxed);
        if (known >> kOffsetBits == second) return (known & kOffsetMask) - kOffsetBias;
        const int64_t offset = Ask(second);
        m_Known.store(second << kOffsetBits | (offset + kOffsetBias), std::memory_order_relaxed);
        return offset;
    }

  private:
    static int64_t Ask(int64_t second) noexcept {
        using namespace std::chrono;
        const auto asked = static_cast<time_t>(second);
        std::tm parts{};
        if (::localtime_r(&asked, &parts) == nullptr) return 0;
        const sys_days day = year(parts.tm_year + 1900) / (parts.tm_mon + 1) / parts.tm_mday;
        const auto local = day + hours(parts.tm_hour) + minutes(parts.tm_min) + seconds(parts.tm_sec);
        return local.time_since_epoch().count() - second;
    }

    static constexpr int kOffsetBits = 21;  // a zone is less than 168 hours away
    static constexpr int64_t kOffsetMask = (int64_t{1} << kOffsetBits) - 1;
    static constexpr int64_t kOffsetBias = int64_t{1} << (kOffsetBits - 1);

    std::atomic<int64_t> m_Known{-1};
};

class LinuxClock final : public Clock {
  public:
    int64_t NowNs() override {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    LocalTime Local() override {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        const std::chrono::sys_seconds local(std::chrono::seconds(now.tv_sec + m_ZoneOffset.At(now.tv_sec)));
        const auto day = std::chrono::floor<std::chrono::days>(local);
        const std::chrono::year_month_day date(day);
        const std::chrono::hh_mm_ss time(local - day);
        return {static_cast<int>(date.year()),
                static_cast<int>(static_cast<unsigned>(date.month())),
                static_cast<int>(static_cast<unsigned>(date.day())),
                static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()),
                static_cast<int>(now.tv_nsec / 1000000)};
    }

    // A pause of 0 doesn't give up the processor; the scheduler sees to other threads by itself.
    void SleepMs(uint32_t ms) override {
        if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }

    WaitResult Wait(Event& event, uint32_t timeoutMs) override { return event.Wait(timeoutMs); }

  private:
    ZoneOffset m_ZoneOffset;
};

}  // namespace

Clock& SystemClock() noexcept {
    static NoDestroy<LinuxClock> clock;
    return clock.Get();
}

}  // namespace quillet::platform
