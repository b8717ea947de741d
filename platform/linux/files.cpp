// SPDX-License-Identifier: MIT
// The file operations of the log.
#include "platform/files.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/unique_fd.h"

namespace quillet::platform {
namespace {

constexpr size_t kPathLimit = 259;
// For others to read; the host's umask may take away from it.
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr std::string_view kDeletedMark = " (deleted)";

std::string NativePath(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// The kernel marks an executable whose file was replaced while it runs, as an upgrade does.
void DropDeletedMark(std::string& path) {
    struct stat found {};
    if (path.ends_with(kDeletedMark) && ::stat(path.c_str(), &found) != 0) {
        path.resize(path.size() - kDeletedMark.size());
    }
}

}  // namespace

std::string ExecutablePath() {
    std::array<char, 4096> buffer{};
    const ssize_t size = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (size <= 0) return {};
    std::string path(buffer.data(), static_cast<size_t>(size));
    DropDeletedMark(path);
    return path.substr(0, kPathLimit);
}

bool IsDirectory(const std::string& path) noexcept try {
    struct stat found {};
    return ::stat(NativePath(path).c_str(), &found) == 0 && S_ISDIR(found.st_mode);
} catch (...) {
    return false;
}

void MakeDirectory(const std::string& path) noexcept try {
    ::mkdir(NativePath(path).c_str(), kDirectoryMode);
} catch (...) {
    // A failure shows when the file is opened.
}

struct AppendFile::Impl {
    UniqueFd fd;
};

AppendFile::AppendFile(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

AppendFile::~AppendFile() = default;

std::unique_ptr<AppendFile> AppendFile::Open(const std::string& path) noexcept try {
    // O_NONBLOCK is for a pipe of that name, which would hold up the open.
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK;
    const std::string native = NativePath(path);
    UniqueFd fd(RetryInterrupted([&] { return ::open(native.c_str(), kFlags, kFileMode); }));
    struct stat found {};
    // Writing to a pipe can raise SIGPIPE in the host, and to a device do anything.
    if (!fd.IsOpen() || ::fstat(fd.Get(), &found) != 0 || !S_ISREG(found.st_mode)) return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->fd = std::move(fd);
    return std::unique_ptr<AppendFile>(new AppendFile(std::move(impl)));
} catch (...) {
    return nullptr;
}

void AppendFile::Write(std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = RetryInterrupted([&] { return ::write(m_Impl->fd.Get(), text.data(), text.size()); });
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace quillet::platform
