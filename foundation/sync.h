// SPDX-License-Identifier: MIT
// Event, semaphore and claim mutex as the service uses them: objects over the platform's, with the result
// numbers of the exported primitives.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/event.h"
#include "platform/named_mutex.h"

namespace quillet {

// Results of event operations, here and in the exported os_event calls.
enum OsEventResult : int32_t {
    OsEventSignalled = 0,
    OsEventNotSignalled = 11,  // asked without waiting
    OsEventFailed = 22,
    OsEventTimedOut = 138
};

// Types of an event as the exported os_event_init takes them; every number but 1 stands for auto reset.
inline constexpr int32_t kManualResetEvent = 1;

class OsEvent {
  public:
    explicit OsEvent(int32_t type);
    // 0, or 22 if the event could not be made.
    int32_t Signal();
    int32_t Reset();
    // 0 when signalled, 138 at the time-out, 22 on a failure. platform::kNoLimitMs waits for ever.
    int32_t TimedWait(uint32_t milliseconds);

  private:
    std::unique_ptr<platform::Event> m_Handle;  // null if creation failed
};

// A semaphore whose count may go up to 0x7FFFFFFF.
class OsSemaphore {
  public:
    explicit OsSemaphore(uint32_t initialCount);
    // 0, or -1 on failure.
    int32_t Post();
    int32_t Wait();

  private:
    std::unique_ptr<platform::Semaphore> m_Handle;
};

// The claim of a port between processes.
class ClaimMutex {
  public:
    void SetName(std::string name) { m_Name = std::move(name); }
    const std::string& Name() const { return m_Name; }
    bool IsOpen() const { return m_Handle != nullptr; }

    // Opens or makes the mutex of that name, unless a handle is held already.
    void Create();
    // True if it was obtained within the time.
    bool Take(uint32_t milliseconds);
    // True if this object and the calling thread were its owner.
    bool Release();
    // Lets go of the handle, and with it of a claim; keeps the name.
    void Close();

  private:
    std::unique_ptr<platform::NamedMutex> m_Handle;
    std::string m_Name;
};

}  // namespace quillet
