#include "platform/named_mutex.h"

#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/thread.h"

namespace quillet::platform {
namespace {

// A name of this test's own, whose files are removed at the end.
class NamedMutexTest : public testing::Test {
  protected:
    ~NamedMutexTest() override {
        unlink(("/run/lock/quillet-claim-" + m_Name).c_str());
        unlink(("/tmp/quillet-claim-" + m_Name).c_str());
    }

    std::string m_Name =
        std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + std::to_string(getpid());
};

bool TakenByOtherThread(NamedMutex& mutex) {
    bool taken = false;
    StartThread("other", [&] { taken = mutex.Take(0) && mutex.Release(); }).join();
    return taken;
}

// Another process that takes the mutex, and holds it until it is killed.
class Holder {
  public:
    explicit Holder(const std::string& name) {
        EXPECT_EQ(pipe(m_Pipe), 0);
        m_Child = fork();
        if (m_Child == 0) {
            const auto mutex = NamedMutex::Create(name);
            const char answer = mutex && mutex->Take(0) ? 'y' : 'n';
            [[maybe_unused]] const ssize_t written = write(m_Pipe[1], &answer, 1);
            for (;;) {
                pause();
            }
        }
    }
    bool Holds() {
        char answer = 0;
        return read(m_Pipe[0], &answer, 1) == 1 && answer == 'y';
    }
    ~Holder() {
        kill(m_Child, SIGKILL);
        waitpid(m_Child, nullptr, 0);
        close(m_Pipe[0]);
        close(m_Pipe[1]);
    }

  private:
    int m_Pipe[2] = {};
    pid_t m_Child = 0;
};

TEST_F(NamedMutexTest, BelongsToOneObjectAndThread) {
    EXPECT_EQ(NamedMutex::OpenExisting(m_Name), nullptr);
    const auto mine = NamedMutex::Create(m_Name);
    const auto other = NamedMutex::OpenExisting(m_Name);
    ASSERT_TRUE(mine && other);
    EXPECT_FALSE(mine->Release()) << "nobody owns it yet";
    ASSERT_TRUE(mine->Take(0));
    EXPECT_FALSE(other->Take(0)) << "another object, same thread";
    EXPECT_FALSE(other->Release());
    EXPECT_FALSE(TakenByOtherThread(*mine)) << "same object, another thread";
    StartThread("other", [&] { EXPECT_FALSE(mine->Release()); }).join();
    EXPECT_FALSE(other->Take(0)) << "a refused release let it go";

    EXPECT_TRUE(mine->Take(0)) << "the owner may take it again";
    EXPECT_TRUE(mine->Release());
    EXPECT_FALSE(other->Take(0)) << "released once of twice";
    EXPECT_TRUE(mine->Release());
    EXPECT_FALSE(mine->Release());
    EXPECT_TRUE(other->Take(0));
}

TEST_F(NamedMutexTest, DestructionGivesItUpAlsoWithAForkedChildAlive) {
    auto mine = NamedMutex::Create(m_Name);
    ASSERT_TRUE(mine->Take(0));
    const pid_t child = fork();
    if (child == 0) {
        const bool released = mine->Release();
        mine.reset();  // the copy of the child must not free the parent's claim
        _exit(released || NamedMutex::Create(m_Name)->Take(0) ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    const pid_t bystander = fork();
    if (bystander == 0) {
        for (;;) {
            pause();
        }
    }
    mine.reset();
    EXPECT_TRUE(NamedMutex::Create(m_Name)->Take(0));
    kill(bystander, SIGKILL);
    waitpid(bystander, nullptr, 0);
}

TEST_F(NamedMutexTest, IsHeldByAnotherProcessUntilThatDies) {
    const auto mutex = NamedMutex::Create(m_Name);
    {
        Holder holder(m_Name);
        ASSERT_TRUE(holder.Holds());
        const int64_t start = SystemClock().NowNs();
        EXPECT_FALSE(mutex->Take(120));
        EXPECT_GE(SystemClock().NowNs() - start, 120000000);
        EXPECT_FALSE(mutex->Take(0));
    }
    EXPECT_TRUE(mutex->Take(0));
}

TEST_F(NamedMutexTest, AWaitEndsWithTheRelease) {
    const auto mine = NamedMutex::Create(m_Name);
    const auto other = NamedMutex::Create(m_Name);
    ASSERT_TRUE(mine->Take(0));
    bool taken = false;
    std::thread waiter = StartThread("waiter", [&] { taken = other->Take(60000); });
    SystemClock().SleepMs(30);
    EXPECT_TRUE(mine->Release());
    waiter.join();
    EXPECT_TRUE(taken);
}

TEST_F(NamedMutexTest, FileIsForAllUsersAndNotForLinks) {
    const mode_t before = umask(077);
    const auto mutex = NamedMutex::Create(m_Name);
    umask(before);
    std::string path = "/run/lock/quillet-claim-" + m_Name;
    struct stat found {};
    if (stat(path.c_str(), &found) != 0) {
        path = "/tmp/quillet-claim-" + m_Name;
        ASSERT_EQ(stat(path.c_str(), &found), 0);
    }
    EXPECT_EQ(found.st_mode & 0777U, 0666U);
    unlink(path.c_str());
    ASSERT_EQ(symlink("/dev/null", path.c_str()), 0);
    EXPECT_EQ(NamedMutex::Create(m_Name), nullptr);
    EXPECT_EQ(NamedMutex::Create("../" + m_Name), nullptr);
}

}  // namespace
}  // namespace quillet::platform
