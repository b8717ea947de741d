#include "platform/unload.h"

#include <windows.h>
#include <atomic>

namespace quillet::platform {
namespace {

std::atomic<void (*)()> g_Routine{nullptr};

}  // namespace

void OnUnload(void (*routine)()) noexcept {
    g_Routine = routine;
}

}  // namespace quillet::platform

// Runs under the loader lock, so nothing here may wait for a thread: a thread takes that lock on its way out.
// At an unload (no reserved pointer) none is left to wait for, since each library thread keeps the library
// loaded. At the end of the process the system has killed the threads wherever they were, perhaps with a lock
// held; there the system takes everything back by itself.
//
// The library itself has no use for the news of threads. A compiler's runtime that has, to free what it keeps of
// each thread, has thread-local storage too, and then the system goes on telling all the same.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) ::DisableThreadLibraryCalls(instance);
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        if (void (*routine)() = quillet::platform::g_Routine.exchange(nullptr)) routine();
    }
    return TRUE;
}
