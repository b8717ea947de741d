// SPDX-License-Identifier: MIT
#include "platform/unload.h"

#include <atomic>

#include "platform/process_origin.h"

namespace quillet::platform {
namespace {

std::atomic<void (*)()> g_Routine{nullptr};
std::atomic<ProcessOrigin> g_Process{};  // the one that wants it called

// Runs at dlclose and at the end of the process.
__attribute__((destructor)) void RunRoutine() {
    void (*routine)() = g_Routine.exchange(nullptr);
    if (routine != nullptr && g_Process.load().IsHere()) routine();
}

}  // namespace

void OnUnload(void (*routine)()) noexcept {
    g_Process = ProcessOrigin();
    g_Routine = routine;
}

}  // namespace quillet::platform
