// SPDX-License-Identifier: MIT
// A signal that ends waits for a device.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/process_origin.h"

namespace quillet::platform {

// A signal that stays set until Reset and that reads and writes of a device can wait on together with the
// device. Any thread may use it; it must outlive the waits on it. A copy of the process shares the signal, so there
// Set and Reset do nothing.
class StopSignal {
  public:
    StopSignal();  // throws std::system_error if the system has no room for one
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    void Set() noexcept;
    void Reset() noexcept;
    bool IsSet() const noexcept;
    // As IsSet, without a system call; it may not yet show a Set or Reset that hasn't returned.
    bool LooksSet() const noexcept { return m_LooksSet.load(); }
    // Waits at most timeoutMs of real time for the signal; true if it is set. kNoLimitMs waits for ever.
    bool Wait(uint32_t timeoutMs) const noexcept;

    // Closes the system's object before the destruction. No wait may be under way, and the signal is never set again.
    void Close() noexcept;

    // What the system's waits take: a file descriptor or an event handle.
    intptr_t NativeHandle() const noexcept { return m_Native.load(std::memory_order_relaxed); }

  private:
    std::atomic<intptr_t> m_Native;
    std::atomic<bool> m_LooksSet{false};  // set after m_Native and cleared before it: never set beside a clear one
    const ProcessOrigin m_Origin;
};

}  // namespace quillet::platform
