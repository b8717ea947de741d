// SPDX-License-Identifier: MIT
// What differs from one kind of link to the next: a record each, which lies in the kind's own source file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "protocol/reply_parser.h"
#include "transport/comm.h"

namespace quillet {

// Functions that may be null say so.
struct LinkKind {
    uint32_t linkType;
    std::string_view name;           // value of "protocol" in connection strings
    std::string_view interfaceName;  // in the statistics text
    bool statisticsSupported;        // if not, a request for statistics is told in the log

    // The number under which a link is listed; kNoLinkNumber if the key stands for no link.
    int32_t (*number)(const LinkKey& key);
    // The port that a connection string names. Throws StringError. Null: this kind has no port numbers.
    uint32_t (*port)(const ParameterList& parameters);
    // Whether a service may be opened by what the system lists; writes to the log. Throws StringError. Null:
    // the device needn't be there before it is enabled.
    bool (*check)(const ParameterList& parameters, const DiscoveredLists& found);
    // Whether a device is there, for the report at enabling. Null: the first report is the power thread's.
    bool (*isPresent)();
    // Not opened yet. Throws LinkError.
    std::shared_ptr<CComm> (*make)(const LinkSetup& setup);
    // Takes the first frame off what was received.
    ParseResult (*parse)(std::string& buffer, ReplyPacket& reply);
    // The first reply frame in all that was received during an exchange; empty if there is none.
    std::string_view (*frame)(std::string_view received);
};

// The kind of a link type; USB for a number that stands for none, LinkNone included.
const LinkKind& KindOf(uint32_t linkType);
// Null if no kind has the name.
const LinkKind* FindKind(std::string_view name);

}  // namespace quillet
