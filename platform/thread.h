// SPDX-License-Identifier: MIT
// Threads of the library, and what is asked about the calling thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace quillet::platform {

// A running thread, or none. Used by one thread at a time, as a plain object.
class Thread {
  public:
    Thread() noexcept;
    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;  // joins a thread that this object still has
    ~Thread();                                   // the same

    // True until Join, also when the thread has ended by itself.
    bool Joinable() const noexcept { return m_Impl != nullptr; }
    // Waits for the end of the thread, without a limit; the object is empty afterwards. Not from the thread
    // itself. Harmless on an empty object. In a copy of the process, which hasn't the thread, nothing is waited for.
    void Join() noexcept;
    // True on the thread of this object.
    bool IsCurrent() const noexcept;

  private:
    struct Impl;
    friend Thread StartThread(const char* name, std::function<void()> body);
    explicit Thread(std::unique_ptr<Impl> impl) noexcept;
    std::unique_ptr<Impl> m_Impl;
};

// Starts a joinable thread that has all signals blocked (they belong to the host's own threads) and the given name in
// debuggers (at most 15 bytes count on Linux). The body must not throw; as a last line of defence an exception that
// leaves it ends this thread alone, not the host. The code of the library stays loaded until the thread has ended,
// where the system could take it away before. Throws std::system_error if no thread can be made.
Thread StartThread(const char* name, std::function<void()> body);

// The system's id of the calling thread, as debuggers and process lists show it.
uint32_t CurrentThreadId() noexcept;

// Names the calling thread for a debugger, where there is one to see it; a null name is ignored.
void SetCurrentThreadName(const char* name) noexcept;

}  // namespace quillet::platform
