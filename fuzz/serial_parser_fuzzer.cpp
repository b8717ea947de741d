// SPDX-License-Identifier: MIT
// The byte stream of a serial link. However it is cut into reads, the same frames come out.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_input.h"
#include "protocol/reply_parser.h"

using namespace quillet;

namespace {

// What one stream has given: of each frame its result, opcode, status and payload.
struct Outcome {
    std::string buffer;
    std::vector<std::string> frames;
    bool raised = false;
};

// Parses until nothing more comes out.
void Drain(Outcome& outcome) {
    while (!outcome.raised) {
        const std::string before = outcome.buffer;
        ReplyPacket reply;
        ParseResult result = ParseNotRun;
        try {
            result = ParseSerialBuffer(outcome.buffer, reply);
        } catch (const ParseError&) {
            outcome.raised = true;
        }
        if (result == ParseNotRun || result == ParseNoFrame) {
            fuzz::Require(outcome.buffer == before);
            return;
        }
        fuzz::Require(result == ParseOk || result == ParseBadChecksum);
        fuzz::Require(outcome.buffer == before.substr(reply.length + 3u));
        outcome.frames.push_back(std::to_string(result) + "," + std::to_string(reply.opcode) + "," +
                                 std::to_string(reply.status) + "," + std::to_string(reply.firstParameter) + "," +
                                 reply.parameters);
    }
}

Outcome ParseInChunks(std::string_view stream, size_t chunkSize) {
    Outcome outcome;
    for (size_t at = 0; at < stream.size(); at += chunkSize) {
        outcome.buffer += stream.substr(at, chunkSize);
        Drain(outcome);
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view input = fuzz::Text(data + 1, size - 1);
    const Outcome whole = ParseInChunks(input, std::max<size_t>(input.size(), 1));
    const Outcome cut = ParseInChunks(input, data[0] % 64u + 1u);
    fuzz::Require(whole.frames == cut.frames && whole.raised == cut.raised && whole.buffer == cut.buffer);
    return 0;
}
