// SPDX-License-Identifier: MIT
// Commands as bytes, and what the parsers make of the bytes of a scanner.
#include "protocol/packet.h"

#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "protocol/reply_parser.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

const std::string kAccepted = ParseHexText("00 05 40 04 80 0B 01 2A");
const std::string kBarcode = ParseHexText("00 09 EE 00 03 FF 31 32 33 34 35 07");
const std::string kEmptyReply = ParseHexText("00 03 40 04 80 39");

std::string Block(uint8_t kind, const std::string& content) {
    std::string block(64, '\0');
    block[1] = static_cast<char>(kind);
    return block.replace(3, content.size(), content);
}

std::string ScanBlock(uint8_t size, uint8_t codeType, uint8_t more) {
    std::string block = Block(2, std::string(58, 'x'));
    block[2] = static_cast<char>(size);
    block[61] = static_cast<char>(codeType);
    block[63] = static_cast<char>(more);
    return block;
}

// What the parser makes of a frame: length, opcode, status and first parameter, and the other parameters.
std::string Told(const ReplyPacket& reply) {
    const uint8_t head[] = {reply.opcode, reply.status, reply.firstParameter};
    const std::string bytes(std::begin(head), std::end(head));
    return std::to_string(reply.length) + ": " + ToHexText(bytes) + "/" + ToHexText(reply.parameters);
}

const std::string kUntouched = "0: 00 82 00/";

TEST(Packet, WireBytes) {
    const struct {
        uint8_t opcode;
        const char* parameters;
        const char* wire;
    } kRows[] = {{0x40, "0B 01", "05 40 04 00 0B 01 AA"}, {0x7E, "", "04 7E 04 00 00 79"}};
    for (const auto& row : kRows) {
        CommandPacket packet(row.opcode, ParseHexText(row.parameters));
        EXPECT_EQ(ToHexText(ToWireBytes(packet)), row.wire);
        EXPECT_EQ(ToHexText(ToWireBytes(packet)), row.wire) << "the old checksum is no part of the sum";
    }
    CommandPacket changed(0x7E, "", 3);
    ToWireBytes(changed);
    changed.opcode = 0x40;
    changed.parameters = ParseHexText("0B 01");
    changed.reserved = 1;
    EXPECT_EQ(ToHexText(ToWireBytes(changed)), "05 40 04 03 0B 01 A6") << "`reserved` is counted, not sent";
    CommandPacket longest(0x40, std::string(253, 'x'));
    EXPECT_EQ(ToWireBytes(longest)[0], '\0') << "the length counts modulo 256";
}

TEST(Packet, ReplyChecksumCountsTheFirstParameterEvenWithoutPayload) {
    ReplyPacket reply{
        .length = 0x0103, .opcode = 0x40, .source = 4, .status = 0x80, .firstParameter = 255, .parameters = ""};
    reply.checksum = static_cast<uint8_t>(~(1 + 3 + 0x40 + 4 + 0x80 + 255));
    EXPECT_TRUE(VerifyChecksum(reply));
    reply.parameters.assign(1, '\xff');
    EXPECT_FALSE(VerifyChecksum(reply));
    ++reply.checksum;
    EXPECT_TRUE(VerifyChecksum(reply)) << "bytes above 7F count as themselves";
}

TEST(SerialParser, TakesOneFramePerCallAtEverySplitPoint) {
    const std::string stream = kAccepted + kBarcode + kEmptyReply;
    const Lines expected = {"5: 40 80 0B/01", "9: EE 03 FF/31 32 33 34 35", "3: 40 80 FF/"};
    for (size_t split = 0; split <= stream.size(); ++split) {
        std::string buffer;
        Lines told;
        for (const std::string& part : {stream.substr(0, split), stream.substr(split)}) {
            buffer += part;
            for (;;) {
                const std::string before = buffer;
                ReplyPacket reply;
                const ParseResult result = ParseSerialBuffer(buffer, reply);
                if (result == ParseNoFrame) {
                    EXPECT_EQ(buffer, before);
                    break;
                }
                ASSERT_EQ(result, ParseOk) << "split at " << split;
                told.push_back(Told(reply));
            }
        }
        EXPECT_EQ(told, expected) << "split at " << split;
        EXPECT_EQ(buffer, "");
    }
}

TEST(SerialParser, DropsAFrameOfWrongChecksumAndGoesOnBehindIt) {
    LogReader log(LLCritical);
    std::string wrong = kAccepted;
    wrong.back() = '\x2b';
    std::string buffer = wrong + kBarcode;
    ReplyPacket first, second, third;
    EXPECT_EQ(ParseSerialBuffer(buffer, first), ParseBadChecksum);
    EXPECT_EQ(ParseSerialBuffer(buffer, second), ParseOk);
    EXPECT_EQ(Told(second), "9: EE 03 FF/31 32 33 34 35");
    EXPECT_EQ(ParseSerialBuffer(buffer, third), ParseNoFrame);
    EXPECT_EQ(Told(third), kUntouched);
    EXPECT_EQ(log.Take(), (Lines{"LLCritical\t:Warning : CRC Check Failed, Operand: @,  CRC: +",
                                 "LLCritical\t:Warning : Invalid Length,  Operand: \0"s}));
}

