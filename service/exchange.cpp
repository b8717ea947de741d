// SPDX-License-Identifier: MIT
#include "service/exchange.h"

#include <new>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "platform/clock.h"
#include "service/received_frame.h"

namespace quillet {
namespace {

// No exchange takes less; a reply that comes earlier is found when this is over.
constexpr uint32_t kReplyDelayMs = 300;

}  // namespace

ExchangeOutcome Exchange::Run(const ExchangePlan& plan) {
    if (!m_Status.Has(StatusEnabled) || !m_Status.TrySet(StatusExchange)) return {ResultIllegal, {}};
    ScopeExit ended([this] { End(); });
    if (!Begin(plan)) return {ResultIllegal, {}};
    plan.send();
    return AwaitReply(plan);
}

// False if it must not go on. Asked after the reset of m_Broken and with the lock held: whoever breaks
// exchanges off has changed one of these before it asks for the lock, so either the change is seen here or the
// signal comes after the reset.
bool Exchange::Begin(const ExchangePlan& plan) {
    std::lock_guard lock(m_Mutex);
    m_Raw.clear();
    m_Payload.clear();
    m_ReplyLost = false;
    m_Unlimited = plan.waits && plan.timeoutMs == platform::kNoLimitMs;
    m_Reply.Reset();
    m_Broken.Reset();
    return !m_Closed && !m_ClosedForGood && m_Status.Has(StatusEnabled);
}

// The parts of a barcode that came before the exchange go too: what followed them was taken for a reply.
void Exchange::End() {
    std::lock_guard lock(m_Mutex);
    m_Raw.clear();
    m_Payload.clear();
    m_Unlimited = false;
    m_Barcodes.DropParts();
    m_Status.Clear(StatusExchange);
    m_Ended.notify_all();
}

// 112 if no reply came in time, something of it was lost, or the exchange was broken off.
ExchangeOutcome Exchange::AwaitReply(const ExchangePlan& plan) {
    const bool broken = m_Broken.TimedWait(kReplyDelayMs) == OsEventSignalled;
    if (!broken && !plan.waits) return {};
    const platform::Countdown patience(platform::TheClock(), plan.timeoutMs);
    if (!broken && m_Reply.TimedWait(plan.timeoutMs) == OsEventSignalled && m_Broken.TimedWait(0) != OsEventSignalled) {
        if (std::optional<ExchangeOutcome> reply = TakeReply(plan)) return *std::move(reply);
        m_Broken.TimedWait(patience.LeftMs());
    }
    LogWarning("RetrieveStatistics: timeout on attempt to retrieve statistics from scanner.");
    return {ResultTimeout, {}};
}

// None if something of the reply is missing.
std::optional<ExchangeOutcome> Exchange::TakeReply(const ExchangePlan& plan) {
    std::lock_guard lock(m_Mutex);
    if (m_ReplyLost) return std::nullopt;
    if (!m_Payload.empty()) return TakePayload(plan.eventNumber);
    return ExchangeOutcome{ResultSuccess, plan.rawReply ? std::move(m_Raw) : std::string()};
}

ExchangeOutcome Exchange::TakePayload(uint32_t eventNumber) {
    LogTrace trace("CScanner::OnDirectIOEvent");
    if (eventNumber == 0) return {ResultFailure, {}};
    LogInfo("OnDirectIOEvent EventNumber:", eventNumber);
    return {ResultSuccess, std::move(m_Payload)};  // as it came, whatever BinaryConversion says
}

void Exchange::Wake() {
    LogTrace trace("CScanner::OnDirectIOEventSync");
    m_Reply.Signal();
    m_AnyReply.Signal();
}

void Exchange::TakeBlock(std::string_view block, uint32_t linkType) {
    std::lock_guard lock(m_Mutex);
    const bool late = !m_Status.Has(StatusExchange);  // the exchange ended while this block was on its way here
    if (late) Wake();
    try {
        std::string bytes(block);
        if (!m_ReplyLost) m_ReplyLost = !AppendWithinReason(m_Raw, bytes);
        while (TakeOneReply(bytes, linkType)) {
        }
    } catch (const std::bad_alloc&) {
        m_ReplyLost = true;
        throw;
    }
    if (!late && !m_ReplyLost) return;
    m_Raw.clear();
    m_Payload.clear();
}

// Takes one frame off the bytes; true if the next one is to be looked at too.
bool Exchange::TakeOneReply(std::string& bytes, uint32_t linkType) {
    ReplyPacket reply;
    const ParseResult result = ParseReceived(linkType, bytes, reply);
    if (result == ParseNotRun) LogWarning("DirectIOEvent Parsing exceptions!");
    if (reply.opcode == OpcodeBarcode) {  // scanned meanwhile: ends the wait; the barcode is dropped
        LogWarning("Reveived a CodeBar During DirectIO. Code", HexOf{reply.parameters});
        if (result == ParseOk && reply.firstParameter == kLastBlock) m_Barcodes.PassLastPart();
        Wake();
        return false;
    }
    if (result == ParseNotRun || result == ParseNoFrame) {
        LogWarning("DirectIOEvent Parsing Error! err code:", static_cast<int32_t>(result));
        if (reply.length != 0 && reply.length <= bytes.size()) Wake();
        return false;
    }
    if (reply.opcode == OpcodeQueryReply) {  // the raw bytes are the reply
        Wake();
        return true;
    }
    if (reply.status == kReplyAccepted && result == ParseOk) {
        if (!m_ReplyLost) m_Payload += reply.parameters;  // never more than m_Raw
        Wake();
        return false;
    }
    LogWarning(std::string("Warning : An error code was received, Code : ") + static_cast<char>(reply.opcode) +
               ",  Status: " + static_cast<char>(reply.status));
    Wake();
    return false;
}

void Exchange::Break() {
    m_Broken.Signal();
    m_Reply.Signal();
    m_AnyReply.Signal();
}

void Exchange::BreakUnlimited() {
    std::lock_guard lock(m_Mutex);
    if (m_Unlimited) Break();
}

void Exchange::Close() {
    std::unique_lock lock(m_Mutex);
    m_Closed = true;
    Break();
    m_Ended.wait(lock, [this] { return !m_Status.Has(StatusExchange); });
}

void Exchange::Open() {
    std::lock_guard lock(m_Mutex);
    m_Closed = false;
}

void Exchange::CloseForGood() {
    std::lock_guard lock(m_Mutex);
    m_ClosedForGood = true;
    Break();
}

}  // namespace quillet
