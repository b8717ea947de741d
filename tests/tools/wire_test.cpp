// SPDX-License-Identifier: MIT
// What the scanner sends, read back by the host's parsers, and what it makes of a host's bytes.
#include <gtest/gtest.h>

#include "protocol/packet.h"
#include "protocol/reply_parser.h"
#include "tools/virtual_scanner/frames.h"
#include "tools/virtual_scanner/host_stream.h"
#include "tools/virtual_scanner/settings.h"

namespace quillet::test {
using namespace tools;
namespace {

using namespace std::string_literals;

std::string Sample(size_t size) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 256);
    return data;
}

// The barcode that a host makes of the pieces; each piece must be a frame of its own, and only the last may end it.
std::string Join(const Pieces& pieces, ParseResult (*parse)(std::string&, ReplyPacket&), uint8_t codeType) {
    std::string data;
    for (const std::string& piece : pieces) {
        std::string buffer = piece;
        ReplyPacket reply;
        EXPECT_EQ(parse(buffer, reply), ParseOk);
        EXPECT_EQ(buffer, "");
        EXPECT_EQ(reply.opcode, OpcodeBarcode);
        EXPECT_EQ(reply.status, codeType);
        EXPECT_EQ(reply.firstParameter == kLastBlock, &piece == &pieces.back());
        data += reply.parameters;
    }
    return data;
}

TEST(Frames, BarcodesOfAnySizeAreReadBackByTheHost) {
    for (const size_t size : {0U, 1U, 55U, 56U, 57U, 112U, 300U, 4000U, 4080U, 4081U, 20000U}) {
        SCOPED_TRACE(size);
        const std::string data = Sample(size);
        EXPECT_EQ(Join(SerialBarcode(28, data), ParseSerialBuffer, 28), data);
        EXPECT_EQ(Join(UsbBarcode(200, data), ParseUsbBuffer, 200), data);
        for (const std::string& frame : SerialBarcode(28, data)) EXPECT_LT(frame.size(), 4095U);
    }
}

TEST(Frames, BytesOfABarcode) {
    EXPECT_EQ(SerialBarcode(3, "12345"), Pieces{"\x00\x09\xEE\x04\x03\xFF\x31\x32\x33\x34\x35\x03"s});
    const Pieces blocks = UsbBarcode(11, std::string(57, 'x'));
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_EQ(blocks[0].substr(1, 3), "\x02\x38x"s);
    EXPECT_EQ(blocks[0].substr(61), "\x0B\x00\x01"s);
    EXPECT_EQ(blocks[1], "\x04\x02\x01x"s + std::string(57, '\0') + "\x0B\x00\x00"s);
}

const std::string kCode39On = "\x05\x40\x04\x00\x0B\x01\xAA"s;
const std::string kVersionQuery = "\x04\x7E\x04\x00\x00\x79"s;

std::string Wire(uint8_t opcode, std::string parameters) {
    CommandPacket packet(opcode, std::move(parameters));
    return ToWireBytes(packet);
}

TEST(HostStream, PacketsAreFoundWhereverTheLineCutsThem) {
    const std::string bytes = kCode39On + kVersionQuery + Wire(0x45, std::string(252, '\x05'));
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        HostStream stream;
        std::vector<HostPacket> packets = stream.Feed(bytes.substr(0, cut));
        for (HostPacket& packet : stream.Feed(bytes.substr(cut))) packets.push_back(std::move(packet));
        ASSERT_EQ(packets.size(), 3U);
        EXPECT_FALSE(stream.Waiting());
        EXPECT_EQ(packets[0].wire, kCode39On);
        EXPECT_EQ(packets[0].opcode, 0x40);
        EXPECT_EQ(packets[0].parameters, "\x0B\x01");
        EXPECT_EQ(packets[1].wire, kVersionQuery);
        EXPECT_EQ(packets[2].parameters.size(), 252U);
    }
}

TEST(HostStream, BytesThatAreNoPacketAreKeptAsSuch) {
    const std::string noise[] = {
        "\x03\x40\x04\x00\xB8"s,          // too short for a parameter
        "\x05\x40\x04\x00\x0B\x01\xAB"s,  // checksum
        "\x05\x40\x03\x00\x0B\x01\xAB"s,  // source
        "\x00"s,
    };
    for (const std::string& bytes : noise) {
        HostStream stream;
        const std::vector<HostPacket> packets = stream.Feed(bytes + kCode39On);
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_FALSE(packets[0].valid);
        EXPECT_EQ(packets[0].received, bytes + kCode39On);
        EXPECT_EQ(stream.Feed(kCode39On).at(0).wire, kCode39On);
    }
    HostStream stream;
    EXPECT_TRUE(stream.Feed(kCode39On.substr(0, 4)).empty());
    EXPECT_TRUE(stream.Waiting());
    EXPECT_EQ(stream.GiveUp().received, kCode39On.substr(0, 4));
    EXPECT_TRUE(stream.Feed(kCode39On).at(0).valid);
}

TEST(HostStream, ReportsMustBeWholeBlocks) {
    const std::string block = "\x04\x07"s + kCode39On + std::string(55, '\0');
    EXPECT_EQ(DecodeReport(block).wire, kCode39On);
    EXPECT_EQ(DecodeReport(block).received, block);
    EXPECT_TRUE(DecodeReport(ToHidBlock(Wire(0x5D, std::string(57, 'x')))).valid);
    for (const auto& [offset, value] : std::initializer_list<std::pair<size_t, char>>{
             {0, '\5'}, {1, '\6'}, {1, '\10'}, {1, '\77'}, {1, '\377'}, {8, '\0'}, {63, '\1'}}) {
        std::string wrong = block;
        wrong[offset] = value;
        EXPECT_FALSE(DecodeReport(wrong).valid) << offset << ' ' << int{value};
    }
    EXPECT_FALSE(DecodeReport(block.substr(0, 63)).valid);
    EXPECT_FALSE(DecodeReport("").valid);
}

TEST(Settings, NumberAndValueAreToldApart) {
    struct {
        uint8_t opcode;
        std::string parameters;
        size_t numberSize;
    } const rows[] = {
        {0x41, "\x02"s, 0},                                  // value alone
        {0x40, "\x02"s, 0},                                  // composite codes: value alone, among opcodes with numbers
        {0x40, "\x0B\x01"s, 1},     {0x40, "\x29\x01"s, 1},  // no row of its own
        {0x40, "\x04\x40"s, 1},      // EAN-8 with a value that looks like a second byte of a number
        {0x40, "\x04\x40\x01"s, 2},  // format of ISBN
        {0x40, "\x15\x01\x00"s, 1},  // MSI has two value bytes
        {0x50, "\x00\x2B\x01"s, 2}, {0x50, "\x7F\x7F\x01"s, 2},  // an unknown number
        {0x76, "\x0B\x61"s, 1},     {0x52, "\x41\x42"s, 0},
        {0x75, "\x01\x02"s, 0},     {0x74, "\x01\x03\x02\x00\x0D\x03"s, 0},
    };
    for (const auto& row : rows) {
        const SettingChange change = ParseSetting(row.opcode, row.parameters);
        EXPECT_EQ(change.key.opcode, row.opcode);
        EXPECT_EQ(change.key.number, row.parameters.substr(0, row.numberSize)) << +row.opcode;
        EXPECT_EQ(change.value, row.parameters.substr(row.numberSize)) << +row.opcode;
    }
}

}  // namespace
}  // namespace quillet::test
