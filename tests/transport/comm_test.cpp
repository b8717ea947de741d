// SPDX-License-Identifier: MIT
#include "transport/comm.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet {
namespace {

using namespace std::string_literals;
using test::Eventually;
using test::FakeDevice;
using test::FakeRead;
using test::HasLine;
using test::Lines;
using test::LinkFixture;
using Kind = FakeRead::Kind;
using Outcome = platform::WriteResult::Outcome;

// Every outcome of a read, behind one that arrived and one that was empty. Whatever ended the thread, the
// link is a shell until it is reset, and then works again.
TEST(ReadThread, EndsAsItsReadEnds) {
    struct Case {
        Kind kind;
        uint32_t error;
        bool tellsOwner;
        const char* line;
    };
    const Case cases[] = {
        {Kind::FailedAtOnce, 5, false, "Error while reading data (Code:5)"},
        {Kind::FailedPending, 31, true, "Error while waiting for data (Code:31)"},
        {Kind::WaitFailed, 6, false, "Error waiting on event (Code:6)"},
    };
    for (const Case& row : cases) {
        LinkFixture fixture;
        test::LogReader log;
        FakeDevice& device = fixture.access.Port(3);
        device.Deliver("A\0\r"s);
        device.Read({Kind::DoneAtOnce, "", 0});
        device.Read({row.kind, "", row.error});
        const auto link = fixture.Serial(3);
        link->EnableDevice();
        const test::Recorder::Blocks before = {{kGoodRead, "A\0\r"s}, {kGoodRead, ""}};
        ASSERT_TRUE(Eventually([&] { return device.ReadsUsedUp(); })) << row.line;
        link->EnableDevice();
        EXPECT_TRUE(link->IsEnabled());
        EXPECT_EQ(device.Opens(), 1) << row.line;
        link->Reset();
        auto expected = before;
        if (row.tellsOwner) expected.emplace_back(kFailedRead, "");
        EXPECT_EQ(fixture.owner.AwaitBlocks(expected.size()), expected) << row.line;
        EXPECT_EQ(device.OpenNow(), 0);

        device.Deliver("again");
        link->EnableDevice();
        EXPECT_EQ(fixture.owner.AwaitBlocks(expected.size() + 1).back().second, "again") << row.line;
        const Lines lines = log.Take();
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Ascii): A<NUL><CR>")) << row.line;
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Hex): 41 00 0D"));
        EXPECT_FALSE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Hex): "));
        EXPECT_TRUE(HasLine(lines, std::string("LLCritical\t:Error: RunReadThread: ") + row.line));
    }
}

TEST(ReadThread, EndsAsItsOwnerAnswers) {
    struct Case {
        std::function<int32_t()> answer;
        const char* line;
    };
    const Case cases[] = {
        {[] { return kEndReading; }, "LLInfo\t\t:Auto disable is true so will exit read thread"},
        {[]() -> int32_t { throw QuilletError("told", 3); }, "LLCritical\t:Error: RunReadThread: told"},
        {[]() -> int32_t { throw std::runtime_error("other"); },
         "LLCritical\t:Error: read thread ended by an exception: other"},
        {[]() -> int32_t { throw 1; }, "LLCritical\t:Error: read thread ended by an unknown exception"},
    };
    for (const Case& row : cases) {
        LinkFixture fixture;
        test::LogReader log;
        fixture.owner.answer = row.answer;
        FakeDevice& device = fixture.access.Port(3);
        device.Deliver("first");
        device.Deliver("second");
        const auto link = fixture.Serial(3);
        link->EnableDevice();
        ASSERT_EQ(fixture.owner.AwaitBlocks(1).size(), 1u);
        link->DisableDevice();
        EXPECT_EQ(fixture.owner.AwaitBlocks(0).size(), 1u) << row.line;
        EXPECT_FALSE(device.ReadsUsedUp());
        EXPECT_TRUE(HasLine(log.Take(), row.line)) << row.line;
    }
}

TEST(Write, ShowsEachOutcomeAsTold) {
    LinkFixture fixture;
    test::LogReader log;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Serial(3);
    link->WriteString("no device is open");
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | WrittenBytes: 0"));
    link->EnableDevice();

    link->WriteString("");
    EXPECT_TRUE(device.Writes().empty());
    device.EndWrites(Outcome::FailedAtOnce, 5);
    EXPECT_NO_THROW(link->WriteString("abc"));
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | WrittenBytes: 3"));
    device.EndWrites(Outcome::FailedPending, 32);
    try {
        link->WriteString("abc");
        ADD_FAILURE() << "a write that failed under way was not reported";
    } catch (const LinkError& error) {
        EXPECT_STREQ(error.what(), "Error writing data (Code:32).");
        EXPECT_EQ(error.Code(), 0u);
    }
}

TEST(Write, LogsTheBytesOfShortWritesAlone) {
    LinkFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Serial(3);
    link->EnableDevice();
    test::LogReader log;
    for (const size_t size : {size_t{127}, size_t{128}}) {
        const std::string bytes(size, 'x');
        link->WriteString(bytes);
        EXPECT_EQ(device.Writes().back(), bytes);
        const Lines lines = log.Take();
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    | Length: " + std::to_string(size)));
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    | WrittenBytes: " + std::to_string(size)));
        EXPECT_EQ(HasLine(lines, "LLInfo\t\t:    | Data(Ascii): " + bytes), size < 128);
    }
}

}  // namespace
}  // namespace quillet
