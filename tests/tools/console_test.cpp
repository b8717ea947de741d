// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/console.h"

#include <gtest/gtest.h>

#include "support/temp_tree.h"

namespace quillet::test {
using namespace tools;
namespace {

using namespace std::string_literals;

TEST(Unescape, EscapesOfC) {
    const std::pair<std::string, std::string> good[] = {
        {"", ""},
        {"plain text", "plain text"},
        {R"(\n\r\t\a\b\f\v\\\'\"\?)", "\n\r\t\a\b\f\v\\'\"\?"},
        {R"(\0\1\12\123\377)", "\0\1\12\123\377"s},
        {R"(\0123)", "\0123"s},
        {R"(\x0\x1d\xFFF)", "\x00\x1d\xFF\x46"s},
        {"]C101\\x1d10", "]C101\x1d" + "10"s},
    };
    for (const auto& [text, bytes] : good) EXPECT_EQ(Unescape(text), bytes) << text;
    for (const char* text : {"\\", "a\\", "\\x", "\\xg", "\\x-1", "\\q", "\\8", "\\400", "\\ "}) {
        EXPECT_THROW(Unescape(text), std::invalid_argument) << text;
    }
}

class ConsoleTest : public ::testing::Test {
  protected:
    ConsoleTest() {
        ScannerOptions options;
        options.devicesDirectory = m_Tree.Path("devices");
        m_Scanner = std::make_unique<VirtualScanner>(options);
    }
    ~ConsoleTest() override { std::fclose(m_File); }

    // What one command writes.
    std::string Run(const std::string& line) {
        std::rewind(m_File);
        LineOutput output(m_File);
        Console console(*m_Scanner, output);
        m_GoesOn = console.Execute(line);
        const long size = std::ftell(m_File);
        std::string text(static_cast<size_t>(size), '\0');
        std::rewind(m_File);
        EXPECT_EQ(std::fread(text.data(), 1, text.size(), m_File), text.size());
        return text;
    }

    TempTree m_Tree;
    std::unique_ptr<VirtualScanner> m_Scanner;
    std::FILE* m_File = std::tmpfile();
    bool m_GoesOn = true;
};

TEST_F(ConsoleTest, WrongLinesAreTold) {
    for (const char* line : {"scann 1 x",      "scan",     "scan x y",   "scan 256 y",      "scan -1 y", "scan 1x y",
                             "scan 3 \\q",     "plain \\", "fault",      "fault crc",       "delay",     "delay 1s",
                             "delay 99999999", "silent",   "silent yes", "refuse 1",        "pieces -1", "interrupt x",
                             "plug now",       "quit now", "  scan",     "store 4041 0B 01"}) {
        const std::string answer = Run(line);
        EXPECT_TRUE(answer.starts_with("error ") && answer.find('\n') == answer.size() - 1) << line << ": " << answer;
        EXPECT_TRUE(m_GoesOn);
    }
    EXPECT_EQ(Run(""), "");
    EXPECT_EQ(Run("   "), "");
    EXPECT_EQ(Run("# a comment"), "");
    EXPECT_FALSE(m_Scanner->IsPlugged());
    EXPECT_TRUE(m_Scanner->Settings().empty());
}

TEST_F(ConsoleTest, CommandsReachTheScanner) {
    EXPECT_EQ(Run("scan 11 4006381333931"), "lost type=11 length=13 reason=unplugged\n");
    EXPECT_EQ(Run("plug"), "plugged path=" + m_Tree.Path("devices/virtual-usb-1234567890.socket\n"));
    EXPECT_EQ(Run("scan 11 4006381333931"), "lost type=11 length=13 reason=no-host\n");
    EXPECT_EQ(Run("plain a\\0b"), "lost type=- length=3 reason=no-host\n");
    EXPECT_EQ(Run("unplug"), "unplugged\n");
    EXPECT_FALSE(m_Scanner->IsPlugged());
    EXPECT_EQ(Run("store 40 0B 01") + Run("store 44  19"), "ok store\nok store\n");
    EXPECT_EQ(Run("settings"),
              "setting opcode=40 number=0B value=01\nsetting opcode=44 number= value=19\nsettings count=2\n");
    EXPECT_NE(Run("help").find("interrupt"), std::string::npos);
    EXPECT_TRUE(m_GoesOn);
    EXPECT_EQ(Run("quit"), "ok quit\n");
    EXPECT_FALSE(m_GoesOn);
}

}  // namespace
}  // namespace quillet::test
