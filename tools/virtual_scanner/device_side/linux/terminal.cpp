// SPDX-License-Identifier: MIT
// A pseudo-terminal as a serial device: the device holds the master, the host opens the slave.
#include <array>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>

#include "platform/event.h"
#include "platform/linux/unique_fd.h"
#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/linux/checked.h"

namespace quillet::tools {
namespace {

class Terminal final : public DeviceEnd {
  public:
    explicit Terminal(uint32_t mode);
    const std::string& HostPath() const override { return m_HostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) override;
    Sent Send(std::string_view bytes, const platform::StopSignal& stop) override;

  private:
    void OpenSlave();

    platform::UniqueFd m_Master;
    platform::UniqueFd m_Slave;  // kept open, so that the master doesn't report a hang-up while no host is there
    std::string m_HostPath;
};

// A terminal can't be opened before it is unlocked: nobody who may not gets in.
Terminal::Terminal(uint32_t mode)
    : m_Master(Checked(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK), "posix_openpt")) {
    Checked(::grantpt(m_Master.Get()), "grantpt");
    std::array<char, 128> name{};
    if (::ptsname_r(m_Master.Get(), name.data(), name.size()) != 0) ThrowErrno("ptsname_r");
    m_HostPath = name.data();
    Checked(::chmod(m_HostPath.c_str(), mode), m_HostPath);
    Checked(::unlockpt(m_Master.Get()), "unlockpt");
    OpenSlave();
}

// A new terminal echoes and edits lines, which would send a barcode back to the scanner.
void Terminal::OpenSlave() {
    m_Slave = platform::UniqueFd(Checked(::open(m_HostPath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), m_HostPath));
    termios settings{};
    Checked(::tcgetattr(m_Slave.Get(), &settings), "tcgetattr");
    ::cfmakeraw(&settings);
    Checked(::tcsetattr(m_Slave.Get(), TCSANOW, &settings), "tcsetattr");
}

DeviceEnd::Received Terminal::Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) {
    const int timeout = timeoutMs == platform::kNoLimitMs ? -1 : static_cast<int>(timeoutMs);
    for (;;) {
        std::array<pollfd, 2> waits{{{static_cast<int>(stop.NativeHandle()), POLLIN, 0}, {m_Master.Get(), POLLIN, 0}}};
        const int ready = ::poll(waits.data(), waits.size(), timeout);
        if (ready < 0 && errno != EINTR) return Received::Failed;
        if (ready < 0) continue;
        if (ready == 0) return Received::TimedOut;
        if (waits[0].revents != 0) return Received::Stopped;
        std::array<char, 4096> buffer;
        const ssize_t count = ::read(m_Master.Get(), buffer.data(), buffer.size());
        if (count > 0) {
            bytes.assign(buffer.data(), static_cast<size_t>(count));
            return Received::Bytes;
        }
        if (count == 0 || (errno != EINTR && errno != EAGAIN)) return Received::Failed;
    }
}

DeviceEnd::Sent Terminal::Send(std::string_view bytes, const platform::StopSignal& stop) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(m_Master.Get(), bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR) return Sent::Failed;
        std::array<pollfd, 2> waits{{{static_cast<int>(stop.NativeHandle()), POLLIN, 0}, {m_Master.Get(), POLLOUT, 0}}};
        if (::poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return Sent::Failed;
        if (waits[0].revents != 0) return Sent::Stopped;
    }
    return Sent::All;
}

}  // namespace

std::unique_ptr<DeviceEnd> DeviceEnd::NewTerminal(uint32_t mode) {
    return std::make_unique<Terminal>(mode);
}

}  // namespace quillet::tools
