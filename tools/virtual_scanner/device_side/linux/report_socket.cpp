// SPDX-License-Identifier: MIT
// A message socket as a HID device: the device listens, each open of a host is one connection.
#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vector>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/linux/unique_fd.h"
#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/linux/checked.h"

namespace quillet::tools {
namespace {

constexpr int kBacklog = 16;
constexpr size_t kLargestMessage = 4096;
// A host for which there is no descriptor waits in the backlog, and its socket stays ready to be accepted: instead of
// being polled it is tried again so much later.
constexpr uint32_t kAcceptAgainMs = 100;

// Sending and receiving threads both take hosts off the list, so a connection lives as long as one of them
// uses it.
using Host = std::shared_ptr<const platform::UniqueFd>;

class ReportSocket final : public DeviceEnd {
  public:
    ReportSocket(const std::string& path, uint32_t mode);
    ~ReportSocket() override { ::unlink(m_HostPath.c_str()); }
    const std::string& HostPath() const override { return m_HostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) override;
    Sent Send(std::string_view bytes, const platform::StopSignal& stop) override;

  private:
    std::vector<Host> AcceptHosts(bool& othersWait);
    void Drop(const Host& host);
    bool TakeNews(Received& news);
    bool ReadFrom(const Host& host, std::string& bytes);
    Sent SendTo(const Host& host, std::string_view bytes, const platform::StopSignal& stop);

    std::string m_HostPath;
    platform::UniqueFd m_Listener;
    platform::StopSignal m_Changed;  // wakes Receive after the sending thread has changed the list
    std::mutex m_Mutex;              // guards the two below
    std::vector<Host> m_Hosts;
    std::deque<Received> m_News;  // comings and goings that Receive has yet to tell
};

ReportSocket::ReportSocket(const std::string& path, uint32_t mode)
    : m_HostPath(path),
      m_Listener(Checked(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket")) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ::unlink(path.c_str());  // of a killed program; a socket's path can't be bound twice
    Checked(::bind(m_Listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), path);
    Checked(::chmod(path.c_str(), mode), path);  // nobody gets in before it listens
    Checked(::listen(m_Listener.Get(), kBacklog), path);
}

// Also run before each sending: a host that has just connected is there from its own point of view.
std::vector<Host> ReportSocket::AcceptHosts(bool& othersWait) {
    const std::lock_guard lock(m_Mutex);
    for (;;) {
        platform::UniqueFd host(platform::RetryInterrupted(
            [this] { return ::accept4(m_Listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); }));
        if (!host.IsOpen()) {
            if (errno == ECONNABORTED) continue;
            othersWait = errno != EAGAIN;
            break;
        }
        m_Hosts.push_back(std::make_shared<const platform::UniqueFd>(std::move(host)));
        m_News.push_back(Received::HostCame);
        m_Changed.Set();
    }
    return m_Hosts;
}

void ReportSocket::Drop(const Host& host) {
    const std::lock_guard lock(m_Mutex);
    if (std::erase(m_Hosts, host) == 0) return;
    m_News.push_back(Received::HostGone);
    m_Changed.Set();
}

bool ReportSocket::TakeNews(Received& news) {
    const std::lock_guard lock(m_Mutex);
    if (m_News.empty()) {
        m_Changed.Reset();
        return false;
    }
    news = m_News.front();
    m_News.pop_front();
    return true;
}

bool ReportSocket::ReadFrom(const Host& host, std::string& bytes) {
    std::array<char, kLargestMessage> buffer;
    const ssize_t count = ::recv(host->Get(), buffer.data(), buffer.size(), 0);
    if (count > 0) {
        bytes.assign(buffer.data(), static_cast<size_t>(count));
        return true;
    }
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) Drop(host);
    return false;
}

DeviceEnd::Received ReportSocket::Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) {
    const platform::Countdown patience(platform::SystemClock(), timeoutMs);
    for (;;) {
        bool othersWait = false;
        const std::vector<Host> hosts = AcceptHosts(othersWait);
        Received news;
        if (TakeNews(news)) return news;
        std::vector<pollfd> waits{{static_cast<int>(stop.NativeHandle()), POLLIN, 0},
                                  {static_cast<int>(m_Changed.NativeHandle()), POLLIN, 0},
                                  {othersWait ? -1 : m_Listener.Get(), POLLIN, 0}};
        for (const Host& host : hosts) waits.push_back({host->Get(), POLLIN, 0});
        const uint32_t leftMs = patience.LeftMs();
        const uint32_t waitMs = othersWait ? std::min(leftMs, kAcceptAgainMs) : leftMs;
        const int ready =
            ::poll(waits.data(), waits.size(), waitMs == platform::kNoLimitMs ? -1 : static_cast<int>(waitMs));
        if (ready < 0 && errno != EINTR) return Received::Failed;
        if (ready < 0) continue;
        if (ready == 0 && patience.LeftMs() == 0) return Received::TimedOut;
        if (waits[0].revents != 0) return Received::Stopped;
        for (size_t i = 0; i < hosts.size(); ++i) {
            if (waits[i + 3].revents != 0 && ReadFrom(hosts[i], bytes)) return Received::Bytes;
        }
    }
}

DeviceEnd::Sent ReportSocket::Send(std::string_view bytes, const platform::StopSignal& stop) {
    Sent result = Sent::NoHost;
    bool othersWait = false;
    for (const Host& host : AcceptHosts(othersWait)) {
        const Sent sent = SendTo(host, bytes, stop);
        if (sent == Sent::Stopped) return sent;
        if (sent == Sent::All) result = sent;
    }
    return result;
}

DeviceEnd::Sent ReportSocket::SendTo(const Host& host, std::string_view bytes, const platform::StopSignal& stop) {
    for (;;) {
        if (::send(host->Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0) return Sent::All;
        if (errno == EINTR) continue;
        if (errno != EAGAIN) {
            Drop(host);
            return Sent::NoHost;
        }
        std::array<pollfd, 2> waits{{{static_cast<int>(stop.NativeHandle()), POLLIN, 0}, {host->Get(), POLLOUT, 0}}};
        if (::poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return Sent::Failed;
        if (waits[0].revents != 0) return Sent::Stopped;
    }
}

}  // namespace

std::unique_ptr<DeviceEnd> DeviceEnd::NewReportSocket(const std::string& path, uint32_t mode) {
    return std::make_unique<ReportSocket>(path, mode);
}

}  // namespace quillet::tools
