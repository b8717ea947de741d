// SPDX-License-Identifier: MIT
#include "platform/linux/small_file.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <utility>

namespace quillet::platform {
namespace {

constexpr size_t kAttributeLimit = 4096;  // the kernel's own

}  // namespace

void ThrowIfExhausted() {
    const int error = errno;
    if (error == EMFILE || error == ENFILE || error == ENOMEM) throw LookFailed(static_cast<uint32_t>(error));
}

Directory::Directory(UniqueFd fd) {
    if (fd.IsOpen()) {
        m_Stream.reset(::fdopendir(fd.Get()));
        if (!m_Stream) {
            ThrowIfExhausted();
            return;
        }
        fd.Release();
    }
}

Directory Directory::Open(const std::string& path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    UniqueFd fd(RetryInterrupted([&] { return ::open(path.c_str(), kFlags); }));
    if (!fd.IsOpen()) ThrowIfExhausted();
    return Directory(std::move(fd));
}

const dirent* Directory::Next() {
    errno = 0;  // the only way to tell an error from the end
    // Safe between threads, as each has a stream of its own.
    const dirent* entry = ::readdir(m_Stream.get());  // NOLINT(concurrency-mt-unsafe)
    if (entry == nullptr) ThrowIfExhausted();
    return entry;
}

// A regular file gives less than was asked for at its end alone.
bool ReadFile(const UniqueFd& fd, size_t limit, std::string& content) {
    std::array<char, kAttributeLimit + 1> page;  // NOLINT(cppcoreguidelines-pro-type-member-init): the read fills it
    const size_t wanted = std::min(limit + 1, page.size());
    const ssize_t count = RetryInterrupted([&] { return ::read(fd.Get(), page.data(), wanted); });
    if (count < 0) {
        ThrowIfExhausted();
        return false;
    }
    content.assign(page.data(), static_cast<size_t>(count));
    return content.size() <= limit;
}

// One read gives all of it: the kernel fills a page for each open, and gives no attribute in pieces.
std::string ReadAttribute(int directory, const std::string& path) {
    const UniqueFd fd(RetryInterrupted([&] { return ::openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC); }));
    std::array<char, kAttributeLimit> page;  // NOLINT(cppcoreguidelines-pro-type-member-init): the read fills it
    const ssize_t count =
        fd.IsOpen() ? RetryInterrupted([&] { return ::read(fd.Get(), page.data(), page.size()); }) : -1;
    if (count < 0) {
        ThrowIfExhausted();
        return {};
    }
    std::string_view text(page.data(), static_cast<size_t>(count));
    if (text.ends_with('\n')) text.remove_suffix(1);
    return std::string(text);
}

}  // namespace quillet::platform
