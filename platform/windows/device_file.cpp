// SPDX-License-Identifier: MIT
#include "platform/windows/device_file.h"

#include "platform/windows/device_reader.h"
#include "platform/windows/device_request.h"
#include "platform/windows/serial_settings.h"

namespace quillet::platform {
namespace {

using Outcome = WriteResult::Outcome;

uint32_t ErrorUnless(BOOL ok) noexcept {
    return ok != FALSE ? 0 : ::GetLastError();
}

// The wait starts over if a limit begins, or is taken away before it is over.
DWORD AwaitEnd(DeviceRequest& request, const WriteEnd& end) {
    for (;;) {
        const uint32_t leftMs = end.limit != nullptr ? end.limit->LeftMs() : kNoLimitMs;
        if (leftMs == 0) return DeviceRequest::kStopped;
        const DWORD woken = request.Wait(end, leftMs);
        if (woken != DeviceRequest::kLimitBegun && woken != WAIT_TIMEOUT) return woken;
    }
}

WriteResult EndOf(DeviceRequest& request, const WriteEnd& end) {
    switch (AwaitEnd(request, end)) {
        case DeviceRequest::kEnded: break;
        case DeviceRequest::kStopped: return {Outcome::FailedPending, 0, ERROR_OPERATION_ABORTED};
        default: return {Outcome::FailedPending, 0, ::GetLastError()};
    }
    const IoFinish finish = request.Finish();
    return {finish.ok ? Outcome::Written : Outcome::FailedPending, finish.count, finish.error};
}

}  // namespace

uint32_t WindowsDeviceFile::FetchDcb() {
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    const uint32_t error = ErrorUnless(::GetCommState(m_Handle.Get(), &dcb));
    if (error == 0) m_Dcb = dcb;
    return error;
}

uint32_t WindowsDeviceFile::GetSerialSettings(SerialSettings& settings) {
    const uint32_t error = FetchDcb();
    if (error == 0) settings = SettingsOf(*m_Dcb);
    return error;
}

uint32_t WindowsDeviceFile::SetSerialSettings(const SerialSettings& settings) {
    if (!m_Dcb) {
        if (const uint32_t error = FetchDcb()) return error;
    }
    StoreSettings(settings, *m_Dcb);
    return ErrorUnless(::SetCommState(m_Handle.Get(), &*m_Dcb));
}

uint32_t WindowsDeviceFile::SetSerialTimeouts(const SerialTimeouts& timeouts) {
    COMMTIMEOUTS limits{};  // all others 0, which means none
    limits.ReadIntervalTimeout = timeouts.readIntervalMs;
    return ErrorUnless(::SetCommTimeouts(m_Handle.Get(), &limits));
}

std::unique_ptr<DeviceReader> WindowsDeviceFile::NewReader() {
    return std::make_unique<WindowsDeviceReader>(m_Handle.Get());
}

WriteResult WindowsDeviceFile::Write(std::string_view bytes, const WriteEnd& end) {
    if (end.limit != nullptr && end.limit->LeftMs() == 0) return {Outcome::FailedAtOnce, 0, ERROR_OPERATION_ABORTED};
    DeviceRequest request(m_Handle.Get());
    const IoStart start = request.StartWrite(bytes);
    switch (start.state) {
        case IoState::Done: return {Outcome::Written, start.count, 0};
        case IoState::Pending: return EndOf(request, end);
        default: return {Outcome::FailedAtOnce, start.count, start.error};
    }
}

}  // namespace quillet::platform
