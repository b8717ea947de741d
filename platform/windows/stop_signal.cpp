// SPDX-License-Identifier: MIT
// A manual-reset event: unlike one that the first waiter consumes, it can end a read and a write together.
#include <windows.h>
#include <system_error>

#include "platform/device_access.h"

namespace quillet::platform {
namespace {

HANDLE HandleOf(intptr_t native) noexcept {
    return reinterpret_cast<HANDLE>(native);
}

}  // namespace

StopSignal::StopSignal() : m_Native(reinterpret_cast<intptr_t>(::CreateEventA(nullptr, TRUE, FALSE, nullptr))) {
    if (m_Native == 0) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), "CreateEventA");
    }
}

StopSignal::~StopSignal() {
    Close();
}

void StopSignal::Close() noexcept {
    const HANDLE handle = HandleOf(m_Native.exchange(0));
    if (handle != nullptr) ::CloseHandle(handle);
}

void StopSignal::Set() noexcept {
    ::SetEvent(HandleOf(m_Native));
    m_LooksSet.store(true);
}

void StopSignal::Reset() noexcept {
    m_LooksSet.store(false);
    ::ResetEvent(HandleOf(m_Native));
}

bool StopSignal::IsSet() const noexcept {
    return Wait(0);
}

bool StopSignal::Wait(uint32_t timeoutMs) const noexcept {
    return ::WaitForSingleObject(HandleOf(m_Native), timeoutMs) == WAIT_OBJECT_0;
}

}  // namespace quillet::platform
