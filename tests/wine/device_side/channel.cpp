#include "wine/device_side/channel.h"

namespace quillet::platform {
namespace {

UniqueHandle NewEvent() {
    return CheckedHandle(::CreateEventA(nullptr, TRUE, FALSE, nullptr), "CreateEvent");
}

HANDLE EventOf(const StopSignal& stop) {
    return reinterpret_cast<HANDLE>(stop.NativeHandle());
}

bool IsStarted(BOOL result) {
    return result || ::GetLastError() == ERROR_IO_PENDING;
}

}  // namespace

Channel::Channel(HANDLE file) : m_File(file), m_ReadEvent(NewEvent()), m_WriteEvent(NewEvent()) {}

Channel::~Channel() {
    if (!m_Reading) return;
    DWORD count = 0;
    ::CancelIoEx(m_File, &m_Read);
    ::GetOverlappedResult(m_File, &m_Read, &count, TRUE);
}

bool Channel::StartRead() {
    m_Read = {};
    m_Read.hEvent = m_ReadEvent.get();
    m_Reading = IsStarted(::ReadFile(m_File, m_Buffer.data(), static_cast<DWORD>(m_Buffer.size()), nullptr, &m_Read));
    return m_Reading;
}

DeviceEnd::Received Channel::FinishRead(std::string& bytes) {
    DWORD count = 0;
    m_Reading = false;
    if (!::GetOverlappedResult(m_File, &m_Read, &count, FALSE) || count == 0) return DeviceEnd::Received::Failed;
    bytes.assign(m_Buffer.data(), count);
    return DeviceEnd::Received::Bytes;
}

DeviceEnd::Received Channel::Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop) {
    if (!m_Reading && !StartRead()) return stop.IsSet() ? DeviceEnd::Received::Stopped : DeviceEnd::Received::Failed;
    const std::array<HANDLE, 2> waits{EventOf(stop), m_ReadEvent.get()};
    switch (::WaitForMultipleObjects(2, waits.data(), FALSE, timeoutMs)) {
        case WAIT_OBJECT_0: return DeviceEnd::Received::Stopped;
        case WAIT_OBJECT_0 + 1: return FinishRead(bytes);
        case WAIT_TIMEOUT: return DeviceEnd::Received::TimedOut;
        default: return DeviceEnd::Received::Failed;
    }
}

DeviceEnd::Sent Channel::Send(std::string_view bytes, const StopSignal& stop) {
    while (!bytes.empty()) {
        OVERLAPPED write{};
        write.hEvent = m_WriteEvent.get();
        if (!IsStarted(::WriteFile(m_File, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &write))) {
            return DeviceEnd::Sent::Failed;
        }
        const std::array<HANDLE, 2> waits{m_WriteEvent.get(), EventOf(stop)};
        const bool stopped = ::WaitForMultipleObjects(2, waits.data(), FALSE, INFINITE) != WAIT_OBJECT_0;
        if (stopped) ::CancelIoEx(m_File, &write);
        DWORD count = 0;
        const bool written = ::GetOverlappedResult(m_File, &write, &count, TRUE);
        if (stopped) return DeviceEnd::Sent::Stopped;
        if (!written) return DeviceEnd::Sent::Failed;
        bytes.remove_prefix(count);
    }
    return DeviceEnd::Sent::All;
}

}  // namespace quillet::platform
