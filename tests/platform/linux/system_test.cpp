// SPDX-License-Identifier: MIT
// Files that other users and processes reach too, and signals of the host.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/device_access.h"
#include "platform/event.h"
#include "platform/files.h"
#include "platform/linux/claim_folder.h"
#include "platform/named_mutex.h"
#include "platform/thread.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace platform;
namespace {

// Without the type; 0 if nothing is there.
unsigned PermissionsOf(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0;
}

std::string Chosen(const ClaimRoots& roots) {
    const UniqueFd folder = OpenClaimFolder(roots);
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder.Get())).string();
}

// A name of this test's own, whose file is removed at the end.
class ClaimFileTest : public testing::Test {
  protected:
    ~ClaimFileTest() override { unlink(m_Path.c_str()); }

    const std::string m_Name =
        std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + std::to_string(getpid());
    const std::string m_Path = Chosen(SystemRoots().claims) + "/quillet-claim-" + m_Name;
};

TEST_F(ClaimFileTest, DestructionGivesItUpAlsoWithAForkedChildAlive) {
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
        for (;;) pause();
    }
    mine.reset();
    EXPECT_TRUE(NamedMutex::Create(m_Name)->Take(0));
    kill(bystander, SIGKILL);
    waitpid(bystander, nullptr, 0);
}

TEST_F(ClaimFileTest, FileIsForAllUsersAndNotForLinks) {
    const mode_t before = umask(077);
    const auto mutex = NamedMutex::Create(m_Name);
    umask(before);
    EXPECT_EQ(PermissionsOf(m_Path), 0666U);
    unlink(m_Path.c_str());
    ASSERT_EQ(symlink("/dev/null", m_Path.c_str()), 0);
    EXPECT_EQ(NamedMutex::Create(m_Name), nullptr);
    EXPECT_EQ(NamedMutex::Create("../" + m_Name), nullptr);
}

TEST(ClaimFolder, IsTheFirstThatIsThereAndCanBeTrusted) {
    const TempTree tree;
    ClaimRoots roots{tree.Path("user"), tree.Path("lock"), tree.Path("temporary")};
    std::filesystem::create_directory(roots.temporary);
    EXPECT_EQ(Chosen(roots), roots.temporary);
    std::filesystem::create_directory(roots.locks);
    EXPECT_EQ(Chosen(roots), roots.locks);

    const std::string closed = roots.locks + "/quillet";
    std::filesystem::create_directory(closed);
    EXPECT_EQ(Chosen(roots), geteuid() == 0 ? closed : roots.locks);
    if (geteuid() == 0) {
        std::filesystem::rename(closed, closed + ".real");
        tree.Link("lock/quillet", closed + ".real");
        EXPECT_EQ(Chosen(roots), roots.locks) << "no real folder";
        std::filesystem::remove(closed);
        std::filesystem::rename(closed + ".real", closed);
        ASSERT_EQ(chown(closed.c_str(), 12345, 0), 0);
        EXPECT_EQ(Chosen(roots), roots.locks) << "somebody else's";
    }

    const std::string own = roots.runtime + "/quillet/locks";
    std::filesystem::create_directories(own);
    EXPECT_EQ(Chosen(roots), own);
    chmod((roots.runtime + "/quillet").c_str(), 0777);
    EXPECT_EQ(Chosen(roots), roots.locks) << "others can write to it";
}

TEST(Files, TheLogIsAPlainFileThatItsOwnerAloneWrites) {
    const TempTree tree;
    ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0600), 0);
    tree.Link("link", tree.Write("target", ""));
    for (const std::string& path : {tree.Path("pipe"), tree.Path("link"), std::string("/dev/null")}) {
        EXPECT_EQ(AppendFile::Open(path), nullptr) << path;
    }
    const mode_t before = umask(0);
    MakeDirectory(tree.Path("log"));
    EXPECT_NE(AppendFile::Open(tree.Path("log/file")), nullptr);
    umask(before);
    EXPECT_EQ(PermissionsOf(tree.Path("log")), 0755U);
    EXPECT_EQ(PermissionsOf(tree.Path("log/file")), 0644U);
}

TEST(Waits, OutliveSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);  // without SA_RESTART: system calls end with EINTR
    StopSignal stop;
    const auto event = Event::Create(Event::Kind::ManualReset);
    const pthread_t waiting = pthread_self();
    std::atomic<bool> done{false};
    Thread disturber = StartThread("disturber", [&] {
        while (!done) {
            pthread_kill(waiting, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    const int64_t start = SystemClock().NowNs();
    EXPECT_FALSE(stop.Wait(50));
    EXPECT_EQ(SystemClock().Wait(*event, 50), WaitResult::TimedOut);
    SystemClock().SleepMs(50);
    const int64_t tookMs = (SystemClock().NowNs() - start) / 1000000;
    EXPECT_GE(tookMs, 149);
    EXPECT_LT(tookMs, 5000);
    done = true;
    disturber.Join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Thread, BlocksSignalsAndBearsItsName) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    StartThread("a name of more than fifteen bytes", [&] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGPIPE, SIGCHLD, SIGUSR1, SIGSEGV, SIGRTMAX}) {
            EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
        }
        std::string name(16, '\0');
        prctl(PR_GET_NAME, name.data());
        EXPECT_STREQ(name.c_str(), "a name of more ");
    }).Join();
    EXPECT_EQ(CurrentThreadId(), static_cast<uint32_t>(getpid())) << "the first thread has the process's id";
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGINT), sigismember(&before, SIGINT)) << "the starter's mask was changed";
}

}  // namespace
}  // namespace quillet::test
