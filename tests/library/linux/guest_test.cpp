// SPDX-License-Identifier: MIT
// A guest in the host's process: what it leaves to child processes, and how it goes.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <pthread.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "library/library_copy.h"
#include "library/library_test.h"

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

std::set<int> InheritableDescriptors() {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename().string());
        const int flags = fcntl(descriptor, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) found.insert(descriptor);
    }
    return found;
}

TEST(GuestTest, DescriptorsAreNotInherited) {
    const std::set<int> before = InheritableDescriptors();
    auto usb = NewScanner(ScannerLink::Usb);
    auto serial = NewScanner(ScannerLink::Serial);
    Handle first;
    Handle second;
    ASSERT_EQ(Open(first, ScannerLink::Usb), ResultSuccess);
    ASSERT_EQ(Open(second, ScannerLink::Serial), ResultSuccess);
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

// The library may be unloaded with handles still open.
TEST(GuestTest, UnloadingWithOpenHandlesLeavesNothing) {
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
    auto usb = NewScanner(ScannerLink::Usb);
    auto serial = NewScanner(ScannerLink::Serial);
    const size_t threads = SettledThreadCount();
    const size_t descriptors = HandleCount();
    static std::vector<ScannerHandle> kept;  // never destroyed, and yet no leak of the test's
    LibraryCopy copy;
    EXPECT_EQ(copy.setLog(0), ResultSuccess);
    for (const ScannerLink link : {ScannerLink::Usb, ScannerLink::Serial}) {
        kept.push_back(copy.create());
        ASSERT_EQ(copy.open(kept.back(), ConnectionOf(link).c_str()), ResultSuccess);
    }
    copy.loaded.Unload();
    EXPECT_EQ(SettledThreadCount(), threads);
    // The ends of the virtual scanners' links notice a moment later.
    EXPECT_TRUE(Eventually([&] { return HandleCount() == descriptors; })) << HandleCount() - descriptors;
    Handle handle;
    EXPECT_EQ(Open(handle, ScannerLink::Serial), ResultSuccess) << "the claim was left";
    EXPECT_EQ(StatusOfChild([] {}), 7) << "a handler of the library was left";
}

// What a child does with its copies of the handles harms nothing of its parent's.
TEST(GuestTest, AForkedChildLeavesTheScannerToItsParent) {
    ASSERT_EQ(setLogLevel(0), ResultSuccess);
    for (const ScannerLink link : {ScannerLink::Usb, ScannerLink::Serial}) {
        auto scanner = NewScanner(link);
        Handle handle;
        ASSERT_EQ(Open(handle, link), ResultSuccess);
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
        EXPECT_EQ(Open(other, link), ResultClaimed);
        EXPECT_EQ(closeScanner(handle), ResultSuccess);
    }
}

// A cancellation waits for the end of the call.
TEST(GuestTest, AThreadThatWaitsForABarcodeCanBeCancelled) {
    auto scanner = NewScanner(ScannerLink::Usb);
    Handle handle;
    ASSERT_EQ(Open(handle, ScannerLink::Usb), ResultSuccess);
    Barcode taken;
    std::thread consumer([&] { taken = handle.Take(-1); });
    pthread_cancel(consumer.native_handle());
    scanner->Scan(3, "to the last");
    consumer.join();
    EXPECT_EQ(taken.text, "to the last");
}

}  // namespace
}  // namespace quillet::test
