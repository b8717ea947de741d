// SPDX-License-Identifier: MIT
// A guest in the host's process: how it goes.
#include <windows.h>
#include <thread>

#include "library/library_copy.h"
#include "library/library_test.h"

namespace quillet::test {
namespace {

bool IsLoaded(const LibraryCopy& copy) {
    return ::GetModuleHandleA(copy.path.string().c_str()) != nullptr;
}

TEST(GuestTest, GoesWithEverythingItHeld) {
    auto scanner = NewScanner(ScannerLink::Serial);
    size_t handles = 0;
    constexpr int kRounds = 10;
    // The compiler's runtime keeps two for the thread that loads it, and one for a lock that was contended.
    constexpr size_t kRuntimeHandles = 4;
    for (int round = 0; round < kRounds; ++round) {
        LibraryCopy copy;
        const ScannerHandle handle = copy.create();
        EXPECT_EQ(copy.setLog(0), ResultSuccess);
        EXPECT_EQ(copy.open(handle, ConnectionOf(ScannerLink::Serial).c_str()), ResultSuccess);
        EXPECT_EQ(copy.destroy(handle), ResultSuccess);
        EXPECT_EQ(copy.setLog(9), ResultSuccess);
        copy.loaded.Unload();
        EXPECT_FALSE(IsLoaded(copy));
        if (round == 0) handles = HandleCount();  // the first round loads what the system keeps
    }
    EXPECT_LE(HandleCount(), handles + (kRounds - 1) * kRuntimeHandles);
}

TEST(GuestTest, KeepsNothingOfTheHostsThreads) {
    auto scanner = NewScanner(ScannerLink::Serial);
    Handle handle;
    ASSERT_EQ(Open(handle, ScannerLink::Serial), ResultSuccess);
    const auto callOnThreads = [&] {
        for (int i = 0; i < 20; ++i) {
            std::thread([&] {
                EXPECT_EQ(handle.Take(0).result, ResultTimeout);
                EXPECT_EQ(setCode39(handle, 1), ResultSuccess);
            }).join();
        }
    };
    callOnThreads();
    const size_t handles = HandleCount();
    callOnThreads();
    EXPECT_LT(HandleCount(), handles + 10);
}

// A thread of the library can't be waited for while it is being unloaded, so its code stays until it has ended:
// here, with a scanner open and the log on, for good.
TEST(GuestTest, StaysWhileAThreadOfItRuns) {
    auto scanner = NewScanner(ScannerLink::Serial);
    LibraryCopy copy;
    const ScannerHandle handle = copy.create();
    EXPECT_EQ(copy.setLog(0), ResultSuccess);
    EXPECT_EQ(copy.open(handle, ConnectionOf(ScannerLink::Serial).c_str()), ResultSuccess);
    copy.loaded.Unload();
    ASSERT_TRUE(IsLoaded(copy));
    scanner->Scan(3, "still at work");
    EXPECT_TRUE(Eventually([&] {
        int32_t count = 0;
        return copy.count(handle, &count) == ResultSuccess && count == 1;
    }));
    scanner->Unplug();
}

}  // namespace
}  // namespace quillet::test
