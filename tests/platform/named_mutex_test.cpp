// SPDX-License-Identifier: MIT
#include "platform/named_mutex.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/process.h"

namespace quillet::platform {
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
    test::ChildProcess holder(CHILD, {Name()});
    ASSERT_EQ(holder.ReadLine(), "taken");
    const int64_t start = SystemClock().NowNs();
    EXPECT_FALSE(mutex->Take(120));
    EXPECT_GE(SystemClock().NowNs() - start, 110000000);
    EXPECT_FALSE(mutex->Take(0));
    holder.Kill();
    if (test::kOnWindows) {
        EXPECT_FALSE(mutex->Take(0));
    }
    EXPECT_TRUE(mutex->Take(0));
    test::ChildProcess late(CHILD, {Name()});
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
}  // namespace quillet::platform
