// SPDX-License-Identifier: MIT
#include "road_device.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quillet::bench {
namespace {

struct OrderedBarcodes {
    uint32_t barcodes;
    uint32_t reports;
};

int Checked(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

using Report = std::array<uint8_t, kReportSize>;

Report ReportOf(uint8_t size, bool more) {
    constexpr uint8_t kScanKind = 2;
    constexpr uint8_t kQrCode = 28;
    Report report{};
    report[1] = kScanKind;
    report[2] = size;
    std::fill_n(report.begin() + 3, size, uint8_t{'7'});
    report[61] = kQrCode;
    report[63] = more ? 1 : 0;
    return report;
}

// One report has the 13 characters of a barcode on goods, 36 have 2,000.
void Send(int host, const OrderedBarcodes& order) {
    const Report piece = ReportOf(56, true);
    const Report last = ReportOf(order.reports == 1 ? 13 : 40, false);
    for (uint32_t i = 0; i < order.barcodes; ++i) {
        for (uint32_t report = 1; report <= order.reports; ++report) {
            const Report& bytes = report == order.reports ? last : piece;
            if (::send(host, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) return;
        }
    }
}

// False once the hosts' process is gone.
bool Serve(std::array<pollfd, 3>& sources) {
    auto& [orders, listener, host] = sources;
    ::poll(sources.data(), sources.size(), -1);
    if (listener.revents != 0) {
        if (host.fd >= 0) ::close(host.fd);
        host = {::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC), POLLIN, 0};
    }
    if (host.revents != 0) {  // commands aren't answered
        std::array<uint8_t, kReportSize> command;
        if (::recv(host.fd, command.data(), command.size(), MSG_DONTWAIT) == 0) ::close(std::exchange(host.fd, -1));
    }
    OrderedBarcodes order{};
    if (orders.revents == 0) return true;
    if (::read(orders.fd, &order, sizeof order) != sizeof order) return false;
    Send(host.fd, order);
    return true;
}

// Appears under its name with its whole text.
void Register(const std::string& directory, const std::string& socketPath) {
    const std::string written = directory + "/written";
    std::ofstream(written) << "class=hid\npath=" << socketPath << "\ninstance=HID\\VID_18D1&PID_010B\\BENCH\n";
    std::filesystem::permissions(written, std::filesystem::perms(0644));
    std::filesystem::rename(written, directory + "/bench.device");
}

}  // namespace

int RunDevice(const std::string& socketPath, int orders) {
    const int listener = Checked(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket");
    const sockaddr_un address = AddressOf(socketPath);
    Checked(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    Checked(::listen(listener, 8), "listen");
    const char ready = '!';
    Checked(static_cast<int>(::write(orders, &ready, 1)), "write");
    std::array<pollfd, 3> sources = {{{orders, POLLIN, 0}, {listener, POLLIN, 0}, {-1, POLLIN, 0}}};
    while (Serve(sources)) {
    }
    return 0;
}

DeviceProcess::DeviceProcess(const char* program) {
    std::string directory = (std::filesystem::temp_directory_path() / "quillet-bench-XXXXXX").string();
    if (::mkdtemp(directory.data()) == nullptr) Checked(-1, "mkdtemp");
    m_Directory = directory;
    m_SocketPath = directory + "/scanner";
    ::setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    int ends[2];
    Checked(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), "socketpair");
    m_Child = Checked(::fork(), "fork");
    if (m_Child == 0) {
        ::close(ends[0]);
        const std::string orders = std::to_string(ends[1]);
        ::execl("/proc/self/exe", program, "--device", m_SocketPath.c_str(), orders.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(ends[1]);
    m_Orders = ends[0];
    char ready = 0;
    if (::read(m_Orders, &ready, 1) != 1) throw std::system_error(ECHILD, std::generic_category(), "device");
    for (const char* folder : {"/quillet", "/quillet/devices"}) {
        Checked(::mkdir((directory + folder).c_str(), 0755), folder);
    }
    Register(directory + "/quillet/devices", m_SocketPath);
}

DeviceProcess::~DeviceProcess() {
    ::close(m_Orders);
    ::waitpid(m_Child, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(m_Directory, ignored);
}

int DeviceProcess::Connect() const {
    const int file = Checked(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket");
    const sockaddr_un address = AddressOf(m_SocketPath);
    Checked(::connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
    return file;
}

void DeviceProcess::Order(uint32_t barcodes, uint32_t reports) const {
    const OrderedBarcodes order{barcodes, reports};
    if (::write(m_Orders, &order, sizeof order) != sizeof order) Checked(-1, "write");
}

}  // namespace quillet::bench
