// SPDX-License-Identifier: MIT
#include "protocol/packet.h"

#include <algorithm>
#include <utility>

namespace quillet {
namespace {

// What `length` counts besides the parameters: opcode, source and status.
constexpr size_t kCountedHeaderSize = 3;
constexpr size_t kHidHeaderSize = kHidBlockSize - kMaxHidWireSize;

uint8_t SumOf(std::string_view bytes) {
    unsigned sum = 0;
    for (char c : bytes) sum += static_cast<unsigned char>(c);
    return static_cast<uint8_t>(sum);
}

uint8_t Complement(unsigned sum) {
    return static_cast<uint8_t>(~sum);
}

char CharOf(size_t value) {
    return static_cast<char>(static_cast<uint8_t>(value));
}

}  // namespace

CommandPacket::CommandPacket(uint8_t packetOpcode, std::string packetParameters, uint8_t packetStatus)
    : opcode(packetOpcode), status(packetStatus), parameters(std::move(packetParameters)) {
    if (parameters.empty()) parameters.push_back('\0');
}

uint8_t PacketChecksum(const CommandPacket& packet) {
    const unsigned header = 0u + packet.length + packet.opcode + packet.source + packet.status + packet.reserved;
    return Complement(header + SumOf(packet.parameters));
}

uint8_t ReplyChecksum(const ReplyPacket& reply) {
    const unsigned lengthBytes = (reply.length >> 8) + (reply.length & 0xFFu);
    const unsigned header = lengthBytes + reply.opcode + reply.source + reply.status + reply.firstParameter;
    return Complement(header + SumOf(reply.parameters));
}

bool VerifyChecksum(const ReplyPacket& reply) {
    return reply.checksum == ReplyChecksum(reply);
}

std::string ToWireBytes(CommandPacket& packet) {
    packet.length = static_cast<uint8_t>(packet.parameters.size() + kCountedHeaderSize);
    packet.checksum = PacketChecksum(packet);
    std::string wire;
    wire.reserve(packet.parameters.size() + 5);
    for (uint8_t byte : {packet.length, packet.opcode, packet.source, packet.status}) wire.push_back(CharOf(byte));
    wire += packet.parameters;
    wire.push_back(CharOf(packet.checksum));
    return wire;
}

std::string ToHidBlock(std::string_view wireBytes) {
    const size_t size = std::min(wireBytes.size(), kMaxHidWireSize);
    std::string block(kHidBlockSize, '\0');
    block[0] = CharOf(kHidReportId);
    block[1] = CharOf(size);
    wireBytes.copy(block.data() + kHidHeaderSize, size);
    return block;
}

}  // namespace quillet
