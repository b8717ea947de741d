// SPDX-License-Identifier: MIT
#include <array>
#include <atomic>
#include <ctime>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

#include "platform/clock.h"
#include "platform/device_access.h"
#include "platform/event.h"
#include "platform/thread.h"

namespace quillet::platform {
namespace {

TEST(Event, AutoResetLetsOneWaiterThroughForEachSignal) {
    const auto event = Event::Create(Event::Kind::AutoReset);
    std::atomic<int> through{0};
    std::array<Thread, 4> waiters;
    for (Thread& waiter : waiters) {
        waiter = StartThread("waiter", [&] {
            event->Wait(kNoLimitMs);
            ++through;
        });
    }
    for (int expected = 1; expected <= 4; ++expected) {
        event->Signal();
        while (through < expected) std::this_thread::yield();
        EXPECT_EQ(event->Wait(20), WaitResult::TimedOut) << "the signal was not consumed";
        EXPECT_EQ(through, expected);
    }
    for (auto& waiter : waiters) waiter.Join();
    event->Signal();
    event->Reset();
    EXPECT_EQ(event->Wait(0), WaitResult::TimedOut);
}

TEST(Waits, LastAsLongAsAsked) {
    StopSignal stop;
    const auto event = Event::Create(Event::Kind::ManualReset);
    const int64_t start = SystemClock().NowNs();
    EXPECT_FALSE(stop.Wait(50));
    EXPECT_EQ(SystemClock().Wait(*event, 50), WaitResult::TimedOut);
    SystemClock().SleepMs(50);
    const int64_t tookMs = (SystemClock().NowNs() - start) / 1000000;
    EXPECT_GE(tookMs, 140);  // a system may round each down to its tick
    EXPECT_LT(tookMs, 5000);
}

TEST(Thread, HasAnIdAndSwallowsExceptions) {
    uint32_t id = 0;
    Thread thread = StartThread("thrower", [&] {
        id = CurrentThreadId();
        throw std::runtime_error("must end the thread alone");
    });
    EXPECT_TRUE(thread.Joinable());
    EXPECT_FALSE(thread.IsCurrent());
    thread.Join();
    EXPECT_FALSE(thread.Joinable());
    EXPECT_NE(id, 0U);
    EXPECT_NE(id, CurrentThreadId());
    thread = StartThread("self", [&] { SetCurrentThreadName(nullptr); });
    thread.Join();
}

TEST(Clock, LocalTimeHasTheRanges) {
    const std::time_t before = std::time(nullptr);
    const LocalTime now = SystemClock().Local();
    std::tm parts{};
    parts.tm_year = now.year - 1900;
    parts.tm_mon = now.month - 1;
    parts.tm_mday = now.day;
    parts.tm_hour = now.hour;
    parts.tm_min = now.minute;
    parts.tm_sec = now.second;
    parts.tm_isdst = -1;
    EXPECT_NEAR(static_cast<double>(std::mktime(&parts)), static_cast<double>(before), 2);
    EXPECT_GE(now.millisecond, 0);
    EXPECT_LE(now.millisecond, 999);
}

}  // namespace
}  // namespace quillet::platform
