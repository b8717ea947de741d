// SPDX-License-Identifier: MIT
// Takes received bytes apart into ReplyPacket records. Pure functions of the caller's buffer and record. Where one throws
// for want of memory, everything of the record but the payload is filled in already.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "protocol/packet.h"

namespace quillet {

enum ParseResult : int32_t {
    ParseOk = 0,           // a frame was taken from the front of the buffer
    ParseNoFrame = 1,      // no valid frame, or not yet a whole one; the buffer is as it was
    ParseBadChecksum = 2,  // taken from the buffer, but wrong
    ParseNotRun = 255      // a caller's starting value; no parser returns it
};

// A length field of 1 or 2, which has no room for the bytes that it counts.
class ParseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The wire form of a reply at the front of the buffer: ParseOk or ParseNoFrame. Consumes nothing and doesn't
// test the checksum. Throws ParseError.
ParseResult ParseFrame(std::string_view buffer, ReplyPacket& reply);

// The payload of the reply at the front of the bytes; empty if it has none, or isn't whole.
std::string_view PayloadOf(std::string_view frame);

// One 64-byte block of a USB link: a packet, or a raw scan block. Throws ParseError, with nothing consumed.
ParseResult ParseUsbBuffer(std::string& buffer, ReplyPacket& reply);

// The bytes from the first frame on, as far as its block goes, in the blocks of a USB link; empty if none holds a packet.
std::string_view FindFrameInBlocks(std::string_view blocks);

// One frame of a serial link. Throws ParseError, with nothing consumed.
ParseResult ParseSerialBuffer(std::string& buffer, ReplyPacket& reply);

}  // namespace quillet
