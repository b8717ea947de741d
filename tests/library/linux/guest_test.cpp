// A guest in the host's process: what it leaves to child processes, and how it goes.
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "library/library_test.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quillet::tests {
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

// The library may be unloaded with a handle still open: no thread of it may run on.
TEST_F(GuestTest, UnloadingWithAnOpenHandleEndsEveryThread) {
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
    const size_t threads = test::SettledThreadCount();
    // A copy, since the library that this test links is never unloaded.
    const test::TempTree tree;
    const std::string copy = tree.Path("libQuilletCopy.so");
    std::filesystem::copy_file(test::LoadedLibrary::PathOf(reinterpret_cast<void*>(&createScanner)), copy);
    test::LoadedLibrary library(copy);
    static ScannerHandle kept = nullptr;  // never destroyed, and yet no leak of the test's
    kept = library.Get<ScannerHandle (*)()>("createScanner")();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(test::ThreadCount(), threads + 1);
    library.Unload();
    EXPECT_EQ(test::SettledThreadCount(), threads);
}

}  // namespace
}  // namespace quillet::tests
