// SPDX-License-Identifier: MIT
// Devices that programs register: one small file each, in a directory that hosts look into.
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>

#include "platform/linux/linux_roots.h"
#include "platform/linux/unique_fd.h"
#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/linux/checked.h"

namespace quillet::tools {
namespace {

std::string ParentOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string WithoutFinalSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// Hosts pass over a directory that somebody else could have put a device into, silently; here it's an error.
void RequirePrivateDirectory(const std::string& path) {
    struct stat status {};
    Checked(::lstat(path.c_str(), &status), path);
    const bool ownerIsTrusted = status.st_uid == 0 || status.st_uid == ::geteuid();
    if (!S_ISDIR(status.st_mode) || !ownerIsTrusted || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw std::runtime_error(path + ": not a directory that its owner alone can write to");
    }
}

void MakePrivateDirectory(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) ThrowErrno(path);
    RequirePrivateDirectory(path);
}

platform::UniqueFd CreateNewFile(const std::string& path) {
    ::unlink(path.c_str());
    return platform::UniqueFd(Checked(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644), path));
}

// False if the path names another file by now: its owner removed it between our opening and our locking.
bool StillNames(const std::string& path, int file) {
    struct stat byPath {};
    struct stat byFile {};
    return ::lstat(path.c_str(), &byPath) == 0 && ::fstat(file, &byFile) == 0 && byPath.st_ino == byFile.st_ino;
}

}  // namespace

std::string DeviceRegistration::UserDirectory() {
    return platform::SystemRoots().registered.back();  // the first is root's
}

struct DeviceRegistration::Impl {
    explicit Impl(const Place& place)
        : devicePath(place.directory + "/" + place.name + ".device"),
          socketPath(place.directory + "/" + place.name + ".socket"),
          lockName(place.name + ".lock"),
          lockPath(place.directory + "/" + lockName) {
        TakeName();
    }
    ~Impl() { ::unlink(lockPath.c_str()); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void TakeName();

    const std::string devicePath;
    const std::string socketPath;
    const std::string lockName;
    const std::string lockPath;
    // Open and locked from construction to destruction. Hosts ask after the lock, which ends with the last process that
    // has this descriptor; so none is handed to a child.
    platform::UniqueFd lock;
};

void DeviceRegistration::Impl::TakeName() {
    for (;;) {
        platform::UniqueFd file(
            Checked(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644), lockPath));
        struct flock whole {};
        whole.l_type = F_WRLCK;
        whole.l_whence = SEEK_SET;
        if (::fcntl(file.Get(), F_OFD_SETLK, &whole) != 0) {
            if (errno != EAGAIN && errno != EACCES) ThrowErrno(lockPath);
            throw std::runtime_error(devicePath + ": another running program has this device");
        }
        if (!StillNames(lockPath, file.Get())) continue;
        lock = std::move(file);
        return;
    }
}

DeviceRegistration::DeviceRegistration(const Place& place) {
    const std::string folder = WithoutFinalSlashes(place.directory);
    const std::string parent = ParentOf(folder);
    if (!parent.empty()) MakePrivateDirectory(parent);
    MakePrivateDirectory(folder);
    m_Impl = std::make_unique<Impl>(Place{.directory = folder, .name = place.name});
    Withdraw();
}

DeviceRegistration::~DeviceRegistration() {
    Withdraw();
}

const std::string& DeviceRegistration::SocketPath() const {
    return m_Impl->socketPath;
}

void DeviceRegistration::Publish(const DeviceText& text) {
    const std::string& path = m_Impl->devicePath;
    const std::string draft = path + ".new";  // not a name that hosts look at
    {
        const std::string content = text + "lock=" + m_Impl->lockName + "\n";
        const platform::UniqueFd file = CreateNewFile(draft);
        const ssize_t written = ::write(file.Get(), content.data(), content.size());
        if (written != static_cast<ssize_t>(content.size())) ThrowErrno(draft);
    }
    Checked(::rename(draft.c_str(), path.c_str()), path);
}

void DeviceRegistration::Withdraw() noexcept {
    ::unlink(m_Impl->devicePath.c_str());
}

}  // namespace quillet::tools
