// Events and semaphores over a mutex and a condition variable, whose waits run on the monotonic clock.
#include "platform/event.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/process_origin.h"

namespace quillet::platform {
namespace {

// Waits for the condition; false at the time-out.
template <typename Condition>
bool WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, uint32_t timeoutMs,
             Condition condition) {
    if (timeoutMs == kNoLimitMs) {
        changed.wait(lock, condition);
        return true;
    }
    if (timeoutMs == 0) {
        return condition();
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    return changed.wait_until(lock, deadline, condition);
}

}  // namespace

// Signalling notifies with the mutex held: a waiter may destroy the event as soon as its wait is over, which
// can't come before the mutex is free.
struct Event::Impl {
    explicit Impl(Kind eventKind) : kind(eventKind) {}
    const Kind kind;
    std::mutex mutex;  // guards signalled
    ProcessBound<std::condition_variable> changed;
    bool signalled = false;
};

Event::Event(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

Event::~Event() = default;

std::unique_ptr<Event> Event::Create(Kind kind) noexcept {
    try {
        // make_unique can't reach the constructor.
        return std::unique_ptr<Event>(new Event(std::make_unique<Impl>(kind)));
    } catch (...) {
        return nullptr;
    }
}

bool Event::Signal() noexcept try {
    const std::lock_guard lock(m_Impl->mutex);
    m_Impl->signalled = true;
    if (m_Impl->kind == Kind::AutoReset) {
        m_Impl->changed->notify_one();
    } else {
        m_Impl->changed->notify_all();
    }
    return true;
} catch (...) {
    return false;
}

bool Event::Reset() noexcept try {
    const std::lock_guard lock(m_Impl->mutex);
    m_Impl->signalled = false;
    return true;
} catch (...) {
    return false;
}

WaitResult Event::Wait(uint32_t timeoutMs) noexcept try {
    std::unique_lock lock(m_Impl->mutex);
    if (!WaitFor(*m_Impl->changed, lock, timeoutMs, [this] { return m_Impl->signalled; })) {
        return WaitResult::TimedOut;
    }
    if (m_Impl->kind == Kind::AutoReset) {
        m_Impl->signalled = false;
    }
    return WaitResult::Signalled;
} catch (...) {
    return WaitResult::Failed;
}

struct Semaphore::Impl {
    Impl(uint32_t initialCount, uint32_t maximumCount) : count(initialCount), maximum(maximumCount) {}
    std::mutex mutex;  // guards count
    ProcessBound<std::condition_variable> changed;
    uint32_t count;
    const uint32_t maximum;
};

Semaphore::Semaphore(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

Semaphore::~Semaphore() = default;

std::unique_ptr<Semaphore> Semaphore::Create(uint32_t initialCount, uint32_t maximumCount) noexcept {
    if (initialCount > maximumCount || maximumCount == 0) {
        return nullptr;
    }
    try {
        return std::unique_ptr<Semaphore>(new Semaphore(std::make_unique<Impl>(initialCount, maximumCount)));
    } catch (...) {
        return nullptr;
    }
}

bool Semaphore::Post() noexcept try {
    const std::lock_guard lock(m_Impl->mutex);
    if (m_Impl->count == m_Impl->maximum) {
        return false;
    }
    ++m_Impl->count;
    m_Impl->changed->notify_one();
    return true;
} catch (...) {
    return false;
}

bool Semaphore::Wait() noexcept try {
    std::unique_lock lock(m_Impl->mutex);
    WaitFor(*m_Impl->changed, lock, kNoLimitMs, [this] { return m_Impl->count > 0; });
    --m_Impl->count;
    return true;
} catch (...) {
    return false;
}

}  // namespace quillet::platform
