// SPDX-License-Identifier: MIT
// What each system gives beside devices.
#include <array>
#include <atomic>
#include <ctime>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/clock.h"
#include "platform/code_page.h"
#include "platform/device_access.h"
#include "platform/event.h"
#include "platform/files.h"
#include "platform/named_mutex.h"
#include "platform/thread.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace platform;
namespace {

// Claims outlive processes on some systems, and so would a name made of this one's number.
std::string Name() {
    static const std::string start = "quillet-test-" + std::to_string(std::random_device{}()) + "-";
    return start + testing::UnitTest::GetInstance()->current_test_info()->name();
}

bool TakenByOtherThread(NamedMutex& mutex) {
    bool taken = false;
    StartThread("other", [&] { taken = mutex.Take(0) && mutex.Release(); }).Join();
    return taken;
}

TEST(Files, TakeBothSeparators) {
    const TempTree tree;
    MakeDirectory(tree.Path("log\\"));
    MakeDirectory(tree.Path("log\\deep"));
    EXPECT_TRUE(std::filesystem::is_directory(tree.Path("log/deep")));
    EXPECT_TRUE(IsDirectory(tree.Path("log\\deep")));
    EXPECT_FALSE(IsDirectory(""));
    EXPECT_FALSE(IsDirectory(tree.Path("log\\missing")));
    MakeDirectory(tree.Path("no\\such\\parent"));
    EXPECT_FALSE(IsDirectory(tree.Path("no")));
    EXPECT_FALSE(IsDirectory(tree.Write("plain", "")));
}

TEST(AppendFile, ContinuesAndSharesAFile) {
    const TempTree tree;
    const std::string path = tree.Write("log/a.txt", "old\n");
    const auto first = AppendFile::Open(tree.Path("log\\a.txt"));
    const auto second = AppendFile::Open(path);
    ASSERT_TRUE(first && second);
    first->Write("one\n");
    second->Write("two\n");
    first->Write(std::string_view("a\0b\n", 4));
    const std::string withZero("a\0b", 3);
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_EQ(content.str(), "old\none" + kLineEnd + "two" + kLineEnd + withZero + kLineEnd);
    EXPECT_EQ(AppendFile::Open(tree.Path("missing/a.txt")), nullptr);
    EXPECT_EQ(AppendFile::Open(tree.Path("log")), nullptr);
}

TEST(ExecutablePath, IsThisProgram) {
    const std::filesystem::path path = ExecutablePath();
    EXPECT_TRUE(path.is_absolute() && std::filesystem::is_regular_file(path)) << path;
    EXPECT_EQ(path.stem(), "platform_test");
}

TEST(CodePage, ConvertsBothWaysAndGivesNothingOnAnError) {
    const std::string utf8 = "a\xE4\xB8\xAD\xE6\x96\x87z";
    const std::string gbk = "a\xD6\xD0\xCE\xC4z";
    EXPECT_EQ(Utf8ToCp936(utf8), gbk);
    EXPECT_EQ(Cp936ToUtf8(gbk), utf8);
    std::string longGbk;
    std::string longUtf8;
    for (int i = 0; i < 1000; ++i) {
        longGbk += gbk;
        longUtf8 += utf8;
    }
    EXPECT_EQ(Cp936ToUtf8(longGbk), longUtf8);
    EXPECT_EQ(Cp936ToUtf8(""), "");
    EXPECT_EQ(Cp936ToUtf8("abc\xD6"), "") << "a character cut in half";
    EXPECT_EQ(Utf8ToCp936("abc\xFF"), "");
    EXPECT_EQ(Utf8ToCp936("\xF0\x9F\x98\x80"), "") << "not in the code page";
}

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

TEST(NamedMutex, BelongsToOneObjectAndThread) {
    EXPECT_EQ(NamedMutex::OpenExisting(Name()), nullptr);
    const auto mine = NamedMutex::Create(Name());
    const auto other = NamedMutex::OpenExisting(Name());
    ASSERT_TRUE(mine && other);
    EXPECT_FALSE(mine->Release()) << "nobody owns it yet";
    ASSERT_TRUE(mine->Take(0));
    EXPECT_FALSE(other->Take(0)) << "another object, same thread";
    EXPECT_FALSE(other->Release());
    EXPECT_FALSE(TakenByOtherThread(*mine)) << "same object, another thread";
    StartThread("other", [&] { EXPECT_FALSE(mine->Release()); }).Join();
    EXPECT_FALSE(other->Take(0)) << "a refused release let it go";

    EXPECT_TRUE(mine->Take(0)) << "the owner may take it again";
    EXPECT_TRUE(mine->Release());
    EXPECT_FALSE(other->Take(0)) << "released once of twice";
    EXPECT_TRUE(mine->Release());
    EXPECT_FALSE(mine->Release());
    EXPECT_TRUE(other->Take(0));
}

// Where the system tells that the owner has died, the try that is told so is refused, and frees it for the next.
TEST(NamedMutex, IsHeldByAnotherProcessUntilThatDies) {
    const auto mutex = NamedMutex::Create(Name());
    ChildProcess holder(CHILD, {Name()});
    ASSERT_EQ(holder.ReadLine(), "taken");
    const int64_t start = SystemClock().NowNs();
    EXPECT_FALSE(mutex->Take(120));
    EXPECT_GE(SystemClock().NowNs() - start, 110000000);
    EXPECT_FALSE(mutex->Take(0));
    holder.Kill();
    if (kOnWindows) {
        EXPECT_FALSE(mutex->Take(0));
    }
    EXPECT_TRUE(mutex->Take(0));
    ChildProcess late(CHILD, {Name()});
    EXPECT_EQ(late.ReadLine(), "refused");
}

TEST(NamedMutex, DestructionGivesItUp) {
    const auto other = NamedMutex::Create(Name());
    auto mine = NamedMutex::Create(Name());
    ASSERT_TRUE(mine->Take(0) && mine->Take(0));
    mine.reset();
    EXPECT_TRUE(other->Take(0));
    EXPECT_TRUE(other->Release());

    // Destroyed elsewhere, it is free for the thread that had taken it, and for all once that has released it.
    mine = NamedMutex::Create(Name());
    ASSERT_TRUE(mine->Take(0) && mine->Take(0));
    StartThread("other", [&] { mine.reset(); }).Join();
    EXPECT_TRUE(other->Take(0));
    EXPECT_TRUE(other->Release());
    EXPECT_TRUE(TakenByOtherThread(*other));
}

TEST(NamedMutex, AWaitEndsWithTheRelease) {
    const auto mine = NamedMutex::Create(Name());
    const auto other = NamedMutex::Create(Name());
    ASSERT_TRUE(mine->Take(0));
    bool taken = false;
    Thread waiter = StartThread("waiter", [&] { taken = other->Take(60000); });
    SystemClock().SleepMs(30);
    EXPECT_TRUE(mine->Release());
    waiter.Join();
    EXPECT_TRUE(taken);
}

}  // namespace
}  // namespace quillet::test
