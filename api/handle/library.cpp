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

// The library is being unloaded, perhaps with handles still open. Ends every thread of ours, so that none
// runs on in code that is gone; the objects themselves stay, since their owner may be using them on a thread
// of its own.
void TakeDownLibrary() {
    TheCommArbiter().RemoveAll();
    {
        std::lock_guard lock(TheLiveObjects().mutex);
        // With the lock held: an object that another thread is destroying waits for it before it goes.
        for (ScannerObject* object : std::exchange(TheLiveObjects().objects, {})) object->scanner.EndEventThread();
    }
    TheLog().ShutDown();
}

[[maybe_unused]] const bool g_Registered = (platform::OnUnload(&TakeDownLibrary), true);

}  // namespace

void AddLiveObject(ScannerObject* object) {
    std::lock_guard lock(TheLiveObjects().mutex);
    TheLiveObjects().objects.push_back(object);
}

void RemoveLiveObject(ScannerObject* object) {
    std::lock_guard lock(TheLiveObjects().mutex);
    std::erase(TheLiveObjects().objects, object);
}

}  // namespace quillet
