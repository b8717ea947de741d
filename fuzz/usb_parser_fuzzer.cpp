// SPDX-License-Identifier: MIT
// Blocks of a USB link, one after the other.
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "protocol/reply_parser.h"

using namespace quillet;

namespace {

// False when the parser has left the buffer as it was.
bool ParseOne(std::string& buffer) {
    const std::string before = buffer;
    ReplyPacket reply;
    ParseResult result = ParseNotRun;
    try {
        result = ParseUsbBuffer(buffer, reply);
    } catch (const ParseError&) {
        fuzz::Require(before[1] == 4);  // only packets have a length of their own
    }
    if (result == ParseNotRun || result == ParseNoFrame) {
        fuzz::Require(buffer == before);
        return false;
    }
    fuzz::Require(result == ParseOk || result == ParseBadChecksum);
    fuzz::Require(buffer == before.substr(kHidBlockSize));
    fuzz::Require(reply.parameters.size() < before.size());
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input = fuzz::Text(data, size);
    ReplyPacket reply;
    try {
        ParseFrame(input, reply);
    } catch (const ParseError&) {
        fuzz::Require(reply.length == 1 || reply.length == 2);
    }
    std::string buffer(input);
    while (ParseOne(buffer)) {
    }
    return 0;
}
