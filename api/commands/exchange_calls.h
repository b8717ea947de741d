// SPDX-License-Identifier: MIT
// Exchanges behind the exported queries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/packet.h"
#include "service/scanner.h"

namespace quillet {

// Replies longer than this are refused by the queries.
inline constexpr size_t kMaxQueryReply = 512;

// Sends bytes and gives the reply: what directIO does, before it looks at the caller's buffer.
ExchangeOutcome RunDirectIO(CScanner& scanner, std::string bytes, uint32_t timeoutMs);

// Reads the stored result, since the log shows that read. No call returns it: each returns the result of its own
// exchange.
void LogStoredResult(CScanner& scanner);

// Sends a command and gives the reply; nothing if the exchange failed or the reply is too long.
std::optional<std::string> QueryScanner(CScanner& scanner, CommandPacket& packet, uint32_t timeoutMs);

// The serial number that the scanner tells: 0 with the number, which may be empty, or 109.
int32_t ReadSerialNumber(CScanner& scanner, std::string& number);

// The result doesn't fit a caller's buffer: the line that says so.
void LogBufferTooSmall(const std::string& result);

}  // namespace quillet
