// A message socket as a HID device: the device listens, each open of a host is one connection.
#include <array>
#include <cstring>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

#include "platform/device_side.h"
#include "platform/event.h"
#include "platform/linux/device_side/checked.h"
#include "platform/linux/unique_fd.h"

namespace quillet::platform {
namespace {

constexpr int kBacklog = 16;
constexpr size_t kLargestMessage = 4096;

// Sending and receiving threads both take hosts off the list, so a connection lives as long as one of them
// uses it.
using Host = std::shared_ptr<const UniqueFd>;

class ReportSocket final : public DeviceEnd {
  public:
    explicit ReportSocket(const std::string& path);
    ~ReportSocket() override { ::unlink(m_HostPath.c_str()); }
    const std::string& HostPath() const override { return m_HostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop) override;
    Sent Send(std::string_view bytes, const StopSignal& stop) override;

  private:
    std::vector<Host> AcceptHosts();
    void Drop(const Host& host);
    bool TakeNews(Received& news);
    bool ReadFrom(const Host& host, std::string& bytes);
    Sent SendTo(const Host& host, std::string_view bytes, const StopSignal& stop);

    std::string m_HostPath;
    UniqueFd m_Listener;
    StopSignal m_Changed;  // wakes Receive after the sending thread has changed the list
    std::mutex m_Mutex;    // guards the two below
    std::vector<Host> m_Hosts;
    std::deque<Received> m_News;  // comings and goings that Receive has yet to tell
};

ReportSocket::ReportSocket(const std::string& path)
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
    Checked(::listen(m_Listener.Get(), kBacklog), path);
}

// Also run before each sending: a host that has just connected is there from its own point of view.
std::vector<Host> ReportSocket::AcceptHosts() {
    const std::lock_guard lock(m_Mutex);
    for (;;) {
        UniqueFd host(::accept4(m_Listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!host.IsOpen()) break;
        m_Hosts.push_back(std::make_shared<const UniqueFd>(std::move(host)));
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

DeviceEnd::Received ReportSocket::Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop) {
    const int timeout = timeoutMs == kNoLimitMs ? -1 : static_cast<int>(timeoutMs);
    for (;;) {
        const std::vector<Host> hosts = AcceptHosts();
        Received news;
        if (TakeNews(news)) return news;
        std::vector<pollfd> waits{{static_cast<int>(stop.NativeHandle()), POLLIN, 0},
                                  {static_cast<int>(m_Changed.NativeHandle()), POLLIN, 0},
                                  {m_Listener.Get(), POLLIN, 0}};
        for (const Host& host : hosts) waits.push_back({host->Get(), POLLIN, 0});
        const int ready = ::poll(waits.data(), waits.size(), timeout);
        if (ready < 0 && errno != EINTR) return Received::Failed;
        if (ready < 0) continue;
        if (ready == 0) return Received::TimedOut;
        if (waits[0].revents != 0) return Received::Stopped;
        for (size_t i = 0; i < hosts.size(); ++i) {
            if (waits[i + 3].revents != 0 && ReadFrom(hosts[i], bytes)) return Received::Bytes;
        }
    }
}

DeviceEnd::Sent ReportSocket::Send(std::string_view bytes, const StopSignal& stop) {
    Sent result = Sent::NoHost;
    for (const Host& host : AcceptHosts()) {
        const Sent sent = SendTo(host, bytes, stop);
        if (sent == Sent::Stopped) return sent;
        if (sent == Sent::All) result = sent;
    }
    return result;
}

DeviceEnd::Sent ReportSocket::SendTo(const Host& host, std::string_view bytes, const StopSignal& stop) {
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

std::unique_ptr<DeviceEnd> DeviceEnd::NewReportSocket(const std::string& path) {
    return std::make_unique<ReportSocket>(path);
}

}  // namespace quillet::platform
