// SPDX-License-Identifier: MIT
#include "protocol/reply_parser.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "support/log_reader.h"

namespace quillet {
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

std::string ScanBlock(uint8_t size, uint8_t codeType, uint8_t more, char fill = 'x') {
    std::string block = Block(2, std::string(58, fill));
    block[2] = static_cast<char>(size);
    block[61] = static_cast<char>(codeType);
    block[63] = static_cast<char>(more);
    return block;
}

void ExpectUntouched(const ReplyPacket& reply) {
    EXPECT_EQ(reply.length, 0);
    EXPECT_EQ(reply.opcode, 0);
    EXPECT_EQ(reply.status, 130);
    EXPECT_EQ(reply.firstParameter, 0);
    EXPECT_EQ(reply.parameters, "");
}

// What the parser makes of a frame: status, first parameter and the others.
std::string Told(const ReplyPacket& reply) {
    return ToHexText({reinterpret_cast<const char*>(&reply.status), 1}) + "/" +
           ToHexText({reinterpret_cast<const char*>(&reply.firstParameter), 1}) + "/" + ToHexText(reply.parameters);
}

TEST(SerialParser, TakesOneFramePerCallAtEverySplitPoint) {
    const std::string stream = kAccepted + kBarcode + kEmptyReply;
    const Lines expected = {"80/0B/01", "03/FF/31 32 33 34 35", "80/FF/"};
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
    test::LogReader log(LLCritical);
    std::string wrong = kAccepted;
    wrong.back() = '\x2b';
    std::string buffer = wrong + kBarcode;
    ReplyPacket first, second, third;
    EXPECT_EQ(ParseSerialBuffer(buffer, first), ParseBadChecksum);
    EXPECT_EQ(ParseSerialBuffer(buffer, second), ParseOk);
    EXPECT_EQ(Told(second), "03/FF/31 32 33 34 35");
    EXPECT_EQ(ParseSerialBuffer(buffer, third), ParseNoFrame);
    ExpectUntouched(third);
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
            ExpectUntouched(reply);
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
        told.push_back(NumToHexText(uint64_t{reply.opcode}) + " " + Told(reply));
    }
    EXPECT_EQ(buffer, "rest");
    EXPECT_EQ(told, (Lines{"40 80/0B/01", "00 82/00/", "ee 1C/00/" + ToHexText(std::string(56, 'x')), "ee 1C/FF/",
                           "ee 03/FF/31 32 33 34 35"}));
}

TEST(UsbParser, WarnsOfBadBlocksAndDropsThoseOfWrongChecksum) {
    test::LogReader log(LLWarnings);
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
    EXPECT_EQ(barcode.opcode, 238);
    EXPECT_EQ(Told(barcode), "09/00/");
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
}  // namespace quillet
