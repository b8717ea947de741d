// Sockets as objects, and failures of Windows as exceptions.
#pragma once

#include <string>
#include <system_error>
#include <utility>
#include <winsock2.h>

#include "platform/windows/unique_handle.h"

namespace quillet::tools {

[[noreturn]] inline void ThrowWindows(const std::string& what, DWORD error = ::GetLastError()) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

inline platform::UniqueHandle Checked(HANDLE handle, const std::string& what) {
    platform::UniqueHandle owner(handle);
    if (!owner.IsOpen()) ThrowWindows(what);
    return owner;
}

class UniqueSocket {
  public:
    explicit UniqueSocket(SOCKET socket) noexcept : m_Socket(socket) {}
    UniqueSocket(UniqueSocket&& other) noexcept : m_Socket(std::exchange(other.m_Socket, INVALID_SOCKET)) {}
    UniqueSocket& operator=(UniqueSocket&&) = delete;
    ~UniqueSocket() {
        if (m_Socket != INVALID_SOCKET) ::closesocket(m_Socket);
    }
    SOCKET Get() const noexcept { return m_Socket; }

  private:
    SOCKET m_Socket;
};

}  // namespace quillet::tools
