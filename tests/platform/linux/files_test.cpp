// SPDX-License-Identifier: MIT
#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

TEST(Files, TheLogIsAPlainFileThatItsOwnerAloneWrites) {
    const test::TempTree tree;
    ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0600), 0);
    tree.Link("link", tree.Write("target", ""));
    for (const std::string& path : {tree.Path("pipe"), tree.Path("link"), std::string("/dev/null")}) {
        EXPECT_EQ(AppendFile::Open(path), nullptr) << path;
    }
    const mode_t before = umask(0);
    MakeDirectory(tree.Path("log"));
    EXPECT_NE(AppendFile::Open(tree.Path("log/file")), nullptr);
    umask(before);
    struct stat found {};
    EXPECT_EQ(stat(tree.Path("log").c_str(), &found) == 0 ? found.st_mode & 07777U : 0, 0755U);
    EXPECT_EQ(stat(tree.Path("log/file").c_str(), &found) == 0 ? found.st_mode & 07777U : 0, 0644U);
}

}  // namespace
}  // namespace quillet::platform
