// SPDX-License-Identifier: MIT
// Signals of the host, which the library must neither take nor be disturbed by.
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/device_access.h"
#include "platform/event.h"
#include "platform/thread.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;

TEST(Waits, OutliveSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);  // without SA_RESTART: system calls end with EINTR
    StopSignal stop;
    const auto event = Event::Create(Event::Kind::ManualReset);
    const pthread_t waiting = pthread_self();
    std::atomic<bool> done{false};
    Thread disturber = StartThread("disturber", [&] {
        while (!done) {
            pthread_kill(waiting, SIGUSR1);
            std::this_thread::sleep_for(2ms);
        }
    });
    const int64_t start = SystemClock().NowNs();
    EXPECT_FALSE(stop.Wait(50));
    EXPECT_EQ(SystemClock().Wait(*event, 50), WaitResult::TimedOut);
    SystemClock().SleepMs(50);
    const int64_t tookMs = (SystemClock().NowNs() - start) / 1000000;
    EXPECT_GE(tookMs, 149);
    EXPECT_LT(tookMs, 5000);
    done = true;
    disturber.Join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Thread, BlocksSignalsAndBearsItsName) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    uint32_t id = 0;
    StartThread("a name of more than fifteen bytes", [&] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGPIPE, SIGCHLD, SIGUSR1, SIGSEGV, SIGRTMAX}) {
            EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
        }
        std::string name(16, '\0');
        prctl(PR_GET_NAME, name.data());
        EXPECT_STREQ(name.c_str(), "a name of more ");
        id = CurrentThreadId();
    }).Join();
    EXPECT_NE(id, 0U);
    EXPECT_EQ(CurrentThreadId(), static_cast<uint32_t>(getpid())) << "the first thread has the process's id";
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGINT), sigismember(&before, SIGINT)) << "the starter's mask was changed";
}

}  // namespace
}  // namespace quillet::platform
