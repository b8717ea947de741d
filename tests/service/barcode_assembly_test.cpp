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
    void Serial(const std::string& block) { m_Assembly.TakeBlock(block, LinkSerial); }
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

std::string Part(uint8_t codeType, const std::string& text) {
    return Frame(0xEE, codeType, '\0' + text);
}
std::string Last(uint8_t codeType, const std::string& text) {
    return Frame(0xEE, codeType, kLast + text);
}

std::string PacketBlock(uint8_t kind) {
    std::string block(64, '\0');
    block[1] = static_cast<char>(kind);
    return block.replace(3, 11, Last(11, "1234"));
}

TEST_F(BarcodeAssemblyTest, BlocksBecomeBarcodes) {
    const std::string half = Last(3, "abcdef").substr(0, 8);
    const std::string a56(56, 'a');
    std::string tooLong = ScanBlock("x", 3, false);
    tooLong[2] = 60;
    const std::string cut = ScanBlock("cut off", 3, true).substr(0, 32);
    const struct {
        const char* what;
        LinkType link;
        std::vector<std::string> blocks;
        Barcodes barcodes;
    } cases[] = {
        {"a frame", LinkSerial, {Last(11, "4006381333931")}, {{11, "4006381333931"}}},
        {"an unknown type", LinkSerial, {Last(42, "x")}, {{0, "x"}}},
        {"parts, the last one's type", LinkSerial, {Part(3, "ab"), Last(28, "cd")}, {{28, "abcd"}}},
        {"two parts in one read", LinkSerial, {Part(3, "a") + Last(3, "b")}, {{3, "ab"}}},
        {"what stands behind a barcode goes with it", LinkSerial, {Last(3, "a") + Last(3, "b")}, {{3, "a"}}},
        {"a bad checksum", LinkSerial, {Frame(0xEE, 3, kLast + "a", 1)}, {}},
        {"a reply to a setting", LinkSerial, {Frame(0x40, 128, "\x0B\x01")}, {}},
        {"a barcode behind a reply", LinkSerial, {Frame(0x40, 128, "\x0B\x01") + Last(3, "a")}, {{3, "a"}}},
        {"a half frame is text, and so is the rest", LinkSerial, {half, "tail"}, {{0, half}, {0, "tail"}}},
        {"bare text", LinkSerial, {"123"}, {{0, "123"}}},
        {"control bytes", LinkSerial, {std::string("\0\1\2\0", 4)}, {{0, std::string("\0\1\2\0", 4)}}},
        {"a length that can't be", LinkSerial, {std::string("\0\1abc", 5)}, {{0, std::string("\0\1abc", 5)}}},
        {"an empty barcode", LinkSerial, {Last(3, "")}, {{3, ""}}},
        {"parts", LinkUsbHid, {ScanBlock(a56, 3, true), ScanBlock("b", 28, false)}, {{28, a56 + "b"}}},
        {"an empty barcode", LinkUsbHid, {ScanBlock("", 28, false)}, {{28, ""}}},
        {"a packet in a block", LinkUsbHid, {PacketBlock(4)}, {{11, "1234"}}},
        {"a block of no known kind", LinkUsbHid, {PacketBlock(3)}, {}},
        {"a length beyond the block", LinkUsbHid, {tooLong}, {{0, tooLong}}},
        {"a block that was cut", LinkUsbHid, {cut}, {{0, cut}}},
        {"a short one", LinkUsbHid, {"short"}, {{0, "short"}}},
    };
    for (const auto& row : cases) {
        for (const std::string& block : row.blocks) m_Assembly.TakeBlock(block, row.link);
        EXPECT_EQ(TakeAll(), row.barcodes) << row.what;
        m_Assembly.TakeBlock(row.link == LinkUsbHid ? ScanBlock("next", 3, false) : Last(3, "next"), row.link);
        EXPECT_EQ(TakeAll(), (Barcodes{{3, "next"}})) << "left behind by " << row.what;
    }
    EXPECT_EQ(m_Parts, 3);
}

// A device that never ends a barcode doesn't fill the memory, and the rest of what it sent is no barcode.
TEST_F(BarcodeAssemblyTest, MoreThanAMebibyteIsDroppedToItsEnd) {
    const std::string part = Part(3, std::string(32 << 10, 'x'));
    const std::string last = Last(3, std::string(32 << 10, 'x'));
    for (int i = 0; i < 31; ++i) Serial(part);
    Serial(last);
    ASSERT_EQ(m_Barcodes.size(), 1u);
    EXPECT_EQ(TakeAll()[0].second.size(), 1u << 20);
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.DropParts();  // an exchange is no end
    Serial(part);
    Serial(last);
    EXPECT_EQ(TakeAll(), Barcodes{});
    Serial(Last(3, "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.PassLastPart();  // it came during an exchange
    Serial(Last(3, "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
}

}  // namespace
}  // namespace quillet::test
