// SPDX-License-Identifier: MIT
#include "platform/linux/trusted_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

#include "platform/linux/small_file.h"

namespace quillet::platform {
namespace {

// All checks are made on the open descriptor, because the file behind a name can be exchanged between check and use.
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool IsOursOrRoots(const struct stat& found) {
    return found.st_uid == 0 || found.st_uid == ::geteuid();
}

// Not open if there is none that may be read.
UniqueFd OpenAt(int folder, const std::string& name, int flags) {
    UniqueFd fd(RetryInterrupted([&] { return ::openat(folder, name.c_str(), flags); }));
    if (!fd.IsOpen()) ThrowIfExhausted();
    return fd;
}

UniqueFd OpenOneFolder(int base, const std::string& name) {
    UniqueFd fd = OpenAt(base, name, kFolderFlags);
    struct stat found {};
    const bool trusted = fd.IsOpen() && ::fstat(fd.Get(), &found) == 0 && IsOursOrRoots(found) &&
                         (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return trusted ? std::move(fd) : UniqueFd();
}

}  // namespace

UniqueFd OpenTrustedFolder(const std::string& path) {
    const size_t cut = path.rfind('/');
    const UniqueFd parent = OpenOneFolder(AT_FDCWD, path.substr(0, cut));
    return parent.IsOpen() ? OpenOneFolder(parent.Get(), path.substr(cut + 1)) : UniqueFd();
}

UniqueFd OpenTrustedFile(int folder, const std::string& name) {
    UniqueFd fd = OpenAt(folder, name, kFileFlags);
    struct stat found {};
    const bool trusted =
        fd.IsOpen() && ::fstat(fd.Get(), &found) == 0 && S_ISREG(found.st_mode) && IsOursOrRoots(found);
    return trusted ? std::move(fd) : UniqueFd();
}

}  // namespace quillet::platform
