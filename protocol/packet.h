// SPDX-License-Identifier: MIT
// One command to the scanner, one parsed frame from it, and the bytes of both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quillet {

// Opcodes with a meaning to the library itself; settings have theirs in the catalogue.
enum Opcode : uint8_t {
    OpcodeSettingList = 0x5D,   // a list of setting items, as a setting code carries it
    OpcodeVersion = 0x7E,       // asks for the version text
    OpcodeQuerySetting = 0xD1,  // asks for the value of a setting
    OpcodeStatisticsD0 = 0xD0,  // its payload isn't logged
    OpcodeReplyD8 = 0xD8,       // a command that the scanner answers, not a setting
    OpcodeQueryReply = 0xE8,    // a setting's value; ends an exchange whatever its status
    OpcodeBarcode = 0xEE        // to the scanner: barcode frames on or off; from it: barcode data
};

// Status of a reply that the scanner has accepted a command with.
inline constexpr uint8_t kReplyAccepted = 0x80;
// `firstParameter` of the last block of a barcode, and of a reply without a payload.
inline constexpr uint8_t kLastBlock = 0xFF;

// A command. Wire form: length, opcode, source, status, parameters, checksum.
struct CommandPacket {
    // Takes the parameters over; none become the single byte 0.
    CommandPacket(uint8_t packetOpcode, std::string packetParameters, uint8_t packetStatus = 0);

    uint8_t length = 0;  // parameter bytes + 3, modulo 256; set by ToWireBytes
    uint8_t opcode;
    uint8_t source = 4;
    uint8_t status;
    uint8_t reserved = 0;  // counts in the checksum, isn't sent
    std::string parameters;
    uint8_t checksum = 0;  // set by ToWireBytes
};

// A frame from the scanner. A new record is what the parsers expect: status 130 means that nothing was
// parsed.
struct ReplyPacket {
    uint16_t length = 0;  // payload bytes + 3
    uint8_t opcode = 0;
    uint8_t source = 0;
    uint8_t status = 130;        // of barcode data: the code type
    uint8_t firstParameter = 0;  // first payload byte; 255 if there is none
    std::string parameters;      // payload without its first byte
    uint8_t checksum = 0;        // as received
};

inline constexpr size_t kHidBlockSize = 64;
inline constexpr size_t kMaxHidWireSize = 62;  // what a block has room for
inline constexpr uint8_t kHidReportId = 4;
inline constexpr size_t kMaxParameterSize = 252;  // what the length byte can count

// One's complement of the 8-bit sum of everything before the checksum, `reserved` included.
uint8_t PacketChecksum(const CommandPacket& packet);
uint8_t ReplyChecksum(const ReplyPacket& reply);
bool VerifyChecksum(const ReplyPacket& reply);

// The wire form; writes length and checksum back, so that a record can be changed and sent again.
std::string ToWireBytes(CommandPacket& packet);

// True if the wire bytes fit a block.
inline bool FitsHidBlock(std::string_view wireBytes) {
    return wireBytes.size() <= kMaxHidWireSize;
}
// A block of 64 bytes: report id, number of wire bytes, wire bytes, zeros. They must fit (FitsHidBlock).
std::string ToHidBlock(std::string_view wireBytes);

}  // namespace quillet
