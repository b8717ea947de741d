// An open file descriptor, and the failures of system calls.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quillet::platform {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_Number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_Number(std::exchange(other.m_Number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_Number, other.m_Number);
        return *this;
    }
    ~Descriptor() {
        if (m_Number >= 0) ::close(m_Number);
    }

    int Get() const { return m_Number; }
    int Release() { return std::exchange(m_Number, -1); }
    bool IsOpen() const { return m_Number >= 0; }

  private:
    int m_Number = -1;
};

[[noreturn]] inline void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

inline int Checked(int result, const std::string& what) {
    if (result < 0) ThrowErrno(what);
    return result;
}

}  // namespace quillet::platform
