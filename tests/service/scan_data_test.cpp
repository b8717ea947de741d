#include <string>
#include <utility>
#include <vector>

#include "service/service_fixture.h"

namespace quillet::test {
namespace {

std::string ScanBlock(const std::string& data, uint8_t codeType, bool more) {
    std::string block(64, '\0');
    block[1] = 2;
    block[2] = static_cast<char>(data.size());
    block.replace(3, data.size(), data);
    block[61] = static_cast<char>(codeType);
    block[63] = more ? 1 : 0;
    return block;
}

class ScanDataTest : public ServiceTest {
  protected:
    using Cached = std::vector<std::pair<int32_t, std::string>>;
    Cached TakeAll() {
        Cached taken;
        while (m_Scanner.Number(PropDataCount) > 0) {
            const int32_t type = m_Scanner.Number(PropScanDataType);
            taken.emplace_back(type, m_Scanner.Text(PropScanData));
        }
        return taken;
    }
};

TEST_F(ScanDataTest, SerialFramesAndBareTextBecomeBarcodes) {
    OpenSerial();
    const std::string last = "\xFF";
    const struct {
        const char* what;
        std::vector<std::string> blocks;
        Cached cached;
    } cases[] = {
        {"a frame", {Frame(0xEE, 11, last + "4006381333931")}, {{11, "4006381333931"}}},
        {"an unknown type", {Frame(0xEE, 42, last + "x")}, {{0, "x"}}},
        {"parts, the last one's type",
         {Frame(0xEE, 3, std::string(1, '\0') + "ab"), Frame(0xEE, 28, last + "cd")},
         {{28, "abcd"}}},
        {"two parts in one read", {Frame(0xEE, 3, std::string("\0a", 2)) + Frame(0xEE, 3, last + "b")}, {{3, "ab"}}},
        {"what stands behind a barcode goes with it",
         {Frame(0xEE, 3, last + "a") + Frame(0xEE, 3, last + "b")},
         {{3, "a"}}},
        {"a bad checksum", {Frame(0xEE, 3, last + "a", 1)}, {}},
        {"a reply to a setting", {Frame(0x40, 128, "\x0B\x01")}, {}},
        {"a barcode behind a reply", {Frame(0x40, 128, "\x0B\x01") + Frame(0xEE, 3, last + "a")}, {{3, "a"}}},
        {"a half frame is text, and so is the rest",
         {Frame(0xEE, 3, last + "abcdef").substr(0, 8), "tail"},
         {{0, Frame(0xEE, 3, last + "abcdef").substr(0, 8)}, {0, "tail"}}},
        {"bare text", {"123"}, {{0, "123"}}},
        {"control bytes", {std::string("\0\1\2\0", 4)}, {{0, std::string("\0\1\2\0", 4)}}},
        {"a length that can't be", {std::string("\0\1abc", 5)}, {{0, std::string("\0\1abc", 5)}}},
        {"an empty barcode", {Frame(0xEE, 3, last)}, {{3, ""}}},
    };
    for (const auto& row : cases) {
        for (const std::string& block : row.blocks) EXPECT_EQ(m_Scanner.Receive(block), kKeepReading);
        EXPECT_EQ(TakeAll(), row.cached) << row.what;
        EXPECT_EQ(m_Scanner.m_DataBuffer, "") << row.what;
        EXPECT_EQ(m_Scanner.m_ScanData, "") << row.what;
    }
}

TEST_F(ScanDataTest, UsbBlocksAreJoined) {
    m_Scanner.m_LinkType = LinkUsbHid;
    m_Scanner.Receive(ScanBlock(std::string(56, 'a'), 3, true));
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 0);
    m_Scanner.Receive(ScanBlock("b", 28, false));
    EXPECT_EQ(TakeAll(), (Cached{{28, std::string(56, 'a') + "b"}}));
    m_Scanner.Receive(ScanBlock("", 28, false));
    EXPECT_EQ(TakeAll(), (Cached{{28, ""}}));

    std::string packet(64, '\0');
    packet[1] = 4;
    packet.replace(3, 11,
                   Frame(0xEE, 11,
                         "\xFF"
                         "1234"));
    m_Scanner.Receive(packet);
    EXPECT_EQ(TakeAll(), (Cached{{11, "1234"}}));
    // A damaged one never hurts the next.
    std::string tooLong = ScanBlock("x", 3, false);
    tooLong[2] = 60;
    for (const std::string& damaged : {tooLong, ScanBlock("cut off", 3, true).substr(0, 32)}) {
        m_Scanner.Receive(damaged);
        TakeAll();
        m_Scanner.Receive(ScanBlock("good", 11, false));
        EXPECT_EQ(TakeAll(), (Cached{{11, "good"}}));
    }
    packet[1] = 3;  // of no known kind
    m_Scanner.Receive(packet);
    EXPECT_EQ(TakeAll(), Cached{});
    m_Scanner.Receive("short");
    EXPECT_EQ(TakeAll(), (Cached{{0, "short"}}));
}

// A device that never ends a barcode doesn't fill the memory, and the rest of what it sent is no barcode.
TEST_F(ScanDataTest, MoreThanAMebibyteIsDroppedToItsEnd) {
    OpenSerial();
    const std::string more = Frame(0xEE, 3, '\0' + std::string(32 << 10, 'x'));
    const std::string last = Frame(0xEE, 3, '\xFF' + std::string(32 << 10, 'x'));
    const auto receive = [&](int count) {
        for (int i = 0; i < count; ++i) m_Scanner.Receive(more);
    };
    receive(31);
    m_Scanner.Receive(last);
    std::vector<uint8_t> buffer(1 << 20);
    int32_t length = 0;
    EXPECT_EQ(m_Scanner.GetPropertyString(PropScanData, {buffer.data(), 1 << 20, &length}), ResultSuccess);
    EXPECT_EQ(length, 1 << 20);
    receive(33);
    EXPECT_EQ(m_Scanner.m_ScanData, "");
    m_Scanner.ExchangeBytes("x", 1);  // is no end
    receive(1);
    m_Scanner.Receive(last);
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 0);
    m_Scanner.Receive(Frame(0xEE, 3, "\xFFgood"));
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 1);

    BarcodeCache cache;
    for (int i = 0; i < 17; ++i) cache.Add({std::string(1 << 20, static_cast<char>('a' + i)), 3});
    EXPECT_EQ(cache.PopLabel()[0], 'b');  // 16 MiB of labels
    EXPECT_EQ(cache.PopText()[0], 'a');
}

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
    for (int i = 0; i < 5000; ++i) m_Scanner.Receive(std::to_string(i));
    EXPECT_EQ(m_Scanner.Number(PropDataCount), 5001);     // without a limit
    EXPECT_EQ(m_Scanner.Text(PropScanDataLabel), "904");  // the newest 4,096
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
    EXPECT_EQ(TakeAll(), (Cached{{0, "first"}}));
}

}  // namespace
}  // namespace quillet::test
