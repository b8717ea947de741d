// SPDX-License-Identifier: MIT
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
// The library needs no notice of threads that start and end. A compiler's runtime that needs it, to free what it keeps
// for each thread, also has thread-local storage, and then the system goes on notifying.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) ::DisableThreadLibraryCalls(instance);
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        if (void (*routine)() = quillet::platform::g_Routine.exchange(nullptr)) routine();
    }
    return TRUE;
}
