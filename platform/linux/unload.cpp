#include "platform/unload.h"

#include <atomic>

namespace quillet::platform {
namespace {

std::atomic<void (*)()> g_Routine{nullptr};

// Runs at dlclose and at the end of the process.
__attribute__((destructor)) void RunRoutine() {
    if (void (*routine)() = g_Routine.exchange(nullptr)) routine();
}

}  // namespace

void OnUnload(void (*routine)()) noexcept {
    g_Routine = routine;
}

}  // namespace quillet::platform
