// SPDX-License-Identifier: MIT
#include <string>

#include "service/service_fixture.h"

namespace quillet::test {
namespace {

using ScanDataTest = ServiceTest;

TEST_F(ScanDataTest, AFinishedBarcodeTurnsDataEventsOff) {
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

TEST_F(ScanDataTest, AutoDisableEndsTheReadingAndNothingElse) {
    OpenSerial();
    m_Scanner.SetPropertyNumber(PropAutoDisable, 1);
    Device().Deliver("first");
    Device().Deliver("second");
    ASSERT_TRUE(Eventually([&] { return m_Scanner.Number(PropDataCount) == 1; }));
    std::string nothing;
    EXPECT_EQ(m_Scanner.ProcessDataEvent(nothing, kFailedRead), kKeepReading);  // a failed read is no block
    EXPECT_EQ(m_Scanner.Number(PropDeviceEnabled), 1);
    EXPECT_FALSE(Device().ReadsUsedUp());
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
