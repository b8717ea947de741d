// SPDX-License-Identifier: MIT
#include "platform/windows/device_request.h"

#include <algorithm>
#include <array>

#include "platform/event.h"

namespace quillet::platform {
namespace {

// How long a driver may take to end a cancelled request. One that takes longer has lost it.
constexpr DWORD kCancelLimitMs = 1000;

}  // namespace

// 0 or an error code. The block serves request after request as long as it is large enough.
uint32_t DeviceRequest::Prepare(size_t size) {
    DropPending();
    if (m_Block == nullptr) {
        auto block = std::make_unique<Block>();
        block->event = UniqueHandle(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
        if (!block->event.IsOpen()) return ::GetLastError();
        m_Block = std::move(block);
    }
    m_Block->bytes.resize(size);
    m_Block->overlapped = {};
    m_Block->overlapped.hEvent = m_Block->event.Get();
    return 0;
}

IoStart DeviceRequest::StartRead(uint32_t size) {
    if (const uint32_t error = Prepare(size)) return {IoState::Failed, 0, error};
    DWORD count = 0;
    const BOOL done = ::ReadFile(m_Device, m_Block->bytes.data(), size, &count, &m_Block->overlapped);
    return Started(done != FALSE, count);
}

IoStart DeviceRequest::StartWrite(std::string_view bytes) {
    if (const uint32_t error = Prepare(bytes.size())) return {IoState::Failed, 0, error};
    std::copy(bytes.begin(), bytes.end(), m_Block->bytes.begin());
    DWORD count = 0;
    const auto size = static_cast<DWORD>(bytes.size());
    const BOOL done = ::WriteFile(m_Device, m_Block->bytes.data(), size, &count, &m_Block->overlapped);
    return Started(done != FALSE, count);
}

IoStart DeviceRequest::Started(bool done, DWORD count) noexcept {
    if (done) return {IoState::Done, count, 0};
    const DWORD error = ::GetLastError();
    m_Pending = error == ERROR_IO_PENDING;
    return m_Pending ? IoStart{IoState::Pending, 0, 0} : IoStart{IoState::Failed, count, error};
}

DWORD DeviceRequest::Wait(const StopSignal& stop) const noexcept {
    const std::array<HANDLE, 2> events = {reinterpret_cast<HANDLE>(stop.NativeHandle()), m_Block->event.Get()};
    return ::WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, INFINITE);
}

DWORD DeviceRequest::Wait(const WriteEnd& end, uint32_t timeoutMs) const noexcept {
    std::array<HANDLE, 3> events = {reinterpret_cast<HANDLE>(end.stop.NativeHandle()), m_Block->event.Get()};
    DWORD count = 2;
    if (end.limit != nullptr && timeoutMs == kNoLimitMs) {
        events[count++] = reinterpret_cast<HANDLE>(end.limit->Begun().NativeHandle());
    }
    return ::WaitForMultipleObjects(count, events.data(), FALSE, timeoutMs);  // kNoLimitMs is INFINITE
}

IoFinish DeviceRequest::Finish() noexcept {
    DWORD count = 0;
    const bool ok = ::GetOverlappedResult(m_Device, &m_Block->overlapped, &count, TRUE) != FALSE;
    const DWORD error = ok ? 0 : ::GetLastError();
    m_Pending = !HasOverlappedIoCompleted(&m_Block->overlapped);
    return {ok, count, error};
}

// True once the driver has nothing of the request any more. The event may have been consumed by a wait before,
// but the record tells the end, too.
bool DeviceRequest::Cancel() const noexcept {
    ::CancelIoEx(m_Device, &m_Block->overlapped);
    if (!HasOverlappedIoCompleted(&m_Block->overlapped)) ::WaitForSingleObject(m_Block->event.Get(), kCancelLimitMs);
    return HasOverlappedIoCompleted(&m_Block->overlapped);
}

void DeviceRequest::DropPending() noexcept {
    if (!m_Pending) return;
    m_Pending = false;
    // The driver may still write into the block, so the block and its event are leaked on purpose. A writer
    // goes on at once. The thread that started the request goes too, but the system ends it only when it
    // gives up the request itself.
    if (!Cancel()) static_cast<void>(m_Block.release());
}

}  // namespace quillet::platform
