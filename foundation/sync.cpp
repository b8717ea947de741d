// SPDX-License-Identifier: MIT
#include "foundation/sync.h"

#include "platform/clock.h"

namespace quillet {
namespace {

constexpr uint32_t kSemaphoreMaximum = 0x7FFFFFFF;
constexpr int32_t kSemaphoreDone = 0;
constexpr int32_t kSemaphoreFailed = -1;

platform::Event::Kind KindOf(int32_t type) {
    return type == kManualResetEvent ? platform::Event::Kind::ManualReset : platform::Event::Kind::AutoReset;
}

int32_t EventResult(bool done) {
    return done ? OsEventSignalled : OsEventFailed;
}

}  // namespace

OsEvent::OsEvent(int32_t type) : m_Handle(platform::Event::Create(KindOf(type))) {}

int32_t OsEvent::Signal() {
    return EventResult(m_Handle && m_Handle->Signal());
}

int32_t OsEvent::Reset() {
    return EventResult(m_Handle && m_Handle->Reset());
}

int32_t OsEvent::TimedWait(uint32_t milliseconds) {
    if (!m_Handle) return OsEventFailed;
    switch (platform::TheClock().Wait(*m_Handle, milliseconds)) {
        case platform::WaitResult::Signalled: return OsEventSignalled;
        case platform::WaitResult::TimedOut: return OsEventTimedOut;
        case platform::WaitResult::Failed: break;
    }
    return OsEventFailed;
}

OsSemaphore::OsSemaphore(uint32_t initialCount)
    : m_Handle(platform::Semaphore::Create(initialCount, kSemaphoreMaximum)) {}

int32_t OsSemaphore::Post() {
    return m_Handle && m_Handle->Post() ? kSemaphoreDone : kSemaphoreFailed;
}

int32_t OsSemaphore::Wait() {
    return m_Handle && m_Handle->Wait() ? kSemaphoreDone : kSemaphoreFailed;
}

void ClaimMutex::Create() {
    if (m_Handle) return;
    m_Handle = platform::NamedMutex::OpenExisting(m_Name);
    if (!m_Handle) m_Handle = platform::NamedMutex::Create(m_Name);
}

bool ClaimMutex::Take(uint32_t milliseconds) {
    return m_Handle && m_Handle->Take(milliseconds);
}

bool ClaimMutex::Release() {
    return m_Handle && m_Handle->Release();
}

void ClaimMutex::Close() {
    m_Handle.reset();
}

}  // namespace quillet
