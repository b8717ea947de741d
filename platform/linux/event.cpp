// SPDX-License-Identifier: MIT
// Events over a futex, with waits on the monotonic clock. Every barcode is handed over by an event, and with a mutex
// the woken thread would often have to wait a second time. Semaphores over a mutex and a condition variable.
#include "platform/event.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <ctime>
#include <linux/futex.h>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/process_origin.h"

namespace quillet::platform {

// One word: whether the event is set, and how many threads are in the kernel, or on their way there, for it. A waiter
// may destroy the event as soon as its wait is over, while the signal that ended it hasn't returned yet. So a signal
// changes the word once and reads nothing of the event afterwards; waking a word that is gone wakes nobody or, at
// worst, somebody who looks again.
struct Event::Impl {
    explicit Impl(Kind eventKind) : kind(eventKind) {}
    const Kind kind;
    std::atomic<uint32_t> word{0};
};

namespace {

constexpr uint32_t kSet = 1;
constexpr uint32_t kOneWaiter = 2;
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);

// The kernel's own form of a time here.
static_assert(sizeof(timespec) == 2 * sizeof(long));

timespec DeadlineIn(uint32_t timeoutMs) noexcept {
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    const int64_t ns = deadline.tv_nsec + int64_t{timeoutMs} * 1'000'000;
    return {static_cast<time_t>(deadline.tv_sec + ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
}

// Sleeps while the word has this value; false at the deadline. Null stands for none.
bool SleepOn(std::atomic<uint32_t>& word, uint32_t value, const timespec* deadline) noexcept {
    constexpr int kWait = FUTEX_WAIT_BITSET_PRIVATE;  // the one that takes a deadline
    const long result = ::syscall(SYS_futex, &word, kWait, value, deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

// True if the event is set; one that lets a single waiter through isn't afterwards.
bool TryTake(std::atomic<uint32_t>& word, Event::Kind kind) noexcept {
    uint32_t seen = word.load();
    while ((seen & kSet) != 0) {
        if (kind == Event::Kind::ManualReset || word.compare_exchange_weak(seen, seen & ~kSet)) return true;
    }
    return false;
}

}  // namespace

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

bool Event::Signal() noexcept {
    std::atomic<uint32_t>& word = m_Impl->word;
    const int woken = m_Impl->kind == Kind::AutoReset ? 1 : INT_MAX;
    const uint32_t before = word.fetch_or(kSet);
    if ((before & kSet) == 0 && before >= kOneWaiter) ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, woken);
    return true;
}

bool Event::Reset() noexcept {
    m_Impl->word.fetch_and(~kSet);
    return true;
}

WaitResult Event::Wait(uint32_t timeoutMs) noexcept {
    if (TryTake(m_Impl->word, m_Impl->kind)) return WaitResult::Signalled;
    const bool limited = timeoutMs != kNoLimitMs;
    const timespec deadline = limited ? DeadlineIn(timeoutMs) : timespec{};
    bool inTime = timeoutMs > 0;
    while (inTime) {
        const uint32_t waiting = m_Impl->word.fetch_add(kOneWaiter) + kOneWaiter;
        if ((waiting & kSet) == 0) inTime = SleepOn(m_Impl->word, waiting, limited ? &deadline : nullptr);
        m_Impl->word.fetch_sub(kOneWaiter);
        if (TryTake(m_Impl->word, m_Impl->kind)) return WaitResult::Signalled;
    }
    return WaitResult::TimedOut;
}

struct Semaphore::Impl {
    explicit Impl(uint32_t maximumCount) : maximum(maximumCount) {}
    std::mutex mutex;  // guards count
    ProcessBound<std::condition_variable> changed;
    uint32_t count = 0;
    const uint32_t maximum;
};

Semaphore::Semaphore(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

Semaphore::~Semaphore() = default;

std::unique_ptr<Semaphore> Semaphore::Create(uint32_t initialCount, uint32_t maximumCount) noexcept {
    if (initialCount > maximumCount || maximumCount == 0) return nullptr;
    try {
        auto impl = std::make_unique<Impl>(maximumCount);
        impl->count = initialCount;
        return std::unique_ptr<Semaphore>(new Semaphore(std::move(impl)));
    } catch (...) {
        return nullptr;
    }
}

bool Semaphore::Post() noexcept try {
    const std::lock_guard lock(m_Impl->mutex);
    if (m_Impl->count == m_Impl->maximum) return false;
    ++m_Impl->count;
    m_Impl->changed->notify_one();
    return true;
} catch (...) {
    return false;
}

bool Semaphore::Wait() noexcept try {
    std::unique_lock lock(m_Impl->mutex);
    m_Impl->changed->wait(lock, [this] { return m_Impl->count > 0; });
    --m_Impl->count;
    return true;
} catch (...) {
    return false;
}

}  // namespace quillet::platform
