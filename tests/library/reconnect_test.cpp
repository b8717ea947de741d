// SPDX-License-Identifier: MIT
// A scanner that goes away and comes back, and handles that are closed and destroyed at awkward moments.
#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "library/library_test.h"

namespace quillet::test {
namespace {

using std::chrono::milliseconds;

class ReconnectTest : public LinkTest {
  protected:
    bool ComesBack(const Handle& handle) {
        return Eventually([&] { return handle.State() == ScannerStateEnabled; });
    }
    // A scan right after plugging in may come before the library has noticed; within a second or two one arrives.
    void ScanUntilReceived(const Handle& handle) {
        static int number = 0;
        const std::string text = "back again " + std::to_string(++number);
        const auto arrives = [&] {
            m_Scanner->Scan(11, text);
            for (Barcode barcode = handle.Take(100); barcode.result == ResultSuccess; barcode = handle.Take(0)) {
                if (barcode.text == text) return true;
            }
            return false;
        };
        EXPECT_TRUE(Eventually(arrives));
    }
    // Pulls the scanner of a handle that was just opened. One that goes before the first look at the devices isn't
    // missed, and comes back in silence; then once more.
    bool Lose(const Handle& handle) {
        return Eventually([&] {
            m_Scanner->Unplug();
            if (Eventually([&] { return handle.State() == ScannerStateOpen; }, std::chrono::seconds(1))) return true;
            m_Scanner->Plug();
            ScanUntilReceived(handle);
            return false;
        });
    }
};
INSTANTIATE_TEST_SUITE_P(Links, ReconnectTest, kBothParsers, ::testing::PrintToStringParamName());

// A host may make a handle for each of its transactions.
TEST_P(ReconnectTest, CyclesLeaveNoHandleAndNoThread) {
    const auto cycle = [&] {
        const Handle handle;
        ASSERT_EQ(Open(handle, GetParam()), ResultSuccess);
        for (int round = 0; round < 2; ++round) {
            ASSERT_TRUE(Lose(handle));
            m_Scanner->Plug();
            ASSERT_TRUE(ComesBack(handle));
        }
        ScanUntilReceived(handle);
    };
    for (int i = 0; i < 3; ++i) cycle();  // the first ones load what the system keeps
    const size_t handles = HandleCount();
    const size_t threads = ThreadCount();
    for (int i = 0; i < 10 && !HasFatalFailure(); ++i) cycle();
    EXPECT_TRUE(Eventually([&] { return HandleCount() <= handles + kLazyHandles && ThreadCount() <= threads; }))
        << HandleCount() << " handles after " << handles << ", " << ThreadCount() << " threads after " << threads;
}

TEST_P(ReconnectTest, RandomPullsNeverLoseTheScannerForGood) {
    std::atomic<bool> ended{false};
    Handle handle;
    std::atomic<bool> consuming{true};
    std::thread consumer([&] {
        while (consuming) handle.Take(200);
    });
    std::thread poller([&] {
        while (!ended) {
            handle.State();
            setCode39(handle, 1);
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    std::thread opener([&] {
        std::mt19937 random(7);
        while (!ended) {
            Open(handle, GetParam());
            std::this_thread::sleep_for(milliseconds(random() % 400));
            if (random() % 2 == 0) closeScanner(handle);
        }
        Open(handle, GetParam());
        // The claim belongs to this thread, so it is the one to wait for the end of the test and close.
        consuming = false;
        ScanUntilReceived(handle);
        EXPECT_EQ(closeScanner(handle), ResultSuccess);
    });
    std::mt19937 random(3);
    for (int cycle = 25; cycle > 0; --cycle) {
        m_Scanner->Unplug();
        std::this_thread::sleep_for(milliseconds(random() % 250));
        m_Scanner->Plug();
        std::this_thread::sleep_for(milliseconds(random() % 350));
    }
    ended = true;
    opener.join();
    consumer.join();
    poller.join();
}

TEST_P(ReconnectTest, HandlesCanBeDestroyedAtAnyMoment) {
    std::mt19937 random(11);
    for (int cycle = 12; cycle > 0; --cycle) {
        Handle handle;
        std::atomic<bool> opening{false};
        std::thread opener([&] {
            opening = true;
            Open(handle, GetParam());
        });
        std::thread waiter([&] {
            while (!opening) std::this_thread::yield();
            handle.Take(-1);  // ended by the destruction
        });
        ASSERT_TRUE(Eventually([&] { return opening.load(); }));
        if (cycle % 3 == 0) m_Scanner->Unplug();
        std::this_thread::sleep_for(milliseconds(100 + random() % 300));  // both calls are under way
        const int64_t start = MonotonicMs();
        destoryScanner(handle);
        EXPECT_LT(MonotonicMs() - start, 10'000);
        opener.join();
        waiter.join();
        handle.Forget();
        m_Scanner->Plug();
    }
}

}  // namespace
}  // namespace quillet::test
