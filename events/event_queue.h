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
class CEventQueue {
  public:
    // Starts the thread.
    CEventQueue();
    // Ends the thread after the pass that is under way.
    ~CEventQueue();
    CEventQueue(const CEventQueue&) = delete;
    CEventQueue& operator=(const CEventQueue&) = delete;

    void SetCallback(void* context, EventCallback newCallback);

    // Throw OposQueueError for a mask of 32 or above, which isn't stored.
    void SetAllowableEvents(int32_t mask);
    // Wakes the thread for one pass, also if the mask stays the same; not where nobody could see the pass.
    void SetEnabledEvents(int32_t mask);
    int32_t GetEnabledEvents() const { return enabledEvents.load(); }
    // Sets and clears bits of the enabled mask as one step, and wakes the thread as SetEnabledEvents does.
    void ChangeEnabledEvents(int32_t setBits, int32_t clearBits);

    void SetFreeze(bool freeze) { frozen.store(freeze); }
    void SetAutoDisable(bool disable) { autoDisable.store(disable); }

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

    std::array<uint32_t, 5> counts{};  // records held per type; guarded by `mutex`
    std::deque<EventRecord> records;   // guarded by `mutex`
    std::recursive_mutex mutex;        // also held for a change of enabledEvents; never across a callback
    std::atomic<int32_t> allowableEvents{0};
    std::atomic<int32_t> enabledEvents{0};
    OsSemaphore wakeUp{0};             // one count, one pass
    void* callbackContext = nullptr;   // guarded by `mutex`
    EventCallback callback = nullptr;  // guarded by `mutex`
    std::atomic<bool> autoDisable{false};
    std::atomic<bool> exiting{false};
    std::atomic<bool> frozen{false};
    std::mutex threadMutex;   // guards `thread`, the object
    platform::Thread thread;  // last: everything it reads exists before it starts
};

}  // namespace quillet
