// SPDX-License-Identifier: MIT
// Calls that ask the scanner: a setting's value, its serial number.
#include <cstring>
#include <string>
#include <string_view>

#include "api/commands/exchange_calls.h"
#include "api/handle/scanner_object.h"
#include "foundation/log.h"
#include "protocol/catalogue.h"
#include "protocol/reply_parser.h"
#include "transport/link_kinds.h"

namespace quillet {
namespace {

constexpr uint32_t kQueryTimeoutMs = 2000;
constexpr uint32_t kVersionTimeoutMs = 1000;

// The value in the reply to a query of the setting with this opcode, which comes first in the payload.
int32_t ReadSettingValue(std::string_view frame, uint8_t opcode, std::string_view& value) {
    const std::string_view payload = PayloadOf(frame);
    if (payload.empty() || static_cast<uint8_t>(payload[0]) != opcode) return ResultFailure;
    value = payload.substr(1);
    return ResultSuccess;
}

int32_t QuerySetting(CScanner& scanner, CommandId id, std::string& value) {
    uint8_t opcode = 0;
    FindOpcode(id, opcode);
    std::string number;
    FindNumber(id, number);
    CommandPacket packet(OpcodeQuerySetting, static_cast<char>(opcode) + number);
    const LinkKind& kind = scanner.Kind();  // before the exchange: a closing behind it may forget the link
    const std::optional<std::string> reply = QueryScanner(scanner, packet, kQueryTimeoutMs);
    if (!reply) return ResultNoExist;
    std::string_view found;
    const int32_t result = ReadSettingValue(kind.frame(*reply), opcode, found);
    value = found;
    return result;
}

}  // namespace

std::optional<std::string> QueryScanner(CScanner& scanner, CommandPacket& packet, uint32_t timeoutMs) {
    ExchangeOutcome outcome = RunDirectIO(scanner, ToWireBytes(packet), timeoutMs);
    if (outcome.result != ResultSuccess) return std::nullopt;
    if (outcome.reply.size() > kMaxQueryReply) {
        LogBufferTooSmall(outcome.reply);
        return std::nullopt;
    }
    return std::move(outcome.reply);
}

// The reply's text reads "SN:<number> App:<version>" with one separator before "App:".
int32_t ReadSerialNumber(CScanner& scanner, std::string& number) {
    constexpr std::string_view kNumberMark = "SN:";
    constexpr std::string_view kVersionMark = "App:";
    CommandPacket packet(OpcodeVersion, std::string(1, '\0'));
    const std::optional<std::string> reply = QueryScanner(scanner, packet, kVersionTimeoutMs);
    if (!reply) return ResultNoExist;
    LogStoredResult(scanner);
    const size_t mark = reply->find(kNumberMark);
    const size_t end = reply->find(kVersionMark);
    if (mark == std::string::npos || end == std::string::npos) return ResultNoExist;
    const size_t begin = mark + kNumberMark.size();
    if (end < begin) return ResultNoExist;
    number = end > begin ? reply->substr(begin, end - 1 - begin) : std::string();
    return ResultSuccess;
}

void LogBufferTooSmall(const std::string& result) {
    LogInfo("    | the buffer not enough memory : %d", static_cast<uint64_t>(result.size()));
}

}  // namespace quillet

using namespace quillet;

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): exported so
ResultCode QueryCommandSetting(ScannerHandle handle, int32_t commandId, int32_t bufferSize, uint8_t* buffer,
                               int32_t* length) {
    if (FindCommand(commandId) == nullptr || buffer == nullptr || length == nullptr) return ResultBadArgument;
    if (handle == nullptr) return ResultNoExist;
    return Guarded(ResultNoExist, [&] {
        std::string value;
        const int32_t result = QuerySetting(HandleCall(handle).Scanner(), commandId, value);
        if (result != ResultSuccess) return result;
        const CallerBuffer out{buffer, CallerLength(bufferSize), length};
        if (!out.Fits(value)) {
            std::memset(buffer, 0, out.size);
            return static_cast<int32_t>(ResultReplyTooLong);
        }
        out.Fill(value);
        return static_cast<int32_t>(ResultSuccess);
    });
}

ResultCode getScannerVersion(ScannerHandle handle, uint8_t* buffer, int32_t bufferSize, int32_t* length) {
    if (handle == nullptr || buffer == nullptr || bufferSize <= 0 || length == nullptr) return ResultBadArgument;
    return Guarded(ResultNoExist, [&] {
        std::string number;
        const int32_t result = ReadSerialNumber(HandleCall(handle).Scanner(), number);
        if (result != ResultSuccess || number.empty()) return result;
        const CallerBuffer out{buffer, CallerLength(bufferSize), length};
        if (!out.Fits(number)) {
            LogBufferTooSmall(number);
            return static_cast<int32_t>(ResultBufferTooSmall);
        }
        out.Fill(number);
        return static_cast<int32_t>(ResultSuccess);
    });
}
