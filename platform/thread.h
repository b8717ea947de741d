// Threads of the library, and what is asked about the calling thread.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

namespace quillet::platform {

// Starts a joinable thread that has all signals blocked (they belong to the host's own threads) and the given
// name in debuggers (at most 15 bytes count on Linux). The body must not throw; as a last line of defence an
// exception that leaves it ends this thread alone, not the host. Throws std::system_error if no thread can be
// made.
std::thread StartThread(const char* name, std::function<void()> body);

// The system's id of the calling thread, as debuggers and process lists show it.
uint32_t CurrentThreadId() noexcept;

// Names the calling thread for a debugger, where there is one to see it; a null name is ignored.
void SetCurrentThreadName(const char* name) noexcept;

}  // namespace quillet::platform
