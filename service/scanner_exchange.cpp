// Exchanges: one thread sends and sleeps, the read thread recognises the reply and wakes it.
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "platform/clock.h"
#include "protocol/catalogue.h"
#include "service/scanner.h"

namespace quillet {
namespace {

// No exchange takes less; a reply that comes earlier is found when this is over.
constexpr uint32_t kReplyDelayMs = 300;
constexpr uint32_t kDirectIOTimeoutMs = 18000;

uint32_t LeftOf(uint32_t timeoutMs, int64_t startNs) {
    if (timeoutMs == platform::kNoLimitMs) return timeoutMs;
    const int64_t passedMs = (platform::TheClock().NowNs() - startNs) / 1'000'000;
    return passedMs >= timeoutMs ? 0 : timeoutMs - static_cast<uint32_t>(passedMs);
}

}  // namespace

// What differs between the two forms of an exchange.
struct CScanner::ExchangePlan {
    std::function<void()> send;
    uint32_t timeoutMs = 0;
    bool waits = true;  // some commands are never answered
    uint32_t eventNumber = 1;
    bool rawReply = true;  // without a payload, the raw bytes are the reply
};

ExchangeOutcome CScanner::ExchangeBytes(std::string bytes, uint32_t timeoutMs) {
    LogTrace trace("CScanner::ExchangeBytes");
    ExchangePlan plan;
    plan.send = [&] { SendBytes(std::move(bytes)); };
    plan.timeoutMs = timeoutMs;
    return RunExchange(plan);
}

ExchangeOutcome CScanner::ExchangePacket(CommandPacket& packet, uint8_t opcode, uint32_t timeoutMs) {
    LogTrace trace("CScanner::ExchangePacket");
    ExchangePlan plan;
    plan.send = [&] { SendPacket(packet); };
    plan.timeoutMs = timeoutMs;
    plan.waits = IsReplyCommand(opcode);
    plan.eventNumber = opcode;
    plan.rawReply = false;
    return RunExchange(plan);
}

ExchangeOutcome CScanner::RunExchange(const ExchangePlan& plan) {
    ExchangeOutcome outcome;
    ScopeExit leaving([&] {
        m_ResultCode = outcome.result;
        LogInfo("    | ResultCode: %d", outcome.result);
    });
    if (!m_Status.Has(StatusEnabled) || !m_Status.TrySet(StatusExchange)) {
        outcome.result = ResultIllegal;
        return outcome;
    }
    ScopeExit ended([this] { EndExchange(); });
    m_ExchangeWithoutLimit = plan.waits && plan.timeoutMs == platform::kNoLimitMs;
    BeginExchange();
    // Asked after the reset of m_BreakEvent: whoever breaks exchanges off first changes one of these, so that either the
    // change is seen here or the signal comes after the reset.
    if (m_Closing || WaitsAreEnded() || !m_Status.Has(StatusEnabled)) {
        outcome.result = ResultIllegal;
        return outcome;
    }
    plan.send();
    outcome = AwaitReply(plan);
    return outcome;
}

// 112 if no reply came in time, something of it was lost, or the exchange was broken off.
ExchangeOutcome CScanner::AwaitReply(const ExchangePlan& plan) {
    const bool broken = m_BreakEvent.TimedWait(kReplyDelayMs) == OsEventSignalled;
    if (!broken && !plan.waits) return {};
    const int64_t startNs = platform::TheClock().NowNs();
    if (!broken && m_ReplyEvent.TimedWait(plan.timeoutMs) == OsEventSignalled &&
        m_BreakEvent.TimedWait(0) != OsEventSignalled) {
        if (std::optional<ExchangeOutcome> reply = TakeReply(plan)) return *std::move(reply);
        m_BreakEvent.TimedWait(LeftOf(plan.timeoutMs, startNs));
    }
    LogWarning("RetrieveStatistics: timeout on attempt to retrieve statistics from scanner.");
    return {ResultTimeout, {}};
}

// None if something of the reply is missing.
std::optional<ExchangeOutcome> CScanner::TakeReply(const ExchangePlan& plan) {
    std::lock_guard lock(m_DataMutex);
    if (m_ReplyLost) return std::nullopt;
    if (!m_ScanData.empty()) return OnDirectIOEvent(plan.eventNumber, m_DirectIOCode);
    ExchangeOutcome outcome;
    if (plan.rawReply) outcome.reply = m_DirectIORaw;
    return outcome;
}

void CScanner::BeginExchange() {
    std::lock_guard lock(m_DataMutex);
    m_ScanData.clear();
    m_DirectIORaw.clear();
    m_ReplyLost = false;
    m_ReplyEvent.Reset();
    m_BreakEvent.Reset();
}

// The owner's last act. What a late reply has left behind goes with it, so that it isn't joined to the next
// barcode.
void CScanner::EndExchange() {
    std::lock_guard lock(m_DataMutex);
    m_ScanData.clear();
    m_DirectIORaw.clear();
    m_ExchangeWithoutLimit = false;
    m_Status.Clear(StatusExchange);
    m_ExchangeEnded.notify_all();
}

void CScanner::BreakExchange() {
    m_BreakEvent.Signal();
    m_ReplyEvent.Signal();
    m_StatisticsEvent.Signal();
}

ExchangeOutcome CScanner::OnDirectIOEvent(uint32_t number, uint32_t) {
    LogTrace trace("CScanner::OnDirectIOEvent");
    ExchangeOutcome outcome;
    if (number == 0) {
        outcome.result = ResultFailure;
        return outcome;
    }
    LogInfo("OnDirectIOEvent EventNumber:", number);
    outcome.reply = EncodeBinaryText(m_ScanData, BinaryConversion::None);  // whatever the property says
    return outcome;
}

void CScanner::OnDirectIOEventSync(uint8_t, uint32_t code, const EventRecord&) {
    LogTrace trace("CScanner::OnDirectIOEventSync");
    m_DirectIOCode = code;
    m_ReplyEvent.Signal();
    m_StatisticsEvent.Signal();
}

void CScanner::HandleDirectIOEvent(const EventRecord& record) {
    LogTrace trace("CScanner::HandleDirectIOEvent");
    const bool late = !m_Status.Has(StatusExchange);  // the exchange ended while this block was on its way here
    if (late) OnDirectIOEventSync(0, 0, record);
    try {
        uint32_t linkType = 0;
        std::string_view block;
        record.GetDirectIO(linkType, block);
        std::string bytes(block);
        if (!m_ReplyLost) m_ReplyLost = !AppendWithinReason(m_DirectIORaw, bytes);
        while (HandleOneReply(bytes, record)) {
        }
    } catch (const std::bad_alloc&) {
        m_ReplyLost = true;
        throw;
    }
    if (!late && !m_ReplyLost) return;
    m_ScanData.clear();
    m_DirectIORaw.clear();
}

// Takes one frame off the bytes; true if the next one is to be looked at too.
bool CScanner::HandleOneReply(std::string& bytes, const EventRecord& record) {
    ReplyPacket reply;
    const ParseResult result = ParseCatching(bytes, reply);
    if (result == ParseNotRun) LogWarning("DirectIOEvent Parsing exceptions!");
    if (reply.opcode == OpcodeBarcode) {  // scanned during the exchange: it ends the wait and is lost
        LogWarning("Reveived a CodeBar During DirectIO. Code", HexOf{reply.parameters});
        if (result == ParseOk && reply.firstParameter == kLastBlock) m_BarcodeLost = false;
        OnDirectIOEventSync(0, 0, record);
        return false;
    }
    if (result == ParseNotRun || result == ParseNoFrame) {
        LogWarning("DirectIOEvent Parsing Error! err code:", static_cast<int32_t>(result));
        if (reply.length != 0 && reply.length <= bytes.size()) OnDirectIOEventSync(0, 0, record);
        return false;
    }
    if (reply.opcode == OpcodeQueryReply) {  // the raw bytes are the reply
        OnDirectIOEventSync(OpcodeQueryReply, 0, record);
        return true;
    }
    if (reply.status == kReplyAccepted && result == ParseOk) {
        if (!m_ReplyLost) m_ScanData += reply.parameters;  // never more than m_DirectIORaw
        const bool hasText = reply.opcode == OpcodeReplyD8 || reply.opcode == OpcodeVersion;
        OnDirectIOEventSync(reply.opcode, hasText ? 1 : 0, record);
        return false;
    }
    LogWarning(std::string("Warning : An error code was received, Code : ") + static_cast<char>(reply.opcode) +
               ",  Status: " + static_cast<char>(reply.status));
    OnDirectIOEventSync(0, 0, record);
    return false;
}

void CScanner::HandleStatusUpdateEvent(const EventRecord& record) {
    LogTrace trace("CScanner::HandleStatusUpdateEvent");
    uint32_t status = PowerUnknown;
    record.GetStatusUpdate(status);
}

namespace {

// "parameters" or "status|parameters", both hexadecimal, where the status is 01 or 08. False for anything
// else.
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

ResultCode CScanner::DirectIO(int32_t command, const int32_t* data, const char* text, const CallerBuffer& buffer) {
    LogTrace trace("CScanner::DirectIO");
    LogInfo("    | Command: ", command);
    LogInfo("    | pData: ", *data);
    LogInfo("    | pString:  ", text);
    const auto opcode = static_cast<uint8_t>(command & 0xFF);
    if (!IsDirectIOCommand(opcode)) return m_ResultCode = ResultIllegal;
    std::string parameters = DecodeBinaryText(text, ConversionMode());
    uint8_t status = 0;
    if (*data == 0 && !ReadHexCommand(std::string(parameters), parameters, status)) {
        return m_ResultCode = ResultIllegal;
    }
    CommandPacket packet(opcode, std::move(parameters), status);
    const ExchangeOutcome outcome = ExchangePacket(packet, opcode, kDirectIOTimeoutMs);
    if (outcome.result != ResultSuccess) return outcome.result;
    if (!buffer.Fits(outcome.reply)) {
        LogInfo("    | the buffer not enough memory : %d", static_cast<uint64_t>(outcome.reply.size()));
        return ResultBufferTooSmall;
    }
    buffer.Fill(outcome.reply);
    return ResultSuccess;
}

}  // namespace quillet