TEST(Parsers, RaiseOnALengthWithoutRoomForItsHeader) {
    for (char length : {'\1', '\2'}) {
        std::string frame = kAccepted;
        frame[1] = length;
        std::string serial = frame, usb = Block(4, frame);
        ReplyPacket reply;
        EXPECT_THROW(ParseSerialBuffer(serial, reply), ParseError);
        EXPECT_THROW(ParseUsbBuffer(usb, reply), ParseError);
        EXPECT_EQ(serial, frame);
        EXPECT_EQ(usb.size(), 64u);
    }
    ReplyPacket reply;
    EXPECT_EQ(ParseFrame(ParseHexText("00 03 40 04 80"), reply), ParseNoFrame) << "one byte short";
}

TEST(UsbParser, WaitsForAWholeBlock) {
    for (const std::string& block : {Block(4, kAccepted), ScanBlock(5, 3, 0), std::string(64, '\xff')}) {
        for (size_t size = 0; size < block.size(); ++size) {
            std::string buffer = block.substr(0, size);
            ReplyPacket reply;
            ASSERT_EQ(ParseUsbBuffer(buffer, reply), ParseNoFrame);
            ASSERT_EQ(buffer.size(), size);
            ASSERT_EQ(Told(reply), kUntouched);
        }
    }
}

TEST(UsbParser, TakesPacketsAndScansBlockByBlock) {
    std::string buffer = Block(4, kAccepted) + Block(3, kAccepted) + ScanBlock(56, 28, 1) + ScanBlock(0, 28, 0) +
                         Block(4, kBarcode) + "rest";
    Lines told;
    while (buffer.size() >= 64) {
        ReplyPacket reply;
        const size_t before = buffer.size();
        ASSERT_EQ(ParseUsbBuffer(buffer, reply), ParseOk);
        ASSERT_EQ(buffer.size(), before - 64);
        told.push_back(Told(reply));
    }
    EXPECT_EQ(buffer, "rest");
    EXPECT_EQ(told, (Lines{"5: 40 80 0B/01", kUntouched, "0: EE 1C 00/" + ToHexText(std::string(56, 'x')),
                           "0: EE 1C FF/", "9: EE 03 FF/31 32 33 34 35"}));
}

TEST(UsbParser, WarnsOfBadBlocksAndDropsThoseOfWrongChecksum) {
    LogReader log(LLWarnings);
    std::string tooLong = Block(4, ParseHexText("00 FF 40 04 80"));
    ReplyPacket packet;
    EXPECT_EQ(ParseUsbBuffer(tooLong, packet), ParseBadChecksum);
    EXPECT_EQ(tooLong, "");
    EXPECT_EQ(log.Take(), (Lines{"LLWarnings\t:Warning : Invalid Length,  Operand: @",
                                 "LLWarnings\t:Warning : CRC Check Failed, Operand: @,  CRC: \0"s}));

    // 59 to 61 fit the whole buffer but not what is left from byte 3 on: no line tells of it. The sum of this
    // one is FF.
    std::string tooLongForTheBlock = Block(4, ParseHexText("00 3C C3 00 00"));
    ReplyPacket silent;
    EXPECT_EQ(ParseUsbBuffer(tooLongForTheBlock, silent), ParseNoFrame);
    EXPECT_EQ(tooLongForTheBlock.size(), 64u);
    EXPECT_TRUE(log.Take().empty());

    std::string scan = ScanBlock(57, 9, 1);
    ReplyPacket barcode;
    EXPECT_EQ(ParseUsbBuffer(scan, barcode), ParseNoFrame);
    EXPECT_EQ(scan.size(), 64u);
    EXPECT_EQ(Told(barcode), "0: EE 09 00/");
    EXPECT_EQ(log.Take(), (Lines{"LLWarnings\t:Warning : Invalid Length,  Operand: \xEE"}));
}

TEST(UsbParser, ReadsALongPacketAsIfContiguousAndConsumesOneBlock) {
    std::string payload(70, '\0');
    std::string frame = ParseHexText("00 49 EE 00 00") + payload;
    frame += static_cast<char>(~(0x49 + 0xEE));
    std::string buffer = Block(4, frame.substr(0, 61)) + frame.substr(61);
    ReplyPacket reply;
    EXPECT_EQ(ParseUsbBuffer(buffer, reply), ParseOk);
    EXPECT_EQ(reply.parameters, payload.substr(1));
    EXPECT_EQ(buffer, frame.substr(61));
}

}  // namespace
}  // namespace quillet::test
