// SPDX-License-Identifier: MIT
#include "api/handle/library.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "api/handle/scanner_object.h"
#include "foundation/log.h"
#include "foundation/no_destroy.h"
#include "platform/unload.h"
#include "transport/comm_arbiter.h"

namespace quillet {
namespace {

struct LiveObjects {
    std::mutex mutex;  // guards `objects`
    std::vector<ScannerObject*> objects;
};

LiveObjects& TheLiveObjects() {
    static NoDestroy<LiveObjects> objects;
    return objects.Get();
}

// The memory stays: at the end of a process, which can't be told from an unloading, other threads of the host may be
// anywhere in our calls. An object that one of them is working on keeps its claim, too.
void TakeDown(ScannerObject& object) {
    object.scanner.EndEventThread();
    const std::unique_lock lock(object.lifecycle, std::try_to_lock);
    if (lock.owns_lock() && object.calls.IsEmpty()) object.scanner.GiveUp();
}

// The library is being unloaded, perhaps with handles still open. Ends every thread of ours, so that none runs on in
// code that is gone, and closes every device, claim and file.
void TakeDownLibrary() {
    TheCommArbiter().RemoveAll();
    {
        std::lock_guard lock(TheLiveObjects().mutex);
        // With the lock held: an object that another thread is destroying waits for it before it goes.
        for (ScannerObject* object : std::exchange(TheLiveObjects().objects, {})) TakeDown(*object);
    }
    TheLog().ShutDown();
}

}  // namespace

void PrepareEnd() {
    std::lock_guard lock(TheLiveObjects().mutex);
    if (TheLiveObjects().objects.empty()) platform::OnUnload(&TakeDownLibrary);
}

void AddLiveObject(ScannerObject* object) {
    std::lock_guard lock(TheLiveObjects().mutex);
    TheLiveObjects().objects.push_back(object);
}

void RemoveLiveObject(ScannerObject* object) {
    std::lock_guard lock(TheLiveObjects().mutex);
    std::erase(TheLiveObjects().objects, object);
}

}  // namespace quillet
