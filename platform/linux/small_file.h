// SPDX-License-Identifier: MIT
// Reading directories and small files with few system calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <exception>
#include <memory>
#include <string>

#include "platform/linux/unique_fd.h"

namespace quillet::platform {

// A look for which the system had no descriptor or no memory: what it has seen so far, and missed, tells nothing.
class LookFailed : public std::exception {
  public:
    explicit LookFailed(uint32_t code) noexcept : error(code) {}
    const char* what() const noexcept override { return "no descriptor or no memory for a look at the devices"; }

    const uint32_t error;
};

// For a system call that has just failed: throws LookFailed if errno tells of such a shortage. Any other failure
// concerns one file alone. Everything below asks it.
void ThrowIfExhausted();

// An open directory and its entries.
class Directory {
  public:
    // Takes the descriptor; not open if it wasn't.
    explicit Directory(UniqueFd fd);
    static Directory Open(const std::string& path);

    bool IsOpen() const noexcept { return m_Stream != nullptr; }
    int Fd() const noexcept { return ::dirfd(m_Stream.get()); }
    // The next entry, in no order; null at the end.
    const dirent* Next();

  private:
    struct Closer {
        void operator()(DIR* stream) const noexcept { ::closedir(stream); }
    };
    std::unique_ptr<DIR, Closer> m_Stream;
};

// What a regular file holds; false if it can't be read, or holds more than the limit, 4,096 bytes at most.
bool ReadFile(const UniqueFd& fd, size_t limit, std::string& content);

// The text of an attribute of the kernel, without its final line end; empty if there is none.
std::string ReadAttribute(int directory, const std::string& path);

}  // namespace quillet::platform
