// Construction, destruction, sending, and the entries of a link's threads.
#include "service/scanner.h"

#include <cstring>
#include <exception>
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
    std::lock_guard lock(m_DataMutex);
    m_ScanDataList.clear();
    m_ScanDataLabelList.clear();
    m_ScanDataTypeList.clear();
    if (!m_WaitsEnded) m_BarcodeEvent.Reset();
    CDevice::ResetState();
}

// Without a link type of its own the key would be that of every USB link; and before its claim this handle
// may share its port's number with another one.
bool CScanner::HasOwnLink() const {
    return m_LinkType != LinkNone && m_Status.Has(StatusClaimed);
}

ResultCode CScanner::SendPacket(CommandPacket& packet) {
    if (!HasOwnLink()) {
        LogWarning("No Find ComDevice...  WriteData Failed!");
        return kResultNoExist;
    }
    return TheCommArbiter().WriteData(m_DeviceType, m_LinkType, m_ComPort, packet);
}

void CScanner::SendBytes(std::string bytes) {
    if (!HasOwnLink()) {
        LogWarning("No Find ComDevice...  WriteData Failed!");
        return;
    }
    TheCommArbiter().WriteData(m_DeviceType, m_LinkType, m_ComPort, bytes);
}

void CScanner::EndWaits() {
    std::lock_guard lock(m_DataMutex);
    m_WaitsEnded = true;
    m_BarcodeEvent.Signal();
    BreakExchange();
}

int32_t CScanner::DataCallbackEntry(void* owner, std::string& block, uint32_t status) {
    return static_cast<CScanner*>(owner)->ProcessDataEvent(block, status);
}

void CScanner::PowerCallbackEntry(void* owner, uint32_t status) {
    try {
        static_cast<CScanner*>(owner)->ProcessStatusEvent(status);
    } catch (const std::exception& error) {  // no memory, say: the thread goes on polling and tries again
        LogCritical("Error: ProcessStatusEvent", std::string(error.what()));
    }
}

void CScanner::EventCallbackEntry(void* context, EventRecord* record) {
    static_cast<CScanner*>(context)->ProcessEvent(*record);
}

}  // namespace quillet
