// SPDX-License-Identifier: MIT
// Events and semaphores are the kernel's own.
#include "platform/event.h"

#include <windows.h>
#include <utility>

#include "platform/windows/unique_handle.h"

namespace quillet::platform {
namespace {

WaitResult WaitFor(HANDLE handle, uint32_t timeoutMs) noexcept {
    static_assert(kNoLimitMs == INFINITE);
    switch (::WaitForSingleObject(handle, timeoutMs)) {
        case WAIT_OBJECT_0: return WaitResult::Signalled;
        case WAIT_TIMEOUT: return WaitResult::TimedOut;
        default: return WaitResult::Failed;
    }
}

}  // namespace

struct Event::Impl {
    UniqueHandle handle;
};

Event::Event(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

Event::~Event() = default;

std::unique_ptr<Event> Event::Create(Kind kind) noexcept try {
    UniqueHandle handle(::CreateEventA(nullptr, kind == Kind::ManualReset ? TRUE : FALSE, FALSE, nullptr));
    if (!handle.IsOpen()) return nullptr;
    return std::unique_ptr<Event>(new Event(std::make_unique<Impl>(Impl{std::move(handle)})));
} catch (...) {
    return nullptr;
}

bool Event::Signal() noexcept {
    return ::SetEvent(m_Impl->handle.Get()) != FALSE;
}

bool Event::Reset() noexcept {
    return ::ResetEvent(m_Impl->handle.Get()) != FALSE;
}

WaitResult Event::Wait(uint32_t timeoutMs) noexcept {
    return WaitFor(m_Impl->handle.Get(), timeoutMs);
}

struct Semaphore::Impl {
    UniqueHandle handle;
};

Semaphore::Semaphore(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

Semaphore::~Semaphore() = default;

std::unique_ptr<Semaphore> Semaphore::Create(uint32_t initialCount, uint32_t maximumCount) noexcept try {
    // The system's counts are signed: one above 0x7FFFFFFF is below zero there, and refused.
    UniqueHandle handle(
        ::CreateSemaphoreA(nullptr, static_cast<LONG>(initialCount), static_cast<LONG>(maximumCount), nullptr));
    if (!handle.IsOpen()) return nullptr;
    return std::unique_ptr<Semaphore>(new Semaphore(std::make_unique<Impl>(Impl{std::move(handle)})));
} catch (...) {
    return nullptr;
}

bool Semaphore::Post() noexcept {
    return ::ReleaseSemaphore(m_Impl->handle.Get(), 1, nullptr) != FALSE;
}

bool Semaphore::Wait() noexcept {
    return WaitFor(m_Impl->handle.Get(), kNoLimitMs) == WaitResult::Signalled;
}

}  // namespace quillet::platform
