// SPDX-License-Identifier: MIT
#include "service/received_frame.h"

#include "foundation/log.h"
#include "transport/link_kinds.h"

namespace quillet {
namespace {

ParseResult Parse(uint32_t linkType, std::string& buffer, ReplyPacket& reply) {
    LogTrace trace("CScanner::ParsingData");
    const ParseResult result = KindOf(linkType).parse(buffer, reply);
    LogInfo("    | Data.length: ", static_cast<uint64_t>(reply.parameters.size()));
    if (reply.opcode != OpcodeStatisticsD0 && reply.opcode != OpcodeQueryReply) {
        LogInfo("    | Data Ascii: ", AsciiOf{reply.parameters});
        LogInfo("    | Data Hex: ", HexOf{reply.parameters});
    }
    return result;
}

}  // namespace

ParseResult ParseReceived(uint32_t linkType, std::string& buffer, ReplyPacket& reply) {
    try {
        return Parse(linkType, buffer, reply);
    } catch (const ParseError&) {
        return ParseNotRun;
    }
}

bool AppendWithinReason(std::string& bytes, std::string_view more) {
    constexpr size_t kMaxAssembledBytes = 1 << 20;
    if (bytes.size() + more.size() <= kMaxAssembledBytes) {
        bytes += more;
        return true;
    }
    LogCritical("Error: too much data without an end, dropped: ", static_cast<uint64_t>(bytes.size()));
    return false;
}

}  // namespace quillet
