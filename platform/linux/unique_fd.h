// SPDX-License-Identifier: MIT
// Ownership of a file descriptor.
#pragma once

#include <cerrno>
#include <cstdint>
#include <unistd.h>
#include <utility>

namespace quillet::platform {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : m_Fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(m_Fd, other.m_Fd);
        return *this;
    }
    // EINTR isn't retried here: Linux has freed the number by then.
    ~UniqueFd() {
        if (m_Fd >= 0) ::close(m_Fd);
    }

    bool IsOpen() const noexcept { return m_Fd >= 0; }
    int Get() const noexcept { return m_Fd; }
    // The caller owns the descriptor from here on.
    int Release() noexcept { return std::exchange(m_Fd, -1); }

  private:
    int m_Fd = -1;
};

// Calls again as long as a signal interrupts. For system calls that answer -1 with errno.
template <typename Call>
auto RetryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

// errno as the contracts carry it.
inline uint32_t LastErrno() noexcept {
    return static_cast<uint32_t>(errno);
}

}  // namespace quillet::platform
