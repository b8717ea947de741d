#include "tools/virtual_scanner/device_side/wine/bridge.h"

#include <cstdlib>
#include <stdexcept>

namespace quillet::tools {
namespace {

constexpr char kPortVariable[] = "QUILLET_TEST_TERMINALS";
constexpr DWORD kPatienceMs = 10'000;
constexpr int kSendBuffer = 8192;  // small, so that a host that reads nothing holds up the device soon

[[noreturn]] void ThrowSocket(const char* what) {
    ThrowWindows(std::string("bridge: ") + what, static_cast<DWORD>(::WSAGetLastError()));
}

void StartSockets() {
    static const int result = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data);
    }();
    if (result != 0) ThrowWindows("WSAStartup", static_cast<DWORD>(result));
}

sockaddr_in BridgeAddress() {
    const char* port = std::getenv(kPortVariable);
    if (port == nullptr) throw std::runtime_error(std::string(kPortVariable) + " isn't set: no terminals here");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(static_cast<u_short>(std::atoi(port)));
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    return address;
}

template <typename T>
void SetOption(const UniqueSocket& socket, int level, int name, T value) {
    if (::setsockopt(socket.Get(), level, name, reinterpret_cast<const char*>(&value), sizeof(value)) != 0) {
        ThrowSocket("setsockopt");
    }
}

UniqueSocket Connect() {
    StartSockets();
    const sockaddr_in address = BridgeAddress();
    UniqueSocket socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    if (socket.Get() == INVALID_SOCKET) ThrowSocket("socket");
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, BOOL{TRUE});
    SetOption(socket, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    SetOption(socket, SOL_SOCKET, SO_RCVTIMEO, kPatienceMs);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        ThrowSocket("connect");
    }
    return socket;
}

// Not a byte more than the line: what follows is the terminal's.
std::string ReadLine(const UniqueSocket& socket) {
    std::string line;
    for (;;) {
        char character = 0;
        const int count = ::recv(socket.Get(), &character, 1, 0);
        if (count < 0) ThrowSocket("recv");
        if (count == 0) throw std::runtime_error("bridge: no answer");
        if (character == '\n') return line;
        line += character;
    }
}

std::string Ask(const UniqueSocket& socket, const std::string& request) {
    const std::string line = request + "\n";
    if (::send(socket.Get(), line.data(), static_cast<int>(line.size()), 0) != static_cast<int>(line.size())) {
        ThrowSocket("send");
    }
    std::string answer = ReadLine(socket);
    if (answer.starts_with("error")) throw std::runtime_error("bridge: " + request + ": " + answer);
    return answer;
}

}  // namespace

BridgeTerminal NewBridgeTerminal() {
    UniqueSocket socket = Connect();
    std::string path = Ask(socket, "terminal");
    SetOption(socket, SOL_SOCKET, SO_RCVTIMEO, DWORD{0});
    return {std::move(socket), std::move(path)};
}

void PullBridgeTerminal(const std::string& hostPath) {
    Ask(Connect(), "pull " + hostPath);
}

void LinkPort(const std::string& port, const std::string& hostPath) {
    Ask(Connect(), "link " + port + " " + hostPath);
}

void UnlinkPort(const std::string& port) {
    Ask(Connect(), "unlink " + port);
}

}  // namespace quillet::tools
