// SPDX-License-Identifier: MIT
// Texts: conversions, formats, paths and the connection string.
#include "foundation/text.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/errors.h"
#include "foundation/format.h"
#include "foundation/parameter_list.h"
#include "foundation/paths.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

using namespace std::string_literals;

TEST(Text, NumbersInDecimalAndHexadecimal) {
    EXPECT_EQ(NumToString(std::numeric_limits<int16_t>::min()), "-32768");
    EXPECT_EQ(NumToString(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(NumToString(true), "1");
    EXPECT_EQ(NumToString('\0'), "\0"s);
    EXPECT_EQ(NumToHexText(uint64_t{0}), "00");
    EXPECT_EQ(NumToHexText(uint64_t{0x1ab}), "1ab");
    EXPECT_EQ(NumToHexText(int64_t{-1}), "ffffffffffffffff");
    EXPECT_EQ(NumToHexText("x"s), "0x");
    EXPECT_EQ(NumToHexText(""s), "00");
}

TEST(Text, FormatFillsInByItsOwnRules) {
    EXPECT_EQ(Format("%s_%s", "a", "b"), "a_b");
    EXPECT_EQ(Format("COM%d,%d,%c,%s,%d,%c", 7, 9600, 'N', "8", 1, 'x'), "COM7,9600,N,8,1,x");
    EXPECT_EQ(Format("%d", "x"), "x");
    EXPECT_EQ(Format("%s", 7), "7");
    EXPECT_EQ(Format("", 7), "");
    EXPECT_EQ(Format("%ld|%lf|%ll|%lu", 1, 2, 3, 4), "1|2|3|4u");
    EXPECT_EQ(Format("%x %x %x", 10, "g", -1), "0a 0g ffffffff");
    EXPECT_EQ(Format("%5d %d", 7, 8), "%5d %d") << "the first % stops every later value";
    EXPECT_EQ(Format("%%d", 7), "7d");
    EXPECT_EQ(Format("%s", "%d", 5), "5") << "a value's own % is seen by the next";
    EXPECT_EQ(Format("100%", 7), "100%");
    EXPECT_EQ(Format("%d %d", 1), "1 %d");
    EXPECT_EQ(Format("%c", '\0'), "\0"s);
}

TEST(Text, SplitAndReplace) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(Split("", ','), Pieces{});
    EXPECT_EQ(Split(",", ','), (Pieces{"", ""}));
    EXPECT_EQ(Split("a,,b,", ','), (Pieces{"a", "", "b", ""}));
    EXPECT_EQ(ReplaceAll("aabb", "ab", ""), "ab") << "what closes up across the place isn't looked at again";
    EXPECT_EQ(ReplaceAll("abb", "ab", "a"), "a") << "what begins with the replacement is";
    EXPECT_EQ(ReplaceAll("C:\\a\\b", "\\", "/"), "C:/a/b");
    EXPECT_EQ(ReplaceAll("a", "", "b"), "a");
}

TEST(Text, HexTextToBytes) {
    EXPECT_EQ(ParseHexText("02 0A,FF"), "\x02\x0a\xff");
    EXPECT_EQ(ParseHexText("0x020xaa|ff;\r\n0"), "\x02\xaa\xff");
    EXPECT_EQ(ParseHexText("abc"), "\xab");
    EXPECT_EQ(ParseHexText("a"), "");
    EXPECT_EQ(ParseHexText("0X12"), "\x21\x12") << "only a lower-case 0x is a separator";
    EXPECT_EQ(ParseHexText("0 x12"), "\x12") << "a blank inside 0x goes first";
    EXPECT_EQ(ParseHexText("00xx"), "\x21") << "what closes up is no separator any more";
    EXPECT_EQ(ParseHexText("0\rx"), "\x21") << "nor what a line end has torn";
    EXPECT_EQ(ParseHexText("\xC0g"), std::string(1, static_cast<char>((0xC0 - 87) * 16 + 'g' - 87)));
}

TEST(Text, BytesForTheLog) {
    EXPECT_EQ(ToHexText(""), "");
    EXPECT_EQ(ToHexText("\x02"), "02");
    EXPECT_EQ(ToHexText("\x02\x0a\xff"), "02 0A FF");
    EXPECT_EQ(ToAsciiText("A\r\n\0\x07\x19\x1f\x7f"s), "A<CR><LF><NUL><BEl><EN><US><DEL>");
    EXPECT_EQ(ToAsciiText("\x80\xef\xf0\xf9\xfa\xff"), "\x80\xef<F0><F9>\xfa\xff");
}

TEST(Text, CaseIsAsciiOnly) {
    EXPECT_EQ(ToLowerAscii("AZ[@\xC4"), "az[@\xC4");
    EXPECT_EQ(ToUpperAscii("az{`\xE4"), "AZ{`\xE4");
}

TEST(Text, BinaryConversionKeepsEveryByte) {
    EXPECT_EQ(EncodeBinaryText("\xa5", BinaryConversion::Nibble), ":5");
    EXPECT_EQ(EncodeBinaryText("\x07", BinaryConversion::Decimal), "007");
    EXPECT_EQ(DecodeBinaryText("AB", BinaryConversion::Nibble), "\x12") << "low four bits of any character";
    EXPECT_EQ(DecodeBinaryText("300", BinaryConversion::Decimal), "\x2c");
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    for (auto mode : {BinaryConversion::None, BinaryConversion::Nibble, BinaryConversion::Decimal}) {
        EXPECT_EQ(DecodeBinaryText(EncodeBinaryText(bytes, mode), mode), bytes);
    }
    EXPECT_THROW(DecodeBinaryText("123", BinaryConversion::Nibble), std::out_of_range);
    EXPECT_THROW(DecodeBinaryText("0071", BinaryConversion::Decimal), std::out_of_range);
}

TEST(Paths, CutsAtBothSeparators) {
    EXPECT_EQ(GetDirectoryOf("/opt/app/bin"), "/opt/app/");
    EXPECT_EQ(GetDirectoryOf("C:/a\\b"), "C:/a\\");
    EXPECT_EQ(GetDirectoryOf("bare"), "bare");
    EXPECT_EQ(GetDirectoryOf("/bin"), "/bin") << "a separator in front cuts nothing";
    EXPECT_EQ(GetDirectoryOf("/"), "");
    EXPECT_EQ(GetDirectoryOf("\\"), "");
    EXPECT_EQ(GetFileTitle("C:/a.b/c"), "c");
    EXPECT_EQ(GetFileTitle("c.tar.gz"), "c.tar");
    EXPECT_EQ(GetFileTitle("a\\.rc"), "");
    const std::filesystem::path executable = GetExecutablePath();
    const std::string found = GetExecutableDirectory() + "/" + GetExecutableTitle();
    EXPECT_EQ(executable.generic_string(), found + executable.extension().generic_string());
}

// What a German desktop sets: a decimal comma and a point between thousands.
class CommaPunctuation : public std::numpunct<char> {
  protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(ParameterList, FirstMatchWinsAndNothingIsTrimmed) {
    ParameterList list;
    list.Parse("A=1,B=X,a=2, c =3,=empty key,d=");
    EXPECT_EQ(list.GetString("a", "-"), "1");
    EXPECT_EQ(list.GetString("A", "-"), "-");
    EXPECT_EQ(list.GetString("b", "-"), "x");
    EXPECT_EQ(list.GetString("c", "-"), "-");
    EXPECT_EQ(list.GetString(" c ", "-"), "3");
    EXPECT_EQ(list.GetString("", "-"), "empty key");
    EXPECT_EQ(list.GetString("d", "-"), "");

    const ParameterList copy = list;
    EXPECT_TRUE(list.Remove("a"));
    EXPECT_EQ(list.GetString("a", "-"), "2");
    EXPECT_TRUE(list.Remove("none"));
    list.Add("a", "KEPT");
    EXPECT_TRUE(list.Remove("a"));
    EXPECT_EQ(list.GetString("a", "-"), "KEPT");
    list.Parse("b=later,e=5");
    EXPECT_EQ(list.GetString("b", "-"), "x") << "an earlier text wins";
    EXPECT_EQ(list.GetString("e", "-"), "5");
    list.Clear();
    EXPECT_EQ(list.Find("a").key, "");
    EXPECT_EQ(copy.GetString("a", "-"), "1");
}

TEST(ParameterList, LogsAndSkipsWhatIsNoPair) {
    LogReader log;
    ParameterList list;
    list.Parse("");
    EXPECT_TRUE(log.Take().empty());
    list.Parse("a=1,,B=C=D,word,b=2,");
    const std::vector<std::string> errors = {"LLError\t\t:error parameter : ", "LLError\t\t:error parameter : b=c=d",
                                             "LLError\t\t:error parameter : word", "LLError\t\t:error parameter : "};
    EXPECT_EQ(log.Take(), errors);
    EXPECT_EQ(list.GetString("a", "-") + list.GetString("b", "-"), "12");
}

TEST(ParameterList, ReadsNumbersAsTheClassicLocaleDoes) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
    const struct {
        const char* value;
        double number;
    } kReadable[] = {{"115200", 115200},   {"3abc", 3}, {"1e3", 1000},      {" \t\r\n+9.9,", 9.9},
                     {"-.5", -0.5},        {"7.", 7},   {"9600even", 9600}, {"1e+", 1},
                     {"1.234.567", 1.234}, {"0x10", 0}, {"1E2", 100},       {"00009600", 9600}};
    const char* const kUnreadable[] = {"", "fast", " ", "+", "-.", "e3", "inf", "nan", "--1", "1e999"};
    for (const auto& row : kReadable) {
        ParameterList list;
        list.Add("n", row.value);
        EXPECT_EQ(list.GetNumber("n", -7), row.number) << row.value;
    }
    for (const char* value : kUnreadable) {
        ParameterList list;
        list.Add("n", value);
        EXPECT_THROW(list.GetNumber("n", -7), StringError) << value;
        EXPECT_EQ(list.GetNumber("m", -7), -7);
    }
    std::locale::global(before);
}

// Bytes of any kind, mostly those that mean something, with none behind them that could be read in silence.
TEST(AnyText, GoesThroughEachConversion) {
    const std::string_view meaningful = "0x19aF,,,;|= \r\n%%%dlfsxc.+-e";
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; ++i) {
        std::vector<char> bytes(random() % 24);
        for (char& byte : bytes) {
            const auto number = random();
            byte = number % 5 == 0 ? static_cast<char>(number >> 8) : meaningful[(number >> 8) % meaningful.size()];
        }
        const std::string_view text(bytes.data(), bytes.size());
        SCOPED_TRACE(ToHexText(text));
        ASSERT_LE(ParseHexText(text).size(), text.size() / 2);
        ASSERT_EQ(ParseHexText(ToHexText(text)), text);
        ASSERT_GE(ToAsciiText(text).size(), text.size());
        ASSERT_TRUE(FindPlaceholder(text).size != 0 || Format(text, 12345) == text);
        ASSERT_LE(Format(text, text, -1, 'c', text).size(), 3 * text.size() + 20);

        ParameterList list;
        list.Parse(text);
        std::string joined;
        for (const std::string& piece : Split(text, ',')) {
            joined += piece + ',';
            if (std::count(piece.begin(), piece.end(), '=') != 1) continue;
            const std::string key = ToLowerAscii(piece.substr(0, piece.find('=')));
            ASSERT_EQ(list.Find(key).key, key);
            try {
                list.GetNumber(key, 0);
                ASSERT_NE(list.GetString(key, "").find_first_of("0123456789"), std::string::npos);
            } catch (const StringError&) {  // no number there
            }
        }
        ASSERT_EQ(joined, text.empty() ? "" : std::string(text) + ',');
    }
}

}  // namespace
}  // namespace quillet::test
