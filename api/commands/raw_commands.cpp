// SPDX-License-Identifier: MIT
// Calls that pass on what the application has made itself.
#include <string>
#include <utility>

#include "api/commands/exchange_calls.h"
#include "api/handle/scanner_object.h"
#include "foundation/text.h"
#include "service/property.h"

namespace quillet {
namespace {

int32_t SendHexText(CScanner& scanner, const char* hexText) {
    scanner.SendBytes(ParseHexText(hexText));
    return ResultSuccess;  // whatever became of the write
}

}  // namespace

ExchangeOutcome RunDirectIO(CScanner& scanner, std::string bytes, uint32_t timeoutMs) {
    ExchangeOutcome outcome = scanner.ExchangeBytes(std::move(bytes), timeoutMs);
    LogStoredResult(scanner);
    return outcome;
}

void LogStoredResult(CScanner& scanner) {
    int32_t stored = 0;
    scanner.GetPropertyNumber(PropResultCode, &stored);
}

}  // namespace quillet

using namespace quillet;

ResultCode directIO(ScannerHandle handle, const uint8_t* command, int32_t commandSize, uint8_t* reply,
                    int32_t replySize, int32_t* replyLength, int64_t timeoutMs) {
    if (handle == nullptr || command == nullptr || commandSize <= 0 || reply == nullptr || replySize <= 0 ||
        replyLength == nullptr) {
        return ResultBadArgument;
    }
    return Guarded(ResultFailure, [&]() -> ResultCode {
        std::string bytes(reinterpret_cast<const char*>(command), CallerLength(commandSize));
        const ExchangeOutcome outcome =
            RunDirectIO(HandleCall(handle).Scanner(), std::move(bytes), static_cast<uint32_t>(timeoutMs));
        if (outcome.result != ResultSuccess || outcome.reply.empty()) return outcome.result;
        const CallerBuffer out{reply, CallerLength(replySize), replyLength};
        if (!out.Fits(outcome.reply)) {
            LogBufferTooSmall(outcome.reply);
            return ResultBufferTooSmall;
        }
        out.Fill(outcome.reply);
        return ResultSuccess;
    });
}

ResultCode CommandInteraction(ScannerHandle handle, const char* hexText) {
    if (handle == nullptr || hexText == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return SendHexText(HandleCall(handle).Scanner(), hexText); });
}

ResultCode PortCommandInteraction(ScannerHandle handle, const char* connection, const char* hexText) {
    if (handle == nullptr || connection == nullptr || hexText == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] {
        HandleCall call(handle);
        const int32_t opened = OpenScanner(call.Object(), connection);
        return opened == ResultSuccess ? SendHexText(call.Scanner(), hexText) : opened;
    });
}
