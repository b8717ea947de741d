#include "events/event_queue.h"

#include <algorithm>
#include <bit>
#include <exception>
#include <string>
#include <utility>

#include "foundation/log.h"

namespace quillet {

CEventQueue::CEventQueue() {
    ClearAll();
    thread = platform::StartThread("QuilletEvents", [this] { RunThread(); });
}

CEventQueue::~CEventQueue() {
    EndThread();
    ClearAll();
}

void CEventQueue::EndThread() {
    exiting.store(true);
    wakeUp.Post();
    platform::Thread ended;
    {
        std::lock_guard lock(threadMutex);
        ended = std::exchange(thread, {});
    }
    ended.Join();
}

void CEventQueue::SetCallback(void* context, EventCallback newCallback) {
    std::lock_guard lock(mutex);
    callbackContext = context;
    callback = newCallback;
}

void CEventQueue::SetAllowableEvents(int32_t mask) {
    if (mask > static_cast<int32_t>(EventAll)) {
        throw OposQueueError("Invalid event type passed to SetAllowableEvents.");
    }
    allowableEvents.store(mask);
}

void CEventQueue::SetEnabledEvents(int32_t mask) {
    if (mask > static_cast<int32_t>(EventAll)) {
        throw OposQueueError("Invalid event type passed to SetEnabledEvents.");
    }
    std::lock_guard lock(mutex);
    StoreEnabledEvents(mask);
}

void CEventQueue::ChangeEnabledEvents(int32_t setBits, int32_t clearBits) {
    std::lock_guard lock(mutex);
    StoreEnabledEvents((GetEnabledEvents() | setBits) & ~clearBits);
}

// With `mutex` held. A pass over an empty store shows in its detail lines alone. Those of a pass that was due before the
// log was switched on could have been missed by it anyway.
void CEventQueue::StoreEnabledEvents(int32_t mask) {
    enabledEvents.store(mask);
    if (!records.empty() || LogWanted(LLInfo)) wakeUp.Post();
}

size_t CEventQueue::CountIndex(uint32_t type) {
    return std::min<size_t>(static_cast<size_t>(std::countr_zero(type)), 4);
}

void CEventQueue::ClearEvents(uint32_t type) {
    std::lock_guard lock(mutex);
    const size_t removed = std::erase_if(records, [type](const EventRecord& record) { return record.type == type; });
    if (removed > 0) counts[CountIndex(type)] -= static_cast<uint32_t>(removed);
}

void CEventQueue::ClearAll() {
    std::lock_guard lock(mutex);
    records.clear();
    counts.fill(0);
}

void CEventQueue::RunThread() {
    LogInfo("    | Event Queue Thread Start......");
    while (wakeUp.Wait() == 0 && !exiting.load()) {
        try {
            RunPass();
        } catch (const std::exception& error) {  // of the callback; the thread serves the next event
            LogCritical("Error: Event Queue Thread: ", std::string(error.what()));
        }
    }
    LogInfo("    | Event Queue Thread exit......");
}

void CEventQueue::RunPass() {
    if (frozen.load()) return;
    EventRecord record = TakeEnabledRecord();
    if (record.type == EventNone) return;
    std::unique_lock lock(mutex);
    const EventCallback target = callback;
    void* const context = callbackContext;
    lock.unlock();
    if (target != nullptr) target(context, &record);
}

// The first record of an enabled type; an empty record if there is none.
EventRecord CEventQueue::TakeEnabledRecord() {
    std::lock_guard lock(mutex);
    EventRecord taken;
    const auto enabled = static_cast<uint32_t>(enabledEvents.load());
    const auto first = std::find_if(records.begin(), records.end(),
                                    [enabled](const EventRecord& record) { return (record.type & enabled) != 0; });
    if (first != records.end()) {
        taken = std::move(*first);
        records.erase(first);
        --counts[CountIndex(taken.type)];
    }
    LogInfo("Cache Count All after pop : ", static_cast<uint64_t>(records.size()));
    LogInfo("EventData Cache Count after pop : ", counts[CountIndex(EventData)]);
    return taken;
}

}  // namespace quillet
