// SPDX-License-Identifier: MIT
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include "foundation/text.h"
#include "service/service_fixture.h"

namespace quillet::test {
namespace {

const std::string kVersionReply = Frame(0x7E, 0x80, std::string("\0ABC", 4));

// An exchange on its own; what the plan sends is the scanner's answer.
class ExchangeTest : public ::testing::Test, BarcodeAssembly::Sink {
  protected:
    ExchangeTest() { m_Status.Set(StatusEnabled); }
    void OnBarcode(std::string text, int32_t) override { m_Barcode = std::move(text); }
    void OnBarcodePart() override {}
    void Answer(const std::string& block) { m_Exchange.TakeBlock(block, LinkVirtualSerial); }
    ExchangeOutcome Run(std::function<void()> send, uint32_t timeoutMs = platform::kNoLimitMs) {
        ExchangePlan plan;
        plan.send = std::move(send);
        plan.timeoutMs = timeoutMs;
        return m_Exchange.Run(plan);
    }

    FastClock m_Clock{20};
    StatusBits m_Status;
    std::string m_Barcode;
    BarcodeAssembly m_Barcodes{*this};
    Exchange m_Exchange{m_Status, m_Barcodes};
};

// Neither a late reply nor parts from before it are joined to what comes next.
TEST_F(ExchangeTest, LeavesNothingBehind) {
    m_Barcodes.TakeBlock(Frame(0xEE, 3, std::string("\0a", 2)), LinkVirtualSerial);
    EXPECT_EQ(Run([] {}, 1).result, ResultTimeout);
    Answer(kVersionReply);
    EXPECT_EQ(Run([] {}, 1).result, ResultTimeout);
    EXPECT_EQ(Run([&] { Answer(Frame(0x7E, 0x80, std::string("\0D", 2))); }).reply, "D");
    m_Barcodes.TakeBlock(Frame(0xEE, 3, kLast + "b"), LinkVirtualSerial);
    EXPECT_EQ(m_Barcode, "b");
}

TEST_F(ExchangeTest, AReplyOfMoreThanAMebibyteIsNone) {
    const int64_t start = m_Clock.NowNs();
    const ExchangeOutcome outcome = Run(
        [&] {
            Answer(kVersionReply);
            for (int i = 0; i < 17; ++i) Answer(std::string(64 << 10, 'x'));
        },
        2000);
    EXPECT_EQ(outcome.result, ResultTimeout);
    EXPECT_GE(m_Clock.NowNs() - start, 2'000'000'000);
}

// The handle is being closed or destroyed, or the scanner has gone, while an exchange without a limit begins or runs.
TEST_F(ExchangeTest, NoneWaitsThatNothingWouldEnd) {
    std::thread closing;
    EXPECT_EQ(Run([&] { closing = std::thread([&] { m_Exchange.Close(); }); }).result, ResultTimeout);
    closing.join();
    EXPECT_EQ(Run([] { FAIL(); }).result, ResultIllegal);
    m_Exchange.Open();
    EXPECT_EQ(Run([&] { m_Exchange.BreakUnlimited(); }).result, ResultTimeout);
    const auto brokenAndAnswered = [&] {
        m_Exchange.BreakUnlimited();
        Answer(kVersionReply);
    };
    EXPECT_EQ(Run(brokenAndAnswered, 5000).result, ResultSuccess);  // has a limit
    m_Exchange.ForgetReplies();
    EXPECT_EQ(Run([&] { m_Exchange.CloseForGood(); }).result, ResultTimeout);
    EXPECT_TRUE(m_Exchange.AwaitAnyReply(0));
    m_Exchange.Open();
    EXPECT_EQ(Run([] { FAIL(); }).result, ResultIllegal);
}

// Exchanges of the service: replies come through the link's own read thread.
using DirectIOTest = ServiceTest;

TEST_F(DirectIOTest, CommandsOfTheDeviceModelBecomePackets) {
    const struct {
        int32_t command;
        int32_t word;
        const char* text;
        ResultCode result;
        const char* packet;  // without its length and checksum
        std::string answer;
        std::string reply;
    } cases[] = {
        {0x4A, 0, "41", ResultIllegal, "", "", ""},
        {0x40, 0, "0B 01", ResultSuccess, "40 04 00 0B 01", "", ""},  // never answered
        {0x40, 0, "01|4142", ResultSuccess, "40 04 01 41 42", "", ""},
        {0x40, 0, "08|41", ResultSuccess, "40 04 08 41", "", ""},
        {0x40, 0, "02|41", ResultIllegal, "", "", ""},
        {0x40, 0, "01|41|42", ResultIllegal, "", "", ""},
        {0x140, 1, "4142", ResultSuccess, "40 04 00 34 31 34 32", "", ""},  // the text's own bytes
        {0x40, 0, "", ResultSuccess, "40 04 00 00", "", ""},
        {0x7E, 0, "00", ResultTimeout, "7E 04 00 00", "", ""},
        {0x7E, 0, "00", ResultTimeout, "7E 04 00 00", "unparsable", ""},
        {0x7E, 0, "00", ResultSuccess, "7E 04 00 00", kVersionReply, "ABC"},
        // An error status has no payload, here.
        {0x7E, 0, "00", ResultSuccess, "7E 04 00 00", Frame(0x7E, 1, std::string("\0ABC", 4)), ""},
    };
    OpenSerial();
    for (const auto& row : cases) {
        Device()->writes.clear();
        Device()->answer = row.answer;
        m_Clock.patient = row.result == ResultSuccess;
        uint8_t buffer[32] = {};
        int32_t length = 0;
        EXPECT_EQ(m_Scanner.DirectIO(row.command, &row.word, row.text, {buffer, sizeof buffer, &length}), row.result)
            << row.text;
        const std::vector<std::string> sent = Device()->writes;
        EXPECT_EQ(sent.empty() ? "" : ToHexText(sent[0].substr(1, sent[0].size() - 2)), row.packet) << row.text;
        EXPECT_EQ(std::string(buffer, buffer + length), row.reply);
    }
    EXPECT_EQ(m_Clock.longestWaitMs, 18'000u);
}

TEST_F(DirectIOTest, StatisticsWaitForAReplyOfAnotherExchange) {
    OpenSerial();
    std::string names = "GoodScanCount,HoursPoweredCount,Nonsense";
    EXPECT_EQ(m_Scanner.RetrieveStatistics(&names), ResultTimeout);
    EXPECT_EQ(m_Scanner.m_StatisticsText, "");
    m_Clock.patient = true;
    auto waiting = std::async(std::launch::async, [&] { return m_Scanner.RetrieveStatistics(&names); });
    ASSERT_TRUE(Eventually([&] { return m_Scanner.m_Status.Has(StatusStatistics); }));
    Device()->answer = kVersionReply;
    EXPECT_EQ(m_Scanner.ExchangeBytes("x", platform::kNoLimitMs).result, ResultSuccess);
    EXPECT_EQ(waiting.get(), ResultIllegal);  // the text is made, a name was unknown
    const std::string& xml = m_Scanner.m_StatisticsText;
    const size_t hours = xml.find("<Name>HoursPoweredCount</Name><Value>0</Value>");
    const size_t scans = xml.find("<Name>GoodScanCount</Name><Value>0</Value>");
    EXPECT_NE(hours, std::string::npos);
    EXPECT_GT(scans, hours);
    EXPECT_NE(xml.find("<Interface>POS USB</Interface>"), std::string::npos);
    EXPECT_EQ(xml.find("ManufacturerSpecific"), std::string::npos);
}

}  // namespace
}  // namespace quillet::test
