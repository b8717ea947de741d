// SPDX-License-Identifier: MIT
// A limit for the writes of a handle that is being closed.
#pragma once

#include <cstdint>
#include <mutex>
#include <utility>

#include "platform/event.h"
#include "platform/stop_signal.h"

namespace quillet::platform {

// Writes have no limit until somebody begins one; from then on all of them together have what it gives. Whoever closes
// a handle begins the limit before it waits for any lock, since a write to a device that takes nothing may be what
// holds the lock. Any thread may use it; it must outlive the writes that look at it.
class WriteLimit {
  public:
    // The first of several that close sets the limit, the last one's end takes it away.
    void Begin(uint32_t limitMs) noexcept;
    void End() noexcept;

    // Closes the system's object at the library's end, when nobody is writing any more.
    void GiveUp() noexcept;

    // kNoLimitMs without a limit; 0 once it is over.
    uint32_t LeftMs() const noexcept;
    // Set as long as there is a limit, for waits that have begun without one.
    const StopSignal& Begun() const noexcept { return m_Begun; }

  private:
    mutable std::mutex m_Mutex;  // guards the two below, and the order in which m_Begun is set and cleared
    uint32_t m_Closing = 0;      // how many have begun and not ended
    int64_t m_EndNs = 0;         // on TheClock
    StopSignal m_Begun;
};

// One limit, from construction to destruction or End; or none.
class WriteLimitScope {
  public:
    WriteLimitScope() noexcept = default;
    WriteLimitScope(WriteLimit& limit, uint32_t limitMs) noexcept : m_Limit(&limit) { limit.Begin(limitMs); }
    ~WriteLimitScope() { End(); }
    WriteLimitScope(WriteLimitScope&& other) noexcept : m_Limit(std::exchange(other.m_Limit, nullptr)) {}
    WriteLimitScope& operator=(WriteLimitScope&&) = delete;

    void End() noexcept {
        if (WriteLimit* const limit = std::exchange(m_Limit, nullptr)) limit->End();
    }

  private:
    WriteLimit* m_Limit = nullptr;
};

}  // namespace quillet::platform
