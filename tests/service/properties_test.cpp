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

}  // namespace
}  // namespace quillet::test
