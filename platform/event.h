// SPDX-License-Identifier: MIT
// Events and semaphores of the operating system, usable between any threads of one process.
#pragma once

#include <cstdint>
#include <memory>

namespace quillet::platform {

// Stands for "no time limit" wherever a wait takes milliseconds.
inline constexpr uint32_t kNoLimitMs = 0xFFFFFFFF;

enum class WaitResult { Signalled, TimedOut, Failed };

// An event that starts not signalled. Every operation may be called from any thread at any time between
// construction and destruction; nobody may still wait when it is destroyed.
class Event {
  public:
    enum class Kind { AutoReset, ManualReset };

    // Null if the system has no room for one.
    static std::unique_ptr<Event> Create(Kind kind) noexcept;
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Sets the event. An auto-reset event lets one waiter through and is consumed by it; a manual-reset event
    // lets all through until Reset. False if the system refuses.
    bool Signal() noexcept;
    bool Reset() noexcept;

    // Waits at most timeoutMs of real, monotonic time (a step of the system's clock changes nothing); 0 asks
    // without waiting, kNoLimitMs waits for ever. Code above the platform waits through Clock::Wait, so that
    // tests can replace the time; only Clock and waits without a limit call this.
    WaitResult Wait(uint32_t timeoutMs) noexcept;

  private:
    struct Impl;
    explicit Event(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_Impl;
};

// A counting semaphore; the count never passes the maximum.
class Semaphore {
  public:
    // Null if the system has no room for one or the counts make no sense (initial > maximum).
    static std::unique_ptr<Semaphore> Create(uint32_t initialCount, uint32_t maximumCount) noexcept;
    ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Adds one; false at the maximum, which leaves the count as it is.
    bool Post() noexcept;
    // Takes one, waiting without a limit.
    bool Wait() noexcept;

  private:
    struct Impl;
    explicit Semaphore(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_Impl;
};

}  // namespace quillet::platform
