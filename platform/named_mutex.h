// SPDX-License-Identifier: MIT
// A mutex that processes share by name: the claim of a port.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace quillet::platform {

// It has an owner: the object it was taken through and the thread that took it. When the owner's process
// dies, it goes free. Two objects of one name exclude each other also inside one process. In a copy of the process an
// object can be neither taken nor released, and its destruction leaves the claim alone.
class NamedMutex {
  public:
    // Opens the mutex if some process has made it before; null if not.
    static std::unique_ptr<NamedMutex> OpenExisting(const std::string& name) noexcept;
    // Makes the mutex, or opens it if it exists; the caller doesn't own it. Null on failure.
    static std::unique_ptr<NamedMutex> Create(const std::string& name) noexcept;
    // Gives up the claim, if this object still has it, whichever thread took it. Where the system's mutexes belong to
    // threads (Windows) and other handles are open on this one, a claim of another thread is given up inside this
    // process alone: that thread can take it again, through any object, and releases all of it then; for everybody
    // else it is taken until that, or until the thread ends.
    ~NamedMutex();
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;

    // Takes the mutex, waiting at most timeoutMs; 0 asks without waiting. False if somebody else has it
    // (another thread of this process and another object on this thread count as somebody else), and for a
    // mutex whose owner was found dead on systems that tell so.
    bool Take(uint32_t timeoutMs) noexcept;
    // False if this object and the calling thread aren't the owner.
    bool Release() noexcept;

  private:
    struct Impl;
    explicit NamedMutex(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_Impl;
};

}  // namespace quillet::platform
