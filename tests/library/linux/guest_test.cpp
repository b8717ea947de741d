// SPDX-License-Identifier: MIT
// A guest in the host's process: what it leaves to child processes, and how it goes.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <pthread.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "library/library_test.h"
#include "support/process.h"
#include "support/temp_tree.h"

#if defined(__SANITIZE_ADDRESS__)
// What an unloaded library has left, and a child of fork can't reach any more, is memory alone,
// and no leak of these cases.
extern "C" __attribute__((visibility("default"))) const char*
__asan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}
#endif

namespace quillet::test {
namespace {

using GuestTest = LibraryTest;

std::set<int> InheritableDescriptors() {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename().string());
        const int flags = fcntl(descriptor, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) found.insert(descriptor);
    }
    return found;
}

TEST_F(GuestTest, DescriptorsAreNotInherited) {
    const std::set<int> before = InheritableDescriptors();
    auto usb = NewScanner(ScannerLink::Usb);
    auto serial = NewScanner(ScannerLink::Serial);
    Handle first;
    Handle second;
    ASSERT_EQ(openScanner(first, ConnectionOf(ScannerLink::Usb).c_str()), ResultSuccess);
    ASSERT_EQ(openScanner(second, ConnectionOf(ScannerLink::Serial).c_str()), ResultSuccess);
    ASSERT_EQ(setLogLevel(0), ResultSuccess);
    EXPECT_EQ(InheritableDescriptors(), before);
}

// A child that closes something waits for ever for a lock that was held when it was forked.
bool OtherThreadsSleep() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(gettid())) continue;
        std::string text;
        std::getline(std::ifstream(task.path() / "stat"), text);
        if (text.find(") S ") == std::string::npos) return false;
    }
    return true;
}

// The exit status of a child that runs the routine and leaves it by exit; -1 if it crashed or hung.
int StatusOfChild(const std::function<void()>& routine) {
    EXPECT_TRUE(Eventually(OtherThreadsSleep));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        routine();
        std::exit(7);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Not the library that this test links, which is never unloaded.
class Copy {
  public:
    Copy() {
        std::filesystem::copy_file(test::LoadedLibrary::PathOf(reinterpret_cast<void*>(&createScanner)), m_Path);
        loaded.emplace(m_Path);
    }
    std::optional<test::LoadedLibrary> loaded;

  private:
    const test::TempTree m_Tree;
    const std::string m_Path = m_Tree.Path("libQuilletCopy.so");
};

// The library may be unloaded with handles still open.
TEST_F(GuestTest, UnloadingWithOpenHandlesLeavesNothing) {
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
    auto usb = NewScanner(ScannerLink::Usb);
    auto serial = NewScanner(ScannerLink::Serial);
    const size_t threads = test::SettledThreadCount();
    const size_t descriptors = test::HandleCount();
    static std::vector<ScannerHandle> kept;  // never destroyed, and yet no leak of the test's
    Copy copy;
    EXPECT_EQ(copy.loaded->Get<decltype(&setLogLevel)>("setLogLevel")(0), ResultSuccess);
    for (const ScannerLink link : {ScannerLink::Usb, ScannerLink::Serial}) {
        kept.push_back(copy.loaded->Get<decltype(&createScanner)>("createScanner")());
        const auto open = copy.loaded->Get<decltype(&openScanner)>("openScanner");
        ASSERT_EQ(open(kept.back(), ConnectionOf(link).c_str()), ResultSuccess);
    }
    copy.loaded->Unload();
    EXPECT_EQ(test::SettledThreadCount(), threads);
    // The ends of the virtual scanners' links notice a moment later.
    EXPECT_TRUE(Eventually([&] { return test::HandleCount() == descriptors; })) << test::HandleCount() - descriptors;
    Handle handle;
    EXPECT_EQ(openScanner(handle, ConnectionOf(ScannerLink::Serial).c_str()), ResultSuccess) << "the claim was left";
    EXPECT_EQ(StatusOfChild([] {}), 7) << "a handler of the library was left";
}

// What a child does with its copies of the handles harms nothing of its parent's.
TEST_F(GuestTest, AForkedChildLeavesTheScannerToItsParent) {
    ASSERT_EQ(setLogLevel(0), ResultSuccess);
    for (const ScannerLink link : {ScannerLink::Usb, ScannerLink::Serial}) {
        auto scanner = NewScanner(link);
        Handle handle;
        ASSERT_EQ(openScanner(handle, ConnectionOf(link).c_str()), ResultSuccess);
        const std::vector<std::function<void()>> endings = {[] {}, [&] { setCode39(handle, 1); },
                                                            [&] { closeScanner(handle); }, [&] { handle.Destroy(); },
                                                            [&] {
                                                                closeScanner(handle);
                                                                handle.Destroy();
                                                                setLogLevel(9);
                                                            }};
        for (size_t i = 0; i < endings.size(); ++i) {
            SCOPED_TRACE(i);
            ScanAndWait(*scanner, handle, 3, "before");
            scanner->ClearPackets();
            EXPECT_EQ(StatusOfChild(endings[i]), 7);
            EXPECT_TRUE(scanner->Packets().empty()) << "the child wrote to the device";
            ScanAndWait(*scanner, handle, 3, "after");
        }
        Handle other;
        EXPECT_EQ(openScanner(other, ConnectionOf(link).c_str()), ResultClaimed);
        EXPECT_EQ(closeScanner(handle), ResultSuccess);
    }
}

// A cancellation waits for the end of the call.
TEST_F(GuestTest, AThreadThatWaitsForABarcodeCanBeCancelled) {
    auto scanner = NewScanner(ScannerLink::Usb);
    Handle handle;
    ASSERT_EQ(openScanner(handle, ConnectionOf(ScannerLink::Usb).c_str()), ResultSuccess);
    Barcode taken;
    std::thread consumer([&] { taken = handle.Take(-1); });
    pthread_cancel(consumer.native_handle());
    scanner->Scan(3, "to the last");
    consumer.join();
    EXPECT_EQ(taken.text, "to the last");
}

}  // namespace
}  // namespace quillet::test
