// The system's clocks.
#include "platform/clock.h"

#include <chrono>
#include <ctime>
#include <thread>

#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

class LinuxClock final : public Clock {
  public:
    int64_t NowNs() override {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    LocalTime Local() override {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        std::tm parts{};
        ::localtime_r(&now.tv_sec, &parts);
        return {parts.tm_year + 1900,
                parts.tm_mon + 1,
                parts.tm_mday,
                parts.tm_hour,
                parts.tm_min,
                parts.tm_sec,
                static_cast<int>(now.tv_nsec / 1000000)};
    }

    void SleepMs(uint32_t ms) override {
        if (ms == 0) {
            std::this_thread::yield();
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }

    WaitResult Wait(Event& event, uint32_t timeoutMs) override { return event.Wait(timeoutMs); }
};

}  // namespace

Clock& SystemClock() noexcept {
    static NoDestroy<LinuxClock> clock;
    return clock.Get();
}

}  // namespace quillet::platform
