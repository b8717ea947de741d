// SPDX-License-Identifier: MIT
// The threading primitives, for hosts without a platform layer of their own. The library itself doesn't call them.
#include <limits>
#include <memory>

#include <quillet/quillet.h>

#include "foundation/sync.h"
#include "platform/cancellation.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/thread.h"

namespace quillet {
namespace {

constexpr int32_t kFailed = -1;
constexpr uint32_t kMaxCount = std::numeric_limits<int32_t>::max();

// What a handle of either kind points to; one of the two is set.
struct OsObject {
    std::unique_ptr<platform::Event> event;
    std::unique_ptr<platform::Semaphore> semaphore;
};

int32_t HandOut(OsObject object, void** handle) {
    if (object.event == nullptr && object.semaphore == nullptr) return kFailed;
    try {
        *handle = std::make_unique<OsObject>(std::move(object)).release();
        return 0;
    } catch (...) {
        return kFailed;
    }
}

void Destroy(void* handle) {
    const std::unique_ptr<OsObject> object(static_cast<OsObject*>(handle));
}

// Null for a null handle and for one of the other kind.
platform::Event* EventOf(void* handle) {
    return handle != nullptr ? static_cast<OsObject*>(handle)->event.get() : nullptr;
}

platform::Semaphore* SemaphoreOf(void* handle) {
    return handle != nullptr ? static_cast<OsObject*>(handle)->semaphore.get() : nullptr;
}

struct EventWait {
    uint32_t timeoutMs;
    int32_t resultIfNotSignalled;
};

int32_t WaitForEvent(void* handle, EventWait wait) {
    const platform::CancellationHeldOff heldOff;
    platform::Event* event = EventOf(handle);
    if (event == nullptr) return OsEventFailed;
    switch (platform::TheClock().Wait(*event, wait.timeoutMs)) {
        case platform::WaitResult::Signalled: return OsEventSignalled;
        case platform::WaitResult::TimedOut: return wait.resultIfNotSignalled;
        default: return OsEventFailed;
    }
}

}  // namespace
}  // namespace quillet

using namespace quillet;

int32_t os_event_init(void** event, int32_t type) {
    if (event == nullptr) return kFailed;
    using Kind = platform::Event::Kind;
    return HandOut({platform::Event::Create(type == kManualResetEvent ? Kind::ManualReset : Kind::AutoReset), nullptr},
                   event);
}

void os_event_destroy(void* event) {
    Destroy(event);
}

int32_t os_event_wait(void* event) {
    return WaitForEvent(event, {.timeoutMs = platform::kNoLimitMs, .resultIfNotSignalled = OsEventFailed});
}

int32_t os_event_timedwait(void* event, uint32_t timeoutMs) {
    return WaitForEvent(event, {.timeoutMs = timeoutMs, .resultIfNotSignalled = OsEventTimedOut});
}

int32_t os_event_try(void* event) {
    return WaitForEvent(event, {.timeoutMs = 0, .resultIfNotSignalled = OsEventNotSignalled});
}

int32_t os_event_signal(void* event) {
    platform::Event* target = EventOf(event);
    return target != nullptr && target->Signal() ? OsEventSignalled : OsEventFailed;
}

void os_event_reset(void* event) {
    if (platform::Event* target = EventOf(event)) target->Reset();
}

int32_t os_sem_init(void** semaphore, int32_t initialCount) {
    if (semaphore == nullptr || initialCount < 0) return kFailed;
    return HandOut({nullptr, platform::Semaphore::Create(static_cast<uint32_t>(initialCount), kMaxCount)}, semaphore);
}

void os_sem_destroy(void* semaphore) {
    Destroy(semaphore);
}

int32_t os_sem_post(void* semaphore) {
    platform::Semaphore* target = SemaphoreOf(semaphore);
    return target != nullptr && target->Post() ? 0 : kFailed;
}

int32_t os_sem_wait(void* semaphore) {
    const platform::CancellationHeldOff heldOff;
    platform::Semaphore* target = SemaphoreOf(semaphore);
    return target != nullptr && target->Wait() ? 0 : kFailed;
}

void os_set_thread_name(const char* name) {
    platform::SetCurrentThreadName(name);
}
