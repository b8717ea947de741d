// Handles of Windows as objects, and failures as exceptions.
#pragma once

#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <windows.h>
#include <winsock2.h>

namespace quillet::platform {

[[noreturn]] inline void ThrowWindows(const std::string& what, DWORD error = ::GetLastError()) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

struct HandleCloser {
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

// For calls that give null or INVALID_HANDLE_VALUE on failure.
inline UniqueHandle CheckedHandle(HANDLE handle, const std::string& what) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) ThrowWindows(what);
    return UniqueHandle(handle);
}

class UniqueSocket {
  public:
    explicit UniqueSocket(SOCKET socket) : m_Socket(socket) {}
    UniqueSocket(UniqueSocket&& other) noexcept : m_Socket(std::exchange(other.m_Socket, INVALID_SOCKET)) {}
    UniqueSocket& operator=(UniqueSocket&&) = delete;
    ~UniqueSocket() {
        if (m_Socket != INVALID_SOCKET) ::closesocket(m_Socket);
    }
    SOCKET Get() const { return m_Socket; }

  private:
    SOCKET m_Socket;
};

}  // namespace quillet::platform
