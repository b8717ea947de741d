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
    : m_Handle(platform::Semaphore::Create(initialCount, kSemaphoreMaximum)), m_Count(initialCount) {}

int32_t OsSemaphore::Post() {
    if (!m_Handle) return kSemaphoreFailed;
    ++m_Count;  // before the post: a waiter may take its one at once, and the count must not pass below 0
    if (m_Handle->Post()) return kSemaphoreDone;
    --m_Count;
    return kSemaphoreFailed;
}

int32_t OsSemaphore::Wait() {
    if (!m_Handle || !m_Handle->Wait()) return kSemaphoreFailed;
    --m_Count;
    return kSemaphoreDone;
}

void CNamedMutex::Create() {
    if (m_Handle) return;
    m_Handle = platform::NamedMutex::OpenExisting(m_Name);
    m_ExistedAlready = m_Handle != nullptr;
    if (!m_Handle) m_Handle = platform::NamedMutex::Create(m_Name);
}

bool CNamedMutex::Take(uint32_t milliseconds) {
    return m_Handle && m_Handle->Take(milliseconds);
}

bool CNamedMutex::Release() {
    return m_Handle && m_Handle->Release();
}

void CNamedMutex::Close() {
    m_Handle.reset();
}

}  // namespace quillet
