#include <future>
#include <string>
#include <thread>

#include "foundation/text.h"
#include "service/service_fixture.h"

namespace quillet::test {
namespace {

// Replies to the service's next exchange through the link's own read thread.
class ExchangeTest : public ServiceTest {
  protected:
    void SetUp() override {
        OpenSerial();
        m_Written = Device().Writes().size();
    }
    // The last packet that was written, without its length and checksum.
    std::string LastPacket() {
        const std::vector<std::string> writes = Device().Writes();
        return writes.size() == m_Written ? "" : ToHexText(writes.back().substr(1, writes.back().size() - 2));
    }
    ResultCode Send(int32_t command, int32_t word, const char* text, const std::string& reply) {
        m_Written = Device().Writes().size();
        std::thread scanner([&, count = m_Written + 1] {
            if (!reply.empty() && Device().AwaitWrites(count)) Device().Deliver(reply);
        });
        uint8_t buffer[32] = {};
        int32_t length = 0;
        const ResultCode result = m_Scanner.DirectIO(command, &word, text, {buffer, sizeof buffer, &length});
        scanner.join();
        m_Reply.assign(buffer, buffer + length);
        return result;
    }
    size_t m_Written = 0;
    std::string m_Reply;
};

const std::string kVersionReply = Frame(0x7E, 0x80, std::string("\0ABC", 4));

TEST_F(ExchangeTest, CommandsOfTheDeviceModelBecomePackets) {
    const struct {
        int32_t command;
        int32_t word;
        const char* text;
        ResultCode result;
        const char* packet;
    } cases[] = {
        {0x4A, 0, "41", ResultIllegal, ""},
        {0x40, 0, "0B 01", ResultSuccess, "40 04 00 0B 01"},  // never answered
        {0x40, 0, "01|4142", ResultSuccess, "40 04 01 41 42"},
        {0x40, 0, "08|41", ResultSuccess, "40 04 08 41"},
        {0x40, 0, "02|41", ResultIllegal, ""},
        {0x40, 0, "01|41|42", ResultIllegal, ""},
        {0x140, 1, "4142", ResultSuccess, "40 04 00 34 31 34 32"},  // the text's own bytes
        {0x40, 0, "", ResultSuccess, "40 04 00 00"},
        {0x7E, 0, "00", ResultTimeout, "7E 04 00 00"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Send(row.command, row.word, row.text, ""), row.result) << row.text;
        EXPECT_EQ(LastPacket(), row.packet) << row.text;
    }
    EXPECT_EQ(m_Clock.LongestWaitMs(), 18'000u);  // the last one's
}

TEST_F(ExchangeTest, ARepliesPayloadIsHandedOver) {
    m_Clock.patient = true;
    EXPECT_EQ(Send(0x7E, 0, "00", kVersionReply), ResultSuccess);
    EXPECT_EQ(m_Reply, "ABC");
    EXPECT_EQ(m_Scanner.m_ScanData, "");
    // An error status has no payload, here.
    EXPECT_EQ(Send(0x7E, 0, "00", Frame(0x7E, 1, std::string("\0ABC", 4))), ResultSuccess);
    EXPECT_EQ(m_Reply, "");
    m_Clock.patient = false;
    EXPECT_EQ(Send(0x7E, 0, "00", "unparsable"), ResultTimeout);
}

TEST_F(ExchangeTest, OthersDoNotComeIn) {
    std::future<ExchangeOutcome> first =
        std::async(std::launch::async, [&] { return m_Scanner.ExchangeBytes("x", platform::kNoLimitMs); });
    ASSERT_TRUE(Device().AwaitWrites(m_Written + 1));
    EXPECT_EQ(m_Scanner.ExchangeBytes("y", platform::kNoLimitMs).result, ResultIllegal);
    m_Scanner.Number(PropClaimed);  // clears m_ResultCode, not the outcome
    Device().Deliver(kVersionReply);
    const ExchangeOutcome outcome = first.get();
    EXPECT_EQ(outcome.result, ResultSuccess);
    EXPECT_EQ(outcome.reply, "ABC");
    // A late reply leaves nothing that the next barcode would be joined to.
    m_Scanner.Receive(kVersionReply);
    EXPECT_EQ(m_Scanner.m_ScanData, "");
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 0);
}

TEST_F(ExchangeTest, AReplyOfMoreThanAMebibyteIsNone) {
    std::thread scanner([&] {
        ASSERT_TRUE(Device().AwaitWrites(m_Written + 1));
        m_Scanner.Receive(kVersionReply);
        for (int i = 0; i < 17; ++i) m_Scanner.Receive(std::string(64 << 10, 'x'));
    });
    const int64_t start = m_Clock.NowNs();
    EXPECT_EQ(m_Scanner.ExchangeBytes("x", 2000).result, ResultTimeout);
    EXPECT_GE(m_Clock.NowNs() - start, 2'000'000'000);
    scanner.join();
}

// The handle is being destroyed, or the scanner has gone, while an exchange without a limit is about to begin.
TEST_F(ExchangeTest, NoneBeginsThatNothingWouldEnd) {
    m_Scanner.SetPropertyNumber(PropDeviceEnabled, 0);
    EXPECT_EQ(m_Scanner.ExchangeBytes("x", platform::kNoLimitMs).result, ResultIllegal);
    m_Scanner.SetPropertyNumber(PropDeviceEnabled, 1);
    std::future<ExchangeOutcome> waiting =
        std::async(std::launch::async, [&] { return m_Scanner.ExchangeBytes("x", platform::kNoLimitMs); });
    ASSERT_TRUE(Eventually([&] { return Device().Writes().back() == "x"; }));
    m_Scanner.SetPropertyNumber(PropDeviceEnabled, 0);
    EXPECT_EQ(waiting.get().result, ResultTimeout);
    m_Scanner.SetPropertyNumber(PropDeviceEnabled, 1);
    m_Scanner.EndWaits();
    EXPECT_EQ(m_Scanner.ExchangeBytes("x", platform::kNoLimitMs).result, ResultIllegal);
}

TEST_F(ExchangeTest, StatisticsWaitForAReplyOfAnotherExchange) {
    std::string names = "GoodScanCount,HoursPoweredCount,Nonsense";
    EXPECT_EQ(m_Scanner.RetrieveStatistics(&names), ResultTimeout);
    EXPECT_EQ(m_Scanner.m_StatisticsText, "");
    m_Clock.patient = true;
    std::future<ResultCode> waiting =
        std::async(std::launch::async, [&] { return m_Scanner.RetrieveStatistics(&names); });
    ASSERT_TRUE(Eventually([&] { return m_Scanner.m_Status.Has(StatusStatistics); }));
    std::thread exchange([&] { m_Scanner.ExchangeBytes("x", platform::kNoLimitMs); });
    ASSERT_TRUE(Device().AwaitWrites(m_Written + 1));
    Device().Deliver(kVersionReply);
    EXPECT_EQ(waiting.get(), ResultIllegal);  // the text is made, a name was unknown
    exchange.join();
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
