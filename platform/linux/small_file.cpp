#include "platform/linux/small_file.h"

#include <fcntl.h>
#include <utility>

namespace quillet::platform {
namespace {

constexpr size_t kAttributeLimit = 4096;  // the kernel's own

}  // namespace

Directory::Directory(UniqueFd fd) noexcept {
    if (fd.IsOpen()) {
        m_Stream.reset(::fdopendir(fd.Get()));
        if (m_Stream) {
            fd.Release();
        }
    }
}

Directory Directory::Open(const std::string& path) noexcept {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    return Directory(UniqueFd(RetryInterrupted([&] { return ::open(path.c_str(), kFlags); })));
}

bool ReadAll(int fd, size_t limit, std::string& content) {
    content.resize(limit + 1);
    size_t size = 0;
    while (size < content.size()) {
        const ssize_t count =
            RetryInterrupted([&] { return ::read(fd, content.data() + size, content.size() - size); });
        if (count < 0) {
            content.clear();
            return false;
        }
        if (count == 0) {
            break;
        }
        size += static_cast<size_t>(count);
    }
    content.resize(size);
    return true;
}

std::string ReadAttribute(int directory, const std::string& path) {
    const UniqueFd fd(RetryInterrupted([&] { return ::openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC); }));
    std::string text;
    if (fd.IsOpen() && ReadAll(fd.Get(), kAttributeLimit, text) && text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

}  // namespace quillet::platform
