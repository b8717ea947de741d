// SPDX-License-Identifier: MIT
#include <stdexcept>
#include <string>

#include "service/service_fixture.h"

namespace quillet::test {
namespace {

using PropertiesTest = ServiceTest;

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
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropFreezeEvents, 0),
              ResultFailure);  // the other freeze is still on
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

TEST(BarcodeCacheTest, EachPropertyReadsItsOwnList) {
    BarcodeCache cache;
    for (int i = 0; i < 5000; ++i) cache.Add({std::to_string(i), i});
    EXPECT_EQ(cache.PopType(), 0);
    EXPECT_EQ(cache.PopLabel(), "904");  // the newest 4,096
    const std::optional<CachedBarcode> taken = cache.Take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->text, "0");
    EXPECT_EQ(taken->codeType, 1);
    EXPECT_EQ(taken->count, 5000u);  // without a limit
    EXPECT_EQ(cache.Count(), 4999u);
    cache.Clear();
    for (int i = 0; i < 17; ++i) cache.Add({std::string(1 << 20, static_cast<char>('a' + i)), 3});
    EXPECT_EQ(cache.PopLabel()[0], 'b');  // 16 MiB of labels
    EXPECT_EQ(cache.PopText()[0], 'a');
}

}  // namespace
}  // namespace quillet::test
