// SPDX-License-Identifier: MIT
// Construction, destruction, sending, and the entries of a link's threads.
#include "service/scanner.h"

#include <cstring>
#include <string>
#include <utility>

#include "foundation/log.h"
#include "platform/thread.h"
#include "transport/comm_arbiter.h"

namespace quillet {

void CallerBuffer::Fill(const std::string& result) const {
    std::memset(bytes, 0, size);
    std::memcpy(bytes, result.data(), result.size());
    if (written != nullptr) *written = static_cast<int32_t>(result.size());
}

CScanner::CScanner() : m_CreatorThread(platform::CurrentThreadId()) {
    m_EventQueue.SetCallback(this, &CScanner::EventCallbackEntry);
}

CScanner::~CScanner() {
    EndWaits();
    CScanner::CloseService();
    m_EventQueue.SetCallback(nullptr, nullptr);
}

void CScanner::ResetState() {
    m_Cache.Clear();
    m_Assembly.Reset();
    CDevice::ResetState();
}

ResultCode CScanner::SendPacket(CommandPacket& packet) {
    return TheCommArbiter().WriteData(m_SendLink, Key(), packet) ? ResultSuccess : ResultNoExist;
}

void CScanner::SendBytes(std::string bytes) {
    TheCommArbiter().WriteData(m_SendLink, Key(), bytes);
}

void CScanner::GiveUp() {
    std::lock_guard lock(m_EnableMutex);
    m_Link.reset();
    m_WriteLimit.GiveUp();
    m_ClaimMutex.Close();
}

void CScanner::EndWaits() {
    m_WriteLimit.Begin(kClosingWriteMs);  // for good
    m_Cache.EndWaits();
    m_Exchange.CloseForGood();
}

int32_t CScanner::DataCallbackEntry(void* owner, std::string& block, uint32_t status) {
    return static_cast<CScanner*>(owner)->ProcessDataEvent(block, status);
}

// An exception, such as for want of memory, goes on to the link, which then reports again.
void CScanner::PowerCallbackEntry(void* owner, uint32_t status) {
    static_cast<CScanner*>(owner)->ProcessStatusEvent(status);
}

void CScanner::ReopenCallbackEntry(void* owner, bool repeated) {
    static_cast<CScanner*>(owner)->ReopenLink(repeated);
}

void CScanner::EventCallbackEntry(void* context, EventRecord* record) {
    static_cast<CScanner*>(context)->ProcessEvent(*record);
}

}  // namespace quillet
