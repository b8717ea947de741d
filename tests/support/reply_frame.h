// SPDX-License-Identifier: MIT
// A reply as a scanner sends it.
#pragma once

#include <cstdint>
#include <string>

#include "protocol/packet.h"

namespace quillet::test {

// Before the text of a barcode, or of its last part.
inline const std::string kLast = "\xFF";

inline std::string Frame(uint8_t opcode, uint8_t status, const std::string& payload, uint8_t spoil = 0) {
    ReplyPacket reply;
    reply.length = static_cast<uint16_t>(payload.size() + 3);
    reply.opcode = opcode;
    reply.status = status;
    reply.firstParameter = payload.empty() ? 0xFF : static_cast<uint8_t>(payload[0]);
    reply.parameters = payload.empty() ? "" : payload.substr(1);
    const char head[] = {static_cast<char>(reply.length >> 8), static_cast<char>(reply.length),
                         static_cast<char>(opcode), 0, static_cast<char>(status)};
    return std::string(head, 5) + payload + static_cast<char>(ReplyChecksum(reply) + spoil);
}

}  // namespace quillet::test
