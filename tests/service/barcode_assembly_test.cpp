// SPDX-License-Identifier: MIT
#include "service/barcode_assembly.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "support/reply_frame.h"
#include "transport/port_discovery.h"

namespace quillet::test {
namespace {

using Barcodes = std::vector<std::pair<int32_t, std::string>>;

class BarcodeAssemblyTest : public ::testing::Test, protected BarcodeAssembly::Sink {
  protected:
    void OnBarcode(std::string text, int32_t codeType) override { m_Barcodes.emplace_back(codeType, std::move(text)); }
    void OnBarcodePart() override { ++m_Parts; }
    void Serial(const std::string& block) { m_Assembly.TakeBlock(block, LinkVirtualSerial); }
    void Usb(const std::string& block) { m_Assembly.TakeBlock(block, LinkUsbHid); }
    Barcodes TakeAll() { return std::exchange(m_Barcodes, {}); }

    BarcodeAssembly m_Assembly{*this};
    Barcodes m_Barcodes;
    int m_Parts = 0;
};

std::string ScanBlock(const std::string& data, uint8_t codeType, bool more) {
    std::string block(64, '\0');
    block[1] = 2;
    block[2] = static_cast<char>(data.size());
    block.replace(3, data.size(), data);
    block[61] = static_cast<char>(codeType);
    block[63] = more ? 1 : 0;
    return block;
}

const std::string kLast = "\xFF";

TEST_F(BarcodeAssemblyTest, SerialFramesAndBareTextBecomeBarcodes) {
    const struct {
        const char* what;
        std::vector<std::string> blocks;
        Barcodes barcodes;
    } cases[] = {
        {"a frame", {Frame(0xEE, 11, kLast + "4006381333931")}, {{11, "4006381333931"}}},
        {"an unknown type", {Frame(0xEE, 42, kLast + "x")}, {{0, "x"}}},
        {"parts, the last one's type",
         {Frame(0xEE, 3, std::string(1, '\0') + "ab"), Frame(0xEE, 28, kLast + "cd")},
         {{28, "abcd"}}},
        {"two parts in one read", {Frame(0xEE, 3, std::string("\0a", 2)) + Frame(0xEE, 3, kLast + "b")}, {{3, "ab"}}},
        {"what stands behind a barcode goes with it",
         {Frame(0xEE, 3, kLast + "a") + Frame(0xEE, 3, kLast + "b")},
         {{3, "a"}}},
        {"a bad checksum", {Frame(0xEE, 3, kLast + "a", 1)}, {}},
        {"a reply to a setting", {Frame(0x40, 128, "\x0B\x01")}, {}},
        {"a barcode behind a reply", {Frame(0x40, 128, "\x0B\x01") + Frame(0xEE, 3, kLast + "a")}, {{3, "a"}}},
        {"a half frame is text, and so is the rest",
         {Frame(0xEE, 3, kLast + "abcdef").substr(0, 8), "tail"},
         {{0, Frame(0xEE, 3, kLast + "abcdef").substr(0, 8)}, {0, "tail"}}},
        {"bare text", {"123"}, {{0, "123"}}},
        {"control bytes", {std::string("\0\1\2\0", 4)}, {{0, std::string("\0\1\2\0", 4)}}},
        {"a length that can't be", {std::string("\0\1abc", 5)}, {{0, std::string("\0\1abc", 5)}}},
        {"an empty barcode", {Frame(0xEE, 3, kLast)}, {{3, ""}}},
    };
    for (const auto& row : cases) {
        for (const std::string& block : row.blocks) Serial(block);
        EXPECT_EQ(TakeAll(), row.barcodes) << row.what;
        Serial(Frame(0xEE, 3, kLast + "next"));
        EXPECT_EQ(TakeAll(), (Barcodes{{3, "next"}})) << "left behind by " << row.what;
    }
    EXPECT_EQ(m_Parts, 2);
}

TEST_F(BarcodeAssemblyTest, UsbBlocksAreJoined) {
    Usb(ScanBlock(std::string(56, 'a'), 3, true));
    EXPECT_EQ(TakeAll(), Barcodes{});
    Usb(ScanBlock("b", 28, false));
    EXPECT_EQ(TakeAll(), (Barcodes{{28, std::string(56, 'a') + "b"}}));
    Usb(ScanBlock("", 28, false));
    EXPECT_EQ(TakeAll(), (Barcodes{{28, ""}}));

    std::string packet(64, '\0');
    packet[1] = 4;
    packet.replace(3, 11, Frame(0xEE, 11, kLast + "1234"));
    Usb(packet);
    EXPECT_EQ(TakeAll(), (Barcodes{{11, "1234"}}));
    // A damaged one never hurts the next.
    std::string tooLong = ScanBlock("x", 3, false);
    tooLong[2] = 60;
    for (const std::string& damaged : {tooLong, ScanBlock("cut off", 3, true).substr(0, 32)}) {
        Usb(damaged);
        TakeAll();
        Usb(ScanBlock("good", 11, false));
        EXPECT_EQ(TakeAll(), (Barcodes{{11, "good"}}));
    }
    packet[1] = 3;  // of no known kind
    Usb(packet);
    EXPECT_EQ(TakeAll(), Barcodes{});
    Usb("short");
    EXPECT_EQ(TakeAll(), (Barcodes{{0, "short"}}));
}

// A device that never ends a barcode doesn't fill the memory, and the rest of what it sent is no barcode.
TEST_F(BarcodeAssemblyTest, MoreThanAMebibyteIsDroppedToItsEnd) {
    const std::string part = Frame(0xEE, 3, '\0' + std::string(32 << 10, 'x'));
    const std::string last = Frame(0xEE, 3, kLast + std::string(32 << 10, 'x'));
    for (int i = 0; i < 31; ++i) Serial(part);
    Serial(last);
    ASSERT_EQ(m_Barcodes.size(), 1u);
    EXPECT_EQ(TakeAll()[0].second.size(), 1u << 20);
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.DropParts();  // an exchange is no end
    Serial(part);
    Serial(last);
    EXPECT_EQ(TakeAll(), Barcodes{});
    Serial(Frame(0xEE, 3, kLast + "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.PassLastPart();  // it came during an exchange
    Serial(Frame(0xEE, 3, kLast + "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
}

}  // namespace
}  // namespace quillet::test
