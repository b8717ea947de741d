// SPDX-License-Identifier: MIT
#include "events/event_queue.h"

#include <algorithm>
#include <bit>
#include <exception>
#include <string>
#include <utility>

#include "foundation/log.h"

namespace quillet {

EventQueue::EventQueue() {
    ClearAll();
    m_Thread = platform::StartThread("QuilletEvents", [this] { RunThread(); });
}

EventQueue::~EventQueue() {
    EndThread();
    ClearAll();
}

void EventQueue::EndThread() {
    m_Exiting.store(true);
    m_WakeUp.Post();
    platform::Thread ended;
    {
        std::lock_guard lock(m_ThreadMutex);
        ended = std::exchange(m_Thread, {});
    }
    ended.Join();
}

void EventQueue::SetCallback(void* context, EventCallback callback) {
    std::lock_guard lock(m_Mutex);
    m_CallbackContext = context;
    m_Callback = callback;
}

void EventQueue::SetEnabledEvents(int32_t mask) {
    if (mask > static_cast<int32_t>(EventAll)) throw OposQueueError("Invalid event type passed to SetEnabledEvents.");
    std::lock_guard lock(m_Mutex);
    StoreEnabledEvents(mask);
}

void EventQueue::ChangeEnabledEvents(int32_t setBits, int32_t clearBits) {
    std::lock_guard lock(m_Mutex);
    StoreEnabledEvents((GetEnabledEvents() | setBits) & ~clearBits);
}

// To be called with m_Mutex held. A pass that finds no event does nothing but log two detail lines, so the thread
// sleeps on where the log doesn't keep them.
void EventQueue::StoreEnabledEvents(int32_t mask) {
    m_EnabledEvents.store(mask);
    if (!m_Records.empty() || LogWanted(LLInfo)) m_WakeUp.Post();
}

size_t EventQueue::CountIndex(uint32_t type) {
    return std::min<size_t>(static_cast<size_t>(std::countr_zero(type)), 4);
}

void EventQueue::ClearEvents(uint32_t type) {
    std::lock_guard lock(m_Mutex);
    const size_t removed = std::erase_if(m_Records, [type](const EventRecord& record) { return record.type == type; });
    if (removed > 0) m_Counts[CountIndex(type)] -= static_cast<uint32_t>(removed);
}

void EventQueue::ClearAll() {
    std::lock_guard lock(m_Mutex);
    m_Records.clear();
    m_Counts.fill(0);
}

void EventQueue::RunThread() {
    LogInfo("    | Event Queue Thread Start......");
    while (m_WakeUp.Wait() == 0 && !m_Exiting.load()) {
        try {
            RunPass();
        } catch (const std::exception& error) {  // of the callback; the thread serves the next event
            LogCritical("Error: Event Queue Thread: ", std::string(error.what()));
        }
    }
    LogInfo("    | Event Queue Thread exit......");
}

void EventQueue::RunPass() {
    if (m_Frozen.load()) return;
    EventRecord record = TakeEnabledRecord();
    if (record.type == EventNone) return;
    std::unique_lock lock(m_Mutex);
    const EventCallback target = m_Callback;
    void* const context = m_CallbackContext;
    lock.unlock();
    if (target != nullptr) target(context, &record);
}

// The first record of an enabled type; an empty record if there is none.
EventRecord EventQueue::TakeEnabledRecord() {
    std::lock_guard lock(m_Mutex);
    EventRecord taken;
    const auto enabled = static_cast<uint32_t>(m_EnabledEvents.load());
    const auto first = std::find_if(m_Records.begin(), m_Records.end(),
                                    [enabled](const EventRecord& record) { return (record.type & enabled) != 0; });
    if (first != m_Records.end()) {
        taken = std::move(*first);
        m_Records.erase(first);
        --m_Counts[CountIndex(taken.type)];
    }
    LogInfo("Cache Count All after pop : ", static_cast<uint64_t>(m_Records.size()));
    LogInfo("EventData Cache Count after pop : ", m_Counts[CountIndex(EventData)]);
    return taken;
}

}  // namespace quillet
