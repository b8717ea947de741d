#include "platform/windows/device_reader.h"

#include <algorithm>
#include <array>

namespace quillet::platform {
namespace {

// Drivers tell a device that was pulled by very different codes (5, 22, 31, 433, 995, 1167 and more), so every
// failed read counts as its going, but for these, which are a matter of this process alone.
constexpr std::array<uint32_t, 8> kOwnFaults = {
    ERROR_NOT_ENOUGH_MEMORY,   ERROR_OUTOFMEMORY,       ERROR_INVALID_PARAMETER,   ERROR_INSUFFICIENT_BUFFER,
    ERROR_NO_SYSTEM_RESOURCES, ERROR_WORKING_SET_QUOTA, ERROR_INVALID_USER_BUFFER, ERROR_NOT_ENOUGH_QUOTA};

bool MeansGone(uint32_t error) noexcept {
    return std::find(kOwnFaults.begin(), kOwnFaults.end(), error) == kOwnFaults.end();
}

}  // namespace

IoStart WindowsDeviceReader::Start(uint8_t* buffer, uint32_t size) {
    m_Buffer = buffer;
    IoStart start = m_Request.StartRead(size);
    if (start.state == IoState::Done) TakeBytes(start.count);
    start.gone = start.state == IoState::Failed && MeansGone(start.error);
    return start;
}

ReadWait WindowsDeviceReader::Wait(const StopSignal& stop) {
    const DWORD woken = m_Request.Wait(stop);
    if (woken == DeviceRequest::kStopped) return ReadWait::Stopped;
    if (woken == DeviceRequest::kEnded) return ReadWait::Finished;
    m_Error = woken;
    return ReadWait::Failed;
}

IoFinish WindowsDeviceReader::Finish() {
    IoFinish finish = m_Request.Finish();
    if (finish.ok) {
        TakeBytes(finish.count);
    } else {
        m_Error = finish.error;
        finish.gone = MeansGone(finish.error);
    }
    return finish;
}

void WindowsDeviceReader::TakeBytes(uint32_t count) const noexcept {
    std::copy_n(m_Request.Bytes(), count, m_Buffer);
}

}  // namespace quillet::platform
