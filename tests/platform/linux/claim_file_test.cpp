// SPDX-License-Identifier: MIT
// The files behind claims.
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/claim_folder.h"
#include "platform/named_mutex.h"
#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

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
    struct stat found {};
    ASSERT_EQ(stat(m_Path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777U, 0666U);
    unlink(m_Path.c_str());
    ASSERT_EQ(symlink("/dev/null", m_Path.c_str()), 0);
    EXPECT_EQ(NamedMutex::Create(m_Name), nullptr);
    EXPECT_EQ(NamedMutex::Create("../" + m_Name), nullptr);
}

TEST(ClaimFolder, IsTheFirstThatIsThereAndCanBeTrusted) {
    const test::TempTree tree;
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

}  // namespace
}  // namespace quillet::platform
