// SPDX-License-Identifier: MIT
// From a block of the read thread to an entry of the barcode cache.
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "platform/thread.h"
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
    ScopeExit announced([this] { m_Cache.Announce(); });  // once the block is done with
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
    m_Assembly.TakeBlock(block, linkType);
}

// The barcode is there for consumers last of all: one that takes it and waits for the next sets DataEventEnabled again,
// which must not be undone here after that.
void CScanner::OnBarcode(std::string text, int32_t codeType) {
    BarcodeCache::Entry entry(std::move(text), codeType);
    PostDataEvent();
    m_Cache.Add(std::move(entry));
}

void CScanner::OnBarcodePart() {
    m_EventQueue.ChangeEnabledEvents(0, 0);  // only wakes the queue
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
