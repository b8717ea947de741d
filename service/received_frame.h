// SPDX-License-Identifier: MIT
// What barcodes and replies have in common on their way in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/packet.h"
#include "protocol/reply_parser.h"

namespace quillet {

// Takes a frame off the front of bytes that a link of this type has delivered. ParseNotRun if the parser raised; throws
// for want of memory alone, as the parsers do.
ParseResult ParseReceived(uint32_t linkType, std::string& buffer, ReplyPacket& reply);

// A device that never ends what it has begun must not fill the host's memory. False if there is no room for more; what
// was there stays.
bool AppendWithinReason(std::string& bytes, std::string_view more);

}  // namespace quillet
