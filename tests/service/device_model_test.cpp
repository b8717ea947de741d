// SPDX-License-Identifier: MIT
// Properties and operations that a control object of the device model uses.
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "service/service_fixture.h"

namespace quillet::test {
namespace {

using PropertiesTest = ServiceTest;

const std::string kVersionReply = Frame(0x7E, 0x80, std::string("\0ABC", 4));

TEST_F(PropertiesTest, SomeReadsKeepTheResultOfTheLastOperation) {
    int32_t value = 0;
    EXPECT_EQ(m_Scanner.GetPropertyNumber(PropState, &value), ResultClosed);
    EXPECT_EQ(value, 1);
    for (const int32_t kept : {6, 7, 9, 12, 14, 10003}) {
        m_Scanner.m_ResultCode = 111;
        EXPECT_EQ(m_Scanner.GetPropertyNumber(kept, &value), 111) << kept;
        EXPECT_EQ(m_Scanner.m_ResultCode, 111) << kept;
    }
    m_Scanner.m_ResultCode = 111;
    EXPECT_EQ(m_Scanner.Number(PropResultCode), 111);
    for (const int32_t cleared : {1, 2, 4, 8, 10, 11, 13, 501, 502, 503, 10001, 10002}) {
        m_Scanner.m_ResultCode = 111;
        EXPECT_EQ(m_Scanner.GetPropertyNumber(cleared, &value), 0) << cleared;
    }
}

TEST_F(PropertiesTest, UnknownAndUntimelyNumbersAreRefused) {
    int32_t value = 77;
    EXPECT_EQ(m_Scanner.GetPropertyNumber(PropDeviceEnabled, &value), ResultIllegal);
    EXPECT_EQ(value, 77);  // unclaimed: no value
    EXPECT_EQ(m_Scanner.GetPropertyNumber(5, &value), ResultIllegal);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropClaimed, 1), ResultIllegal);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDeviceEnabled, 1), ResultNotClaimed);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropScanDecodeData, 1), ResultDisabled);
    EXPECT_EQ(m_Scanner.SetPropertyString(PropDeviceName, "120"), ResultIllegal);

    uint8_t buffer[7] = {1, 1, 1, 1, 1, 1, 1};
    int32_t length = 0;
    EXPECT_EQ(m_Scanner.GetPropertyString(999, {buffer, 3, &length}), ResultBufferTooSmall);
    EXPECT_EQ(buffer[0], 1);
    EXPECT_EQ(m_Scanner.GetPropertyString(999, {buffer, 7, nullptr}), ResultIllegal);
    EXPECT_EQ(std::string(buffer, buffer + 7), "[Error]");
    EXPECT_EQ(m_Scanner.Number(PropServiceObjectVersion), 1009003);
    EXPECT_EQ(m_Scanner.Text(PropServiceName), "Tovra Quillet.");
}

TEST_F(PropertiesTest, FreezingKeepsTheBitAndSaysSo) {
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDataEventEnabled, 1), ResultSuccess);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 1);
    EXPECT_EQ(m_Scanner.COFreezeEvents(1), ResultSuccess);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDataEventEnabled, 1), ResultFailure);
    EXPECT_EQ(m_Scanner.Number(PropDataEventEnabled), 1);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropFreezeEvents, 1), ResultSuccess);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropFreezeEvents, 0), ResultFailure);  // the other freeze is still on
    EXPECT_EQ(m_Scanner.COFreezeEvents(0), ResultSuccess);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDataEventEnabled, 0), ResultSuccess);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 0);
}

TEST_F(PropertiesTest, BinaryConversionCodesWhatIsRead) {
    OpenSerial();
    const struct {
        int32_t mode;
        int32_t read;
        const char* text;
    } cases[] = {{0, 0, "A"}, {1, 1, "41"}, {2, 2, "065"}, {3, 0, "065"}, {0, 0, "A"}};
    for (const auto& row : cases) {
        EXPECT_EQ(m_Scanner.SetPropertyNumber(PropBinaryConversion, row.mode), ResultSuccess);
        EXPECT_EQ(m_Scanner.Number(PropBinaryConversion), row.read);
        m_Scanner.Receive("A");
        EXPECT_EQ(m_Scanner.Text(PropScanData), row.text);
        if (row.text[1] != '\0') {  // coded texts have groups, and half a one is refused
            EXPECT_THROW(m_Scanner.SetPropertyString(PropDeviceName, "1"), std::out_of_range);
        }
    }
    EXPECT_EQ(m_Scanner.Text(PropScanData), "");  // nothing there
    EXPECT_EQ(m_Scanner.Number(PropScanDataType), 0);
}

TEST_F(PropertiesTest, AFinishedBarcodeTurnsDataEventsOff) {
    OpenSerial();
    m_Scanner.SetPropertyNumber(PropDataEventEnabled, 1);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 7);
    m_Scanner.Receive("a");
    EXPECT_EQ(m_Scanner.Number(PropDataEventEnabled), 0);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 6);
    EXPECT_EQ(m_Scanner.ClearInput(), ResultSuccess);
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 1);
    EXPECT_EQ(m_Scanner.Update(), ResultSuccess);
    m_Scanner.CloseService();
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 0);
}

TEST_F(PropertiesTest, AutoDisableEndsTheReadingAndNothingElse) {
    OpenSerial();
    m_Scanner.SetPropertyNumber(PropAutoDisable, 1);
    Device()->Deliver("first");
    Device()->Deliver("second");
    ASSERT_TRUE(Eventually([&] { return m_Scanner.Number(PropDataCount) == 1; }));
    std::string nothing;
    EXPECT_EQ(m_Scanner.ProcessDataEvent(nothing, kFailedRead), kKeepReading);  // a failed read is no block
    ASSERT_TRUE(AwaitLooks(8));  // nor is the link opened again for another reader
    EXPECT_EQ(m_Scanner.Number(PropDeviceEnabled), 1);
    EXPECT_EQ(Device()->opens, 1);
    EXPECT_FALSE(Device()->reads.empty());
    EXPECT_EQ(m_Scanner.Number(PropScanDataType), 0);
    EXPECT_EQ(m_Scanner.Text(PropScanData), "first");
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
