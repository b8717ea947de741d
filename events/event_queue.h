// SPDX-License-Identifier: MIT
// The event masks of a device, and a thread that delivers stored events. Nothing stores one at present:
// received data is handled on the read thread of its link, so each pass of the thread finds an empty store.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>

#include "events/event_record.h"
#include "foundation/sync.h"
#include "platform/thread.h"

namespace quillet {

// Gets each event that a pass takes out, on the queue's thread, outside its lock.
using EventCallback = void (*)(void* context, EventRecord* record);

// All operations may be called from any thread.
class EventQueue {
  public:
    // Starts the thread.
    EventQueue();
    // Ends the thread after the pass that is under way.
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    void SetCallback(void* context, EventCallback callback);

    // Throws OposQueueError for a mask of 32 or above, which isn't stored. Wakes the thread for one pass, also if the
    // mask stays the same, unless the pass would find no event and log nothing.
    void SetEnabledEvents(int32_t mask);
    int32_t GetEnabledEvents() const { return m_EnabledEvents.load(); }
    // Sets and clears bits of the enabled mask as one step, and wakes the thread as SetEnabledEvents does.
    void ChangeEnabledEvents(int32_t setBits, int32_t clearBits);

    void SetFreeze(bool freeze) { m_Frozen.store(freeze); }

    void ClearEvents(uint32_t type);
    void ClearAll();

    // Ends the thread before the destruction: the library is being taken down with the device still there.
    void EndThread();

  private:
    static size_t CountIndex(uint32_t type);
    void StoreEnabledEvents(int32_t mask);
    void RunThread();
    void RunPass();
    EventRecord TakeEnabledRecord();

    std::array<uint32_t, 5> m_Counts{};  // records held per type; guarded by m_Mutex
    std::deque<EventRecord> m_Records;   // guarded by m_Mutex
    std::recursive_mutex m_Mutex;        // also held for a change of m_EnabledEvents; never across a callback
    std::atomic<int32_t> m_EnabledEvents{0};
    OsSemaphore m_WakeUp{0};             // one count, one pass
    void* m_CallbackContext = nullptr;   // guarded by m_Mutex
    EventCallback m_Callback = nullptr;  // guarded by m_Mutex
    std::atomic<bool> m_Exiting{false};
    std::atomic<bool> m_Frozen{false};
    std::mutex m_ThreadMutex;   // guards m_Thread, the object
    platform::Thread m_Thread;  // last: everything it reads exists before it starts
};

}  // namespace quillet
