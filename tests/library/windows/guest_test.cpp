// SPDX-License-Identifier: MIT
// A guest in the host's process: how it goes.
#include <windows.h>
#include <filesystem>
#include <string>
#include <thread>

#include "library/library_test.h"
#include "support/process.h"

namespace quillet::test {
namespace {

// Not the library that this test links, which is never unloaded.
class GuestTest : public LibraryTest {
  protected:
    GuestTest() {
        std::filesystem::copy_file(test::LoadedLibrary::PathOf(reinterpret_cast<void*>(&createScanner)), m_Copy,
                                   std::filesystem::copy_options::overwrite_existing);
    }
    bool IsLoaded() const { return ::GetModuleHandleA(m_Copy.string().c_str()) != nullptr; }

    const std::filesystem::path m_Copy =
        std::filesystem::temp_directory_path() / ("QuilletCopy" + std::to_string(test::ProcessId()) + ".dll");
};

TEST_F(GuestTest, GoesWithEverythingItHeld) {
    auto scanner = NewScanner(ScannerLink::Serial);
    const std::string connection = ConnectionOf(ScannerLink::Serial);
    size_t handles = 0;
    constexpr int kRounds = 10;
    // The compiler's runtime keeps two for the thread that loads it, and one for a lock that was contended.
    constexpr size_t kRuntimeHandles = 4;
    for (int round = 0; round < kRounds; ++round) {
        test::LoadedLibrary library(m_Copy);
        const auto setLog = library.Get<decltype(&setLogLevel)>("setLogLevel");
        const ScannerHandle handle = library.Get<decltype(&createScanner)>("createScanner")();
        EXPECT_EQ(setLog(0), ResultSuccess);
        EXPECT_EQ(library.Get<decltype(&openScanner)>("openScanner")(handle, connection.c_str()), ResultSuccess);
        EXPECT_EQ(library.Get<decltype(&destoryScanner)>("destoryScanner")(handle), ResultSuccess);
        EXPECT_EQ(setLog(9), ResultSuccess);
        library.Unload();
        EXPECT_FALSE(IsLoaded());
        if (round == 0) handles = test::HandleCount();  // the first round loads what the system keeps
    }
    EXPECT_LE(test::HandleCount(), handles + (kRounds - 1) * kRuntimeHandles);
    std::filesystem::remove(m_Copy);
}

TEST_F(GuestTest, KeepsNothingOfTheHostsThreads) {
    auto scanner = NewScanner(ScannerLink::Serial);
    Handle handle;
    ASSERT_EQ(openScanner(handle, ConnectionOf(ScannerLink::Serial).c_str()), ResultSuccess);
    const auto callOnThreads = [&] {
        for (int i = 0; i < 20; ++i) {
            std::thread([&] {
                EXPECT_EQ(handle.Take(0).result, ResultTimeout);
                EXPECT_EQ(setCode39(handle, 1), ResultSuccess);
            }).join();
        }
    };
    callOnThreads();
    const size_t handles = test::HandleCount();
    callOnThreads();
    EXPECT_LT(test::HandleCount(), handles + 10);
}

// A thread of the library can't be waited for while it is being unloaded, so its code stays until it has ended:
// here, with a scanner open and the log on, for good.
TEST_F(GuestTest, StaysWhileAThreadOfItRuns) {
    auto scanner = NewScanner(ScannerLink::Serial);
    test::LoadedLibrary library(m_Copy);
    const ScannerHandle handle = library.Get<decltype(&createScanner)>("createScanner")();
    const auto take = library.Get<decltype(&getBarCodeCacheCount)>("getBarCodeCacheCount");
    EXPECT_EQ(library.Get<decltype(&setLogLevel)>("setLogLevel")(0), ResultSuccess);
    EXPECT_EQ(library.Get<decltype(&openScanner)>("openScanner")(handle, ConnectionOf(ScannerLink::Serial).c_str()),
              ResultSuccess);
    library.Unload();
    ASSERT_TRUE(IsLoaded());
    scanner->Scan(3, "still at work");
    EXPECT_TRUE(Eventually([&] {
        int32_t count = 0;
        return take(handle, &count) == ResultSuccess && count == 1;
    }));
    scanner->Unplug();
}

}  // namespace
}  // namespace quillet::test
