// SPDX-License-Identifier: MIT
#include "platform/files.h"

#include <gtest/gtest.h>
#include <sstream>

#include "platform/code_page.h"
#include "support/line_end.h"
#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

using test::kLineEnd;
using test::TempTree;

std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
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
    EXPECT_EQ(ContentOf(path), "old\none" + kLineEnd + "two" + kLineEnd + withZero + kLineEnd);
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

}  // namespace
}  // namespace quillet::platform
