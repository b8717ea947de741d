// SPDX-License-Identifier: MIT
// Wine starts programs of the system below it as well, and hands a socket on as their standard input and output; pipes
// it can't. See tests/wine/scanner.
#include <mutex>
#include <stdexcept>
#include <winsock2.h>

#include "platform/windows/windows_device_access.h"
#include "support/eventually.h"
#include "support/virtual_scanner.h"
#include "support/windows/device_keys.h"
#include "transport/port_discovery.h"

namespace quillet::test {
namespace {

constexpr const char* kInstanceRoots[] = {"USB\\VID_18D1&PID_0009\\", "ACPI\\PNP0501\\"};

void Check(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string(what) + ": " + std::to_string(::WSAGetLastError()));
}

// Two sockets that lead to each other.
std::pair<SOCKET, SOCKET> SocketPair() {
    WSADATA data;
    Check(::WSAStartup(MAKEWORD(2, 2), &data) == 0, "WSAStartup");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    int size = sizeof address;
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const SOCKET ours = ::socket(AF_INET, SOCK_STREAM, 0);
    Check(::bind(listener, generic, size) == 0 && ::listen(listener, 1) == 0, "listen");
    Check(::getsockname(listener, generic, &size) == 0 && ::connect(ours, generic, size) == 0, "connect");
    const SOCKET theirs = ::accept(listener, nullptr, nullptr);
    Check(theirs != INVALID_SOCKET, "accept");
    ::closesocket(listener);
    return {ours, theirs};
}

void Start(const ScannerOptions& options, SOCKET input) {
    std::string line = std::string("\"") + VIRTUAL_SCANNER + "\"";
    for (const std::string& argument : ArgumentsOf(options)) line += " " + argument;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = startup.hStdOutput = reinterpret_cast<HANDLE>(input);
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started{};  // stays empty: Wine has no handle for such a process
    const BOOL good =
        ::CreateProcessA(VIRTUAL_SCANNER, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started);
    Check(good != FALSE, VIRTUAL_SCANNER);
}

// A test that was killed leaves its keys. The one that runs next, alone with its devices, is to find none.
void DeleteKeysOfOthers() {
    for (const std::string root : kInstanceRoots) {
        ::RegDeleteTreeA(HKEY_LOCAL_MACHINE, ("System\\CurrentControlSet\\Enum\\" + root).c_str());
    }
}

// Nothing tells when the driver has seen the device, nor when the name in the list leads to it.
bool IsHidScannerThere() {
    const auto found = DiscoveredHidScanners();
    return !found.empty() &&
           platform::WindowsDeviceAccess().Open(found[0].devicePath, platform::Sharing::Shared).file != nullptr;
}

}  // namespace

struct ScannerProgram::Impl {
    const ScannerOptions options;
    const SOCKET socket;
    platform::DeviceKeys keys{};
};

ScannerProgram::ScannerProgram(const ScannerOptions& options)
    : m_Impl([&] {
          const auto [ours, theirs] = SocketPair();
          static std::once_flag once;
          std::call_once(once, DeleteKeysOfOthers);
          Start(options, theirs);
          ::closesocket(theirs);
          return new Impl{options, ours};
      }()) {}

ScannerProgram::~ScannerProgram() {
    ::closesocket(m_Impl->socket);
}

void ScannerProgram::Write(const std::string& text) {
    const auto size = static_cast<int>(text.size());
    Check(::send(m_Impl->socket, text.data(), size, 0) == size, "send");
}

std::string ScannerProgram::ReadLine() {
    std::string line;
    for (char byte = 0; ::recv(m_Impl->socket, &byte, 1, 0) == 1 && byte != '\n';) line += byte;
    return line;
}

void ScannerProgram::CloseInput() {
    ::shutdown(m_Impl->socket, SD_SEND);
}

void ScannerProgram::Kill() {
    // There is no process to end: its next line ends it. The closing alone doesn't wake a read under Wine.
    ::shutdown(m_Impl->socket, SD_BOTH);
    ::CancelIoEx(reinterpret_cast<HANDLE>(m_Impl->socket), nullptr);
}

void ScannerProgram::Announce() {
    const ScannerOptions& options = m_Impl->options;
    if (options.link == ScannerLink::Usb) {
        EXPECT_TRUE(Eventually(IsHidScannerThere));
        return;
    }
    const bool isVirtual = options.link == ScannerLink::VirtualSerial;
    const std::string port = std::to_string(options.port);
    const std::string instance = kInstanceRoots[isVirtual ? 0 : 1] + (isVirtual ? options.serialNumber : port);
    m_Impl->keys.Write({{instance.c_str(),
                         platform::kPortsClass,
                         "Virtual barcode scanner",
                         "Quillet",
                         {platform::Text("PortName", "COM" + port)},
                         {}}});
}

void ScannerProgram::Withdraw() {
    m_Impl->keys.Delete();
}

}  // namespace quillet::test
