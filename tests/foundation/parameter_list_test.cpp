// SPDX-License-Identifier: MIT
#include "foundation/parameter_list.h"

#include <gtest/gtest.h>
#include <locale>
#include <string>
#include <vector>

#include "foundation/errors.h"
#include "support/log_reader.h"

namespace quillet {
namespace {

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
    test::LogReader log;
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

}  // namespace
}  // namespace quillet
