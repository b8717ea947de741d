// SPDX-License-Identifier: MIT
// Storage for process-wide objects.
#pragma once

#include <new>
#include <utility>

namespace quillet::platform {

// Holds an object that is never destroyed, so that a thread that is late at the end of the process still meets a living
// object. Whatever the object holds (threads, files) is given up by an operation of its own, when the library is taken
// down. As a function's static variable it is made on first use, safely between threads; where that mustn't throw it is
// a variable of its file, made when the library is loaded.
template <typename T>
class NoDestroy {
  public:
    template <typename... Args>
    explicit NoDestroy(Args&&... args) {
        ::new (static_cast<void*>(m_Storage)) T(std::forward<Args>(args)...);
    }
    T& Get() noexcept { return *std::launder(reinterpret_cast<T*>(m_Storage)); }

  private:
    alignas(T) unsigned char m_Storage[sizeof(T)];
};

}  // namespace quillet::platform
