// SPDX-License-Identifier: MIT
// A scanner that goes away and comes back, and handles that are closed and destroyed at awkward moments.
#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "library/library_test.h"
#include "support/process.h"

namespace quillet::test {
namespace {

using std::chrono::milliseconds;

int Cycles(int usual) {
    return Repetitions("QUILLET_TEST_CYCLES", usual);
}

class ReconnectTest : public LibraryTest, public ::testing::WithParamInterface<ScannerLink> {
  protected:
    void SetUp() override { m_Scanner = NewScanner(GetParam()); }
    const char* Connection() const { return m_Connection.c_str(); }
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
    // missed, and comes back in silence; then once more, and with it the barcode that is to be kept through the loss.
    bool Lose(const Handle& handle, const std::string& kept = {}) {
        return Eventually([&] {
            if (!kept.empty()) ScanAndWait(*m_Scanner, handle, 3, kept);
            m_Scanner->Unplug();
            if (test::Eventually([&] { return handle.State() == ScannerStateOpen; }, 1000)) return true;
            m_Scanner->Plug();
            ScanUntilReceived(handle);
            return false;
        });
    }
    const std::string m_Connection = ConnectionOf(GetParam());
    std::unique_ptr<VirtualScanner> m_Scanner;
};
INSTANTIATE_TEST_SUITE_P(Links, ReconnectTest, ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial),
                         LinkName);

constexpr int kLeakCycles = 20;

// A host may make a handle for each of its transactions.
TEST_P(ReconnectTest, CyclesLeaveNoHandleAndNoThread) {
    const auto cycle = [&] {
        Handle handle;
        ASSERT_EQ(openScanner(handle, Connection()), ResultSuccess);
        for (int round = 0; round < 2; ++round) {
            ASSERT_TRUE(Lose(handle));
            m_Scanner->Plug();
            ASSERT_TRUE(ComesBack(handle));
        }
        ScanUntilReceived(handle);
    };
    for (int i = 0; i < 3; ++i) cycle();  // the first ones load what the system keeps
    const size_t handles = test::HandleCount();
    const size_t threads = test::ThreadCount();
    for (int i = Cycles(kLeakCycles) / 2; i > 0 && !HasFatalFailure(); --i) cycle();
    const auto asBefore = [&] {
        return test::HandleCount() <= handles + test::kLazyHandles && test::ThreadCount() <= threads;
    };
    EXPECT_TRUE(Eventually(asBefore)) << test::HandleCount() << " handles after " << handles << ", "
                                      << test::ThreadCount() << " threads after " << threads;
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
            openScanner(handle, Connection());
            std::this_thread::sleep_for(milliseconds(random() % 400));
            if (random() % 2 == 0) closeScanner(handle);
        }
        openScanner(handle, Connection());
        // The claim belongs to this thread, so it is the one to wait for the end of the test and close.
        consuming = false;
        ScanUntilReceived(handle);
        EXPECT_EQ(closeScanner(handle), ResultSuccess);
    });
    std::mt19937 random(3);
    for (int cycle = Cycles(25); cycle > 0; --cycle) {
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
    for (int cycle = Cycles(12); cycle > 0; --cycle) {
        Handle handle;
        std::atomic<bool> opening{false};
        std::thread opener([&] {
            opening = true;
            openScanner(handle, Connection());
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
