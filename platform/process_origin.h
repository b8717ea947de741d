// SPDX-License-Identifier: MIT
// Which process made an object, on systems where a process can be copied with everything it holds.
#pragma once

#include <cstdint>
#include <new>
#include <utility>

namespace quillet::platform {

// A copied process (a child of fork) shares the signals, locks and devices of the one that it was copied from, and
// has none of its threads. Whatever reaches beyond the memory of the process asks here first, so that the copy does
// no harm to the original. Costs no system call.
class ProcessOrigin {
  public:
    ProcessOrigin() noexcept;
    // True in the process that made this object, false in a copy of it.
    bool IsHere() const noexcept;

  private:
    uint32_t m_Generation;
};

// An object that is destroyed only in the process that made it: a condition variable, the destruction of which waits
// for threads that a copy doesn't have.
template <typename T>
class ProcessBound {
  public:
    template <typename... Args>
    explicit ProcessBound(Args&&... args) {
        ::new (static_cast<void*>(m_Storage)) T(std::forward<Args>(args)...);
    }
    ~ProcessBound() {
        if (m_Origin.IsHere()) Object().~T();
    }
    ProcessBound(const ProcessBound&) = delete;
    ProcessBound& operator=(const ProcessBound&) = delete;

    T& operator*() noexcept { return Object(); }
    T* operator->() noexcept { return &Object(); }

  private:
    T& Object() noexcept { return *std::launder(reinterpret_cast<T*>(m_Storage)); }

    alignas(T) unsigned char m_Storage[sizeof(T)];
    const ProcessOrigin m_Origin;
};

}  // namespace quillet::platform
