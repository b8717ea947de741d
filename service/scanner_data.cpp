// From a block of the read thread to an entry of the barcode cache.
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "protocol/symbology.h"
#include "service/property.h"
#include "service/scanner.h"

namespace quillet {
namespace {

// Calls kept for Update, which may never come.
constexpr uint32_t kMaxPendingCalls = 4096;

}  // namespace

int32_t CScanner::ProcessDataEvent(std::string& block, uint32_t status) {
    LogTrace trace("CScanner::ProcessDataEvent");
    LogInfo("    | Data.length:    ", static_cast<uint64_t>(block.size()));
    LogInfo("    | Data(Ascii):    ", AsciiOf{block});
    LogInfo("    | Data(Hex):      ", HexOf{block});
    LogInfo("    | ErrorCode:      ", status);
    LogInfo("    | Status:         ", m_Status.Value());
    if (status != kGoodRead) {
        LogCritical("Error: ProcessDataEvent code: ", status);
        return kKeepReading;
    }
    EventRecord record;
    try {
        LogInfo("    | About to try to enqueue event");
        if (m_Status.Has(StatusExchange)) {
            record.SetDirectIO(m_LinkType, std::move(block));
        } else {
            record.SetData(m_LinkType, std::move(block));
        }
        ProcessEvent(record);
    } catch (const std::exception& error) {  // also no memory: the read thread goes on with the next block
        const std::string_view text = error.what();
        LogCritical("Error: ProcessDataEvent", text.empty() ? "Unknown exception" : text);
    }
    block = std::move(record.data);  // its memory serves the next read
    const int32_t result = m_Status.Has(StatusAutoDisable) ? kEndReading : kKeepReading;
    LogInfo("    | return code:  ", result);
    return result;
}

ResultCode CScanner::ProcessEvent(EventRecord& record) {
    ScopeExit announced([this] { m_Cache.Announce(); });  // once the block is done with, and without the mutex
    std::lock_guard lock(m_DataMutex);
    LogTrace trace("CScanner::ProcessEvent");
    switch (record.type) {
        case EventData: HandleDataEvent(record); break;
        case EventDirectIO: HandleDirectIOEvent(record); break;
        case EventStatusUpdate: HandleStatusUpdateEvent(record); break;
        default: break;
    }
    return ResultSuccess;
}

void CScanner::HandleDataEvent(const EventRecord& record) {
    LogTrace trace("CScanner::HandleDataEvent");
    uint32_t linkType = 0;
    std::string_view block;
    record.GetData(linkType, block);
    m_DataBuffer += block;
    do {
        TakeFrame(block);
    } while (!m_DataBuffer.empty());
}

// The first frame of m_DataBuffer, or the whole block as it came.
void CScanner::TakeFrame(std::string_view block) {
    ReplyPacket reply;
    bool bareText = false;
    try {
        const ParseResult result = ParseCatching(m_DataBuffer, reply);
        bareText = result == ParseNoFrame || result == ParseNotRun;
        if (bareText) {
            TakePlainBarcode(block);
        } else if (reply.opcode == OpcodeBarcode && result == ParseOk) {
            TakeBarcodePart(reply);
        }            // else a reply outside of an exchange, or a damaged barcode: consumed and dropped
    } catch (...) {  // no memory
        m_DataBuffer.clear();
        if (!bareText && reply.opcode == OpcodeBarcode) LoseBarcode(reply.firstParameter);
        throw;
    }
}

// ParseNotRun if the parser raised.
ParseResult CScanner::ParseCatching(std::string& buffer, ReplyPacket& reply) {
    try {
        return ParsingData(buffer, reply);
    } catch (const ParseError&) {
        return ParseNotRun;
    }
}

ParseResult CScanner::ParsingData(std::string& buffer, ReplyPacket& reply) {
    LogTrace trace("CScanner::ParsingData");
    const ParseResult result = Kind().parse(buffer, reply);
    LogInfo("    | Data.length: ", static_cast<uint64_t>(reply.parameters.size()));
    if (reply.opcode != OpcodeStatisticsD0 && reply.opcode != OpcodeQueryReply) {
        LogInfo("    | Data Ascii: ", AsciiOf{reply.parameters});
        LogInfo("    | Data Hex: ", HexOf{reply.parameters});
    }
    return result;
}

// A device that never ends what it has begun must not fill the host's memory. False if there is no room for more.
bool CScanner::AppendWithinReason(std::string& bytes, std::string_view more) {
    constexpr size_t kMaxAssembledBytes = 1 << 20;
    if (bytes.size() + more.size() <= kMaxAssembledBytes) {
        bytes += more;
        return true;
    }
    LogCritical("Error: too much data without an end, dropped: ", static_cast<uint64_t>(bytes.size()));
    return false;
}

// A part of the barcode is missing: what is left of it, up to its last part, must not pass for a barcode.
void CScanner::LoseBarcode(uint8_t firstParameterOfPart) {
    std::string().swap(m_ScanData);
    m_BarcodeLost = firstParameterOfPart != kLastBlock;
}

// Bare text: the block alone is the barcode, whatever waited before it.
void CScanner::TakePlainBarcode(std::string_view block) {
    LogInfo("    | ScanData: ", HexOf{block});
    AddBarcode(std::string(block), 0);
}

void CScanner::TakeBarcodePart(const ReplyPacket& reply) {
    const bool lost = m_BarcodeLost || !AppendWithinReason(m_ScanData, reply.parameters);
    if (lost) LoseBarcode(reply.firstParameter);
    if (reply.firstParameter != kLastBlock) {
        m_EventQueue.ChangeEnabledEvents(0, 0);  // only wakes the queue
    } else if (!lost) {
        AddBarcode(std::exchange(m_ScanData, {}), IsKnownCodeType(reply.status) ? reply.status : 0);
    }
}

// Whatever stands behind a finished barcode in the buffer is dropped with it. The barcode is there for consumers last of
// all: one that takes it and waits for the next sets DataEventEnabled again, which must not be undone here after that.
void CScanner::AddBarcode(std::string text, int32_t codeType) {
    BarcodeCache::Entry entry(std::move(text), codeType);
    m_DataBuffer.clear();
    PostDataEvent();
    m_Cache.Add(std::move(entry));
}

void CScanner::PostDataEvent() {
    DataEventEnable(false);  // one-shot: getBarCode sets it again before each wait
    if (m_PendingCalls < kMaxPendingCalls) ++m_PendingCalls;
}

ResultCode CScanner::OnDataEvent(uint32_t, uint64_t, int64_t, bool&) {
    return ResultSuccess;
}

ResultCode CScanner::Update() {
    if (platform::CurrentThreadId() != m_CreatorThread) return m_ResultCode;
    bool flag = false;
    for (uint32_t calls = m_PendingCalls.exchange(0); calls > 0; --calls) OnDataEvent(0, 0, 0, flag);
    return ResultSuccess;
}

ResultCode CScanner::ClearInput() {
    LogTrace trace("CScanner::ClearInput");
    m_EventQueue.ClearEvents(EventData);
    m_EventQueue.ClearEvents(EventError);
    const ResultCode result = m_ResultCode = ResultSuccess;
    LogInfo("    | ResultCode: %d", result);
    return result;
}

}  // namespace quillet
