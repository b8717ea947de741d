// SPDX-License-Identifier: MIT
// What the scanner sends, read back by the host's parsers.
#include "tools/virtual_scanner/frames.h"

#include <gtest/gtest.h>

#include "protocol/reply_parser.h"

namespace quillet::tools {
namespace {

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
    using namespace std::string_literals;
    EXPECT_EQ(SerialBarcode(3, "12345"), Pieces{"\x00\x09\xEE\x04\x03\xFF\x31\x32\x33\x34\x35\x03"s});
    const Pieces blocks = UsbBarcode(11, std::string(57, 'x'));
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_EQ(blocks[0].substr(1, 3), "\x02\x38x"s);
    EXPECT_EQ(blocks[0].substr(61), "\x0B\x00\x01"s);
    EXPECT_EQ(blocks[1], "\x04\x02\x01x"s + std::string(57, '\0') + "\x0B\x00\x00"s);
}

}  // namespace
}  // namespace quillet::tools
