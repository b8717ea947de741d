// SPDX-License-Identifier: MIT
// What tests play at the other end of a device.
#pragma once

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/linux/linux_device_access.h"
#include "platform/linux/unique_fd.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace platform;

constexpr uint32_t kStoppedCode = ECANCELED;
constexpr uint32_t kGoneCode = ENODEV;
constexpr uint32_t kLossCodes[] = {ENODEV, EIO};

class FarEnd {
  public:
    void Send(std::string_view bytes) const {
        ASSERT_EQ(write(m_Fd.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    bool HasInput() const {
        pollfd input{m_Fd.Get(), POLLIN, 0};
        return poll(&input, 1, 20'000) == 1;
    }
    void Pull() { m_Fd = UniqueFd(); }

  protected:
    UniqueFd m_Fd;
};

class Pty : public FarEnd {
  public:
    static constexpr bool kIsSerial = true;
    static constexpr size_t kWriteSize = 1 << 20;

    OpenResult Plug() {
        m_Fd = UniqueFd(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        char name[64] = {};
        EXPECT_TRUE(grantpt(m_Fd.Get()) == 0 && unlockpt(m_Fd.Get()) == 0);
        EXPECT_EQ(ptsname_r(m_Fd.Get(), name, sizeof name), 0);
        path = name;
        return Open(path);
    }
    OpenResult Open(const std::string& device) const {
        return LinuxDeviceAccess(LinuxRoots{"", tree.Path("dev"), {}}).Open(device, Sharing::Exclusive);
    }

    const TempTree tree;
    std::string path;
};

// Stands for a HID device.
class Socket : public FarEnd {
  public:
    static constexpr bool kIsSerial = false;
    static constexpr size_t kWriteSize = 64;

    Socket() : listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener.Get(), 4), 0);
    }

    OpenResult Plug() {
        OpenResult opened = Open(path);
        if (opened.error == 0) m_Fd = UniqueFd(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        return opened;
    }
    OpenResult Open(const std::string& device) const {
        return LinuxDeviceAccess(LinuxRoots{tree.Path("sys"), tree.Path("dev"), {}}).Open(device, Sharing::Shared);
    }

    const TempTree tree;
    const std::string path = tree.Path("scanner");
    UniqueFd listener;
};

using FarEnds = testing::Types<Pty, Socket>;

}  // namespace quillet::test
