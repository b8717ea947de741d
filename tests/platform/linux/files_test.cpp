#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

TEST(Files, APipeIsNoLog) {
    const test::TempTree tree;
    ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(AppendFile::Open(tree.Path("pipe")), nullptr);
}

}  // namespace
}  // namespace quillet::platform
