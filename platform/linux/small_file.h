// Reading directories and small files with few system calls.
#pragma once

#include <cstddef>
#include <dirent.h>
#include <memory>
#include <string>

#include "platform/linux/unique_fd.h"

namespace quillet::platform {

// An open directory and its entries.
class Directory {
  public:
    // Takes the descriptor; not open if it wasn't.
    explicit Directory(UniqueFd fd) noexcept;
    static Directory Open(const std::string& path) noexcept;

    bool IsOpen() const noexcept { return m_Stream != nullptr; }
    int Fd() const noexcept { return ::dirfd(m_Stream.get()); }
    // The next entry, in no order; null at the end.
    // Safe between threads, as each has a stream of its own.
    const dirent* Next() noexcept { return ::readdir(m_Stream.get()); }  // NOLINT(concurrency-mt-unsafe)

  private:
    struct Closer {
        void operator()(DIR* stream) const noexcept { ::closedir(stream); }
    };
    std::unique_ptr<DIR, Closer> m_Stream;
};

// What a file holds, read to its end or to one byte above the limit; false if it can't be read.
bool ReadAll(int fd, size_t limit, std::string& content);

// The text of an attribute of the kernel, without its final line end; empty if there is none.
std::string ReadAttribute(int directory, const std::string& path);

}  // namespace quillet::platform
