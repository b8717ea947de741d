// SPDX-License-Identifier: MIT
// Exchanges of raw bytes, of packets and of the device model.
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "protocol/catalogue.h"
#include "service/scanner.h"

namespace quillet {
namespace {

constexpr uint32_t kDirectIOTimeoutMs = 18000;

// "parameters" or "status|parameters", both hexadecimal, where the status is 01 or 08. False for anything else.
bool ReadHexCommand(const std::string& text, std::string& parameters, uint8_t& status) {
    const std::vector<std::string> parts = Split(text, '|');
    if (parts.size() > 2) return false;
    if (parts.size() == 2) {
        if (parts[0] != "01" && parts[0] != "08") return false;
        status = static_cast<uint8_t>(ParseHexText(parts[0])[0]);
    }
    parameters = parts.empty() ? std::string() : ParseHexText(parts.back());
    return true;
}

}  // namespace

ExchangeOutcome CScanner::ExchangeBytes(std::string bytes, uint32_t timeoutMs) {
    LogTrace trace("CScanner::ExchangeBytes");
    ExchangePlan plan;
    plan.send = [&] { SendBytes(std::move(bytes)); };
    plan.timeoutMs = timeoutMs;
    return RunExchange(plan);
}

ExchangeOutcome CScanner::ExchangePacket(CommandPacket& packet, uint32_t timeoutMs) {
    LogTrace trace("CScanner::ExchangePacket");
    ExchangePlan plan;
    plan.send = [&] { SendPacket(packet); };
    plan.timeoutMs = timeoutMs;
    plan.waits = IsReplyCommand(packet.opcode);
    plan.eventNumber = packet.opcode;
    plan.rawReply = false;
    return RunExchange(plan);
}

ExchangeOutcome CScanner::RunExchange(const ExchangePlan& plan) {
    ExchangeOutcome outcome;
    ScopeExit leaving([&] {
        m_ResultCode = outcome.result;
        LogInfo("    | ResultCode: %d", outcome.result);
    });
    outcome = m_Exchange.Run(plan);
    return outcome;
}

void CScanner::HandleDirectIOEvent(const EventRecord& record) {
    LogTrace trace("CScanner::HandleDirectIOEvent");
    uint32_t linkType = 0;
    std::string_view block;
    record.GetDirectIO(linkType, block);
    m_Exchange.TakeBlock(block, linkType);
}

void CScanner::HandleStatusUpdateEvent(const EventRecord& record) {
    LogTrace trace("CScanner::HandleStatusUpdateEvent");
    uint32_t status = PowerUnknown;
    record.GetStatusUpdate(status);
}

ResultCode CScanner::DirectIO(int32_t command, const int32_t* data, const char* text, const CallerBuffer& buffer) {
    LogTrace trace("CScanner::DirectIO");
    LogInfo("    | Command: ", command);
    LogInfo("    | pData: ", *data);
    LogInfo("    | pString:  ", text);
    const auto opcode = static_cast<uint8_t>(command & 0xFF);
    if (!IsDirectIOCommand(opcode)) return m_ResultCode = ResultIllegal;
    std::string parameters = DecodeBinaryText(text, ConversionMode());
    uint8_t status = 0;
    if (*data == 0 && !ReadHexCommand(std::string(parameters), parameters, status)) return m_ResultCode = ResultIllegal;
    CommandPacket packet(opcode, std::move(parameters), status);
    const ExchangeOutcome outcome = ExchangePacket(packet, kDirectIOTimeoutMs);
    if (outcome.result != ResultSuccess) return outcome.result;
    if (!buffer.Fits(outcome.reply)) {
        LogInfo("    | the buffer not enough memory : %d", static_cast<uint64_t>(outcome.reply.size()));
        return ResultBufferTooSmall;
    }
    buffer.Fill(outcome.reply);
    return ResultSuccess;
}

}  // namespace quillet
