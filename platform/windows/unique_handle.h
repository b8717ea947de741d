// SPDX-License-Identifier: MIT
// Owner of a handle of the system.
#pragma once

#include <windows.h>
#include <utility>

namespace quillet::platform {

// Closes the handle at the end of its life. Some calls say null for no handle and some INVALID_HANDLE_VALUE;
// both are none here.
class UniqueHandle {
  public:
    UniqueHandle() noexcept = default;
    explicit UniqueHandle(HANDLE handle) noexcept : m_Handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_Handle(std::exchange(other.m_Handle, nullptr)) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            Reset();
            m_Handle = std::exchange(other.m_Handle, nullptr);
        }
        return *this;
    }
    ~UniqueHandle() { Reset(); }

    bool IsOpen() const noexcept { return m_Handle != nullptr && m_Handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const noexcept { return m_Handle; }
    void Reset() noexcept {
        if (IsOpen()) ::CloseHandle(m_Handle);
        m_Handle = nullptr;
    }

  private:
    HANDLE m_Handle = nullptr;
};

}  // namespace quillet::platform
