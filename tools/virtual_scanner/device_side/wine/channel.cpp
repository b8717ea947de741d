#include "tools/virtual_scanner/device_side/wine/channel.h"

namespace quillet::tools {
namespace {

platform::UniqueHandle NewEvent() {
    return Checked(::CreateEventA(nullptr, TRUE, FALSE, nullptr), "CreateEvent");
}

HANDLE EventOf(const platform::StopSignal& stop) {
    return reinterpret_cast<HANDLE>(stop.NativeHandle());
}

bool IsStarted(BOOL done) {
    return done || ::GetLastError() == ERROR_IO_PENDING;
}

bool IsSocketStarted(int result) {
    return result == 0 || ::WSAGetLastError() == WSA_IO_PENDING;
}

OVERLAPPED Overlapped(const platform::UniqueHandle& event) {
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.Get();
    return overlapped;
}

}  // namespace

Channel::Channel(HANDLE file) : m_File(file), m_ReadEvent(NewEvent()), m_WriteEvent(NewEvent()) {}

Channel::~Channel() {
    if (!m_Reading) return;
    DWORD count = 0;
    ::CancelIoEx(m_File, &m_Read);
    ::GetOverlappedResult(m_File, &m_Read, &count, TRUE);
}

bool Channel::EnsureReading() {
    if (m_Reading) return true;
    m_Read = Overlapped(m_ReadEvent);
    m_Reading = BeginRead(m_Buffer.data(), m_Buffer.size(), m_Read);
    return m_Reading;
}

DeviceEnd::Received Channel::FinishRead(std::string& bytes) {
    DWORD count = 0;
    m_Reading = false;
    if (!::GetOverlappedResult(m_File, &m_Read, &count, FALSE) || count == 0) return DeviceEnd::Received::Failed;
    bytes.assign(m_Buffer.data(), count);
    return DeviceEnd::Received::Bytes;
}

DeviceEnd::Received Channel::Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) {
    if (!EnsureReading()) return stop.IsSet() ? DeviceEnd::Received::Stopped : DeviceEnd::Received::Failed;
    const std::array<HANDLE, 2> waits{EventOf(stop), m_ReadEvent.Get()};
    switch (::WaitForMultipleObjects(2, waits.data(), FALSE, timeoutMs)) {
        case WAIT_OBJECT_0: return DeviceEnd::Received::Stopped;
        case WAIT_OBJECT_0 + 1: return FinishRead(bytes);
        case WAIT_TIMEOUT: return DeviceEnd::Received::TimedOut;
        default: return DeviceEnd::Received::Failed;
    }
}

DeviceEnd::Sent Channel::Send(std::string_view bytes, const platform::StopSignal& stop) {
    while (!bytes.empty()) {
        OVERLAPPED write = Overlapped(m_WriteEvent);
        if (!BeginWrite(bytes, write)) return DeviceEnd::Sent::Failed;
        const std::array<HANDLE, 2> waits{m_WriteEvent.Get(), EventOf(stop)};
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

bool PipeChannel::BeginRead(char* buffer, size_t size, OVERLAPPED& overlapped) {
    return IsStarted(::ReadFile(m_File, buffer, static_cast<DWORD>(size), nullptr, &overlapped));
}

bool PipeChannel::BeginWrite(std::string_view bytes, OVERLAPPED& overlapped) {
    return IsStarted(::WriteFile(m_File, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &overlapped));
}

bool SocketChannel::BeginRead(char* buffer, size_t size, OVERLAPPED& overlapped) {
    WSABUF block{static_cast<ULONG>(size), buffer};
    DWORD flags = 0;
    return IsSocketStarted(::WSARecv(m_Socket, &block, 1, nullptr, &flags, &overlapped, nullptr));
}

bool SocketChannel::BeginWrite(std::string_view bytes, OVERLAPPED& overlapped) {
    WSABUF block{static_cast<ULONG>(bytes.size()), const_cast<char*>(bytes.data())};  // only read from
    return IsSocketStarted(::WSASend(m_Socket, &block, 1, nullptr, 0, &overlapped, nullptr));
}

}  // namespace quillet::tools
