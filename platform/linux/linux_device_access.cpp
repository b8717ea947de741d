// SPDX-License-Identifier: MIT
#include "platform/linux/linux_device_access.h"

#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "platform/linux/device_path.h"
#include "platform/linux/hid_address.h"
#include "platform/linux/hid_file.h"
#include "platform/linux/serial_file.h"
#include "platform/linux/small_file.h"
#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

// O_NONBLOCK: an open doesn't wait for a carrier, and every later wait is a poll.
constexpr int kOpenFlags = O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// On failure not open, with errno. Pipes and plain files are no devices, and a write to one would do harm.
UniqueFd OpenNode(const std::string& file) {
    UniqueFd fd(RetryInterrupted([&] { return ::open(file.c_str(), kOpenFlags); }));
    struct stat found {};
    if (fd.IsOpen() && (::fstat(fd.Get(), &found) != 0 || !S_ISCHR(found.st_mode))) {
        fd = UniqueFd();
        errno = ENOTTY;
    }
    return fd;
}

UniqueFd ConnectSocket(const std::string& file) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (file.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return {};
    }
    std::memcpy(address.sun_path, file.c_str(), file.size() + 1);
    UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const auto* target = reinterpret_cast<const sockaddr*>(&address);
    if (fd.IsOpen() && RetryInterrupted([&] { return ::connect(fd.Get(), target, sizeof(address)); }) != 0) {
        const int error = errno;
        fd = UniqueFd();
        errno = error;
    }
    return fd;
}

// With the address of a kernel's device, nothing else is taken for it.
OpenResult OpenHid(const std::string& file, const std::optional<HidAddress>& address) {
    struct stat found {};
    const bool isSocket = ::stat(file.c_str(), &found) == 0 && S_ISSOCK(found.st_mode);
    UniqueFd fd = isSocket ? ConnectSocket(file) : OpenNode(file);
    if (!fd.IsOpen()) return {nullptr, LastErrno()};
    if (address && !IsAtAddress(fd.Get(), *address)) return {nullptr, ENODEV};
    if (isSocket) return {std::make_unique<HidFile>(std::move(fd), HidFile::Kind::Socket), 0};
    return {HidFile::OfNode(std::move(fd)), 0};
}

}  // namespace

OpenResult LinuxDeviceAccess::Open(const std::string& path, Sharing sharing) try {
    const std::optional<HidAddress> address = ReadHidPath(path);
    const std::string file = FileOfDevicePath(m_Roots, path);
    if (file.empty()) return {nullptr, address ? static_cast<uint32_t>(ENODEV) : ENOENT};
    if (sharing == Sharing::Shared) return OpenHid(file, address);
    UniqueFd fd = OpenNode(file);
    return fd.IsOpen() ? SerialFile::Take(std::move(fd)) : OpenResult{nullptr, LastErrno()};
} catch (const LookFailed& failed) {
    // Fails rather than trying without the registration files that couldn't be read: the path could then lead to a port
    // of the kernel's instead of the registered one of the same name.
    return {nullptr, failed.error};
}

DeviceAccess& SystemDeviceAccess() {
    static NoDestroy<LinuxDeviceAccess> access(SystemRoots());
    return access.Get();
}

}  // namespace quillet::platform
