// SPDX-License-Identifier: MIT
#include "protocol/reply_parser.h"

#include <algorithm>
#include <cstddef>

#include "foundation/log.h"

namespace quillet {
namespace {

// Wire form of a reply: length (2 bytes), opcode, source, status, payload, checksum.
constexpr size_t kReplyHeaderSize = 5;
constexpr size_t kReplyUncounted = 3;    // length field and checksum
constexpr uint16_t kReplyMinLength = 3;  // opcode, source and status are counted

// A block of a USB link: its kind at byte 1, a packet or a piece of a barcode from byte 3.
constexpr size_t kKindOffset = 1;
constexpr size_t kScanSizeOffset = 2;
constexpr size_t kContentOffset = 3;
constexpr size_t kCodeTypeOffset = 61;
constexpr size_t kMoreOffset = 63;
constexpr uint8_t kKindScan = 2;
constexpr uint8_t kKindPacket = 4;
constexpr size_t kMaxScanSize = 56;

uint8_t ByteAt(std::string_view buffer, size_t at) {
    return static_cast<uint8_t>(buffer[at]);
}

// The length field; the buffer holds at least its two bytes.
uint16_t LengthOf(std::string_view buffer) {
    return static_cast<uint16_t>(ByteAt(buffer, 0) << 8 | ByteAt(buffer, 1));
}

bool LengthFits(const ReplyPacket& reply, size_t bufferSize) {
    return reply.length != 0 && reply.length + kReplyUncounted <= bufferSize;
}

// Opcodes and checksums stand in the log as one raw character each.
void LogInvalidLength(LogLevel level, uint8_t opcode) {
    if (!LogWanted(level)) return;
    std::string text = "Warning : Invalid Length,  Operand: ";
    text += static_cast<char>(opcode);
    log_detail::Write(level, text);
}

void LogBadChecksum(LogLevel level, const ReplyPacket& reply) {
    if (!LogWanted(level)) return;
    std::string text = "Warning : CRC Check Failed, Operand: ";
    text += static_cast<char>(reply.opcode);
    text += ",  CRC: ";
    text += static_cast<char>(reply.checksum);
    log_detail::Write(level, text);
}

// A length that is too large goes on to the checksum test, which it normally fails: the block is dropped
// then.
ParseResult ParsePacketBlock(std::string_view buffer, ReplyPacket& reply) {
    ParseResult result = ParseFrame(buffer.substr(kContentOffset), reply);
    if (!LengthFits(reply, buffer.size())) {
        LogInvalidLength(LLWarnings, reply.opcode);
        result = ParseNoFrame;
    }
    if (!VerifyChecksum(reply)) {
        LogBadChecksum(LLWarnings, reply);
        result = ParseBadChecksum;
    }
    return result;
}

ParseResult ParseScanBlock(std::string_view buffer, ReplyPacket& reply) {
    ParseResult result = ParseOk;
    reply.opcode = OpcodeBarcode;
    reply.status = ByteAt(buffer, kCodeTypeOffset);
    reply.firstParameter = ByteAt(buffer, kMoreOffset) == 0 ? kLastBlock : uint8_t{0};
    const size_t size = ByteAt(buffer, kScanSizeOffset);
    if (size > kMaxScanSize) {
        LogInvalidLength(LLWarnings, reply.opcode);
        result = ParseNoFrame;
    } else {
        reply.parameters.assign(buffer.substr(kContentOffset, size));  // last: it needs memory
    }
    return result;
}

}  // namespace

ParseResult ParseFrame(std::string_view buffer, ReplyPacket& reply) {
    if (buffer.size() < kReplyHeaderSize) return ParseNoFrame;
    reply.length = LengthOf(buffer);
    reply.opcode = ByteAt(buffer, 2);
    reply.source = ByteAt(buffer, 3);
    reply.status = ByteAt(buffer, 4);
    if (!LengthFits(reply, buffer.size())) return ParseNoFrame;
    if (reply.length < kReplyMinLength) throw ParseError("reply length below its header");
    const std::string_view payload = buffer.substr(kReplyHeaderSize, reply.length - kReplyMinLength);
    reply.firstParameter = payload.empty() ? kLastBlock : ByteAt(payload, 0);
    reply.checksum = ByteAt(buffer, reply.length + kReplyUncounted - 1);
    reply.parameters.assign(payload.substr(std::min<size_t>(payload.size(), 1)));  // last: it needs memory
    return ParseOk;
}

std::string_view PayloadOf(std::string_view frame) {
    if (frame.size() < kReplyHeaderSize) return {};
    const size_t length = LengthOf(frame);
    if (length < kReplyMinLength || length + kReplyUncounted > frame.size()) return {};
    return frame.substr(kReplyHeaderSize, length - kReplyMinLength);
}

std::string_view FindFrameInBlocks(std::string_view blocks) {
    for (; blocks.size() >= kHidBlockSize; blocks.remove_prefix(kHidBlockSize)) {
        if (ByteAt(blocks, kKindOffset) != kKindPacket) continue;
        return blocks.substr(kContentOffset, kHidBlockSize - kContentOffset);
    }
    return {};
}

ParseResult ParseUsbBuffer(std::string& buffer, ReplyPacket& reply) {
    if (buffer.size() < kHidBlockSize) return ParseNoFrame;
    ParseResult result = ParseOk;
    switch (ByteAt(buffer, kKindOffset)) {
        case kKindPacket: result = ParsePacketBlock(buffer, reply); break;
        case kKindScan: result = ParseScanBlock(buffer, reply); break;
        default:  // skipped, with no line in the log
            break;
    }
    if (result != ParseNoFrame) buffer.erase(0, kHidBlockSize);
    return result;
}

ParseResult ParseSerialBuffer(std::string& buffer, ReplyPacket& reply) {
    ParseFrame(buffer, reply);
    if (!LengthFits(reply, buffer.size())) {
        LogInvalidLength(LLCritical, reply.opcode);
        return ParseNoFrame;
    }
    buffer.erase(0, reply.length + kReplyUncounted);
    if (VerifyChecksum(reply)) return ParseOk;
    LogBadChecksum(LLCritical, reply);
    return ParseBadChecksum;
}

}  // namespace quillet
