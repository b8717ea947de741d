// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <windows.h>
#include <algorithm>
#include <stdexcept>
#include <tlhelp32.h>
#include <utility>
#include <winsock2.h>

#include "platform/windows/unique_handle.h"

namespace quillet::test {

using platform::UniqueHandle;

uint32_t ProcessId() {
    return ::GetCurrentProcessId();
}

size_t ThreadCount() {
    const UniqueHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    size_t count = 0;
    for (BOOL found = ::Thread32First(snapshot.Get(), &entry); found != FALSE;
         found = ::Thread32Next(snapshot.Get(), &entry)) {
        count += entry.th32OwnerProcessID == ProcessId() ? 1 : 0;
    }
    return count;
}

// GetProcessHandleCount gives 0 under Wine, and no leak would show. Both systems give the lowest free number.
size_t HandleCount() {
    constexpr uintptr_t kNumbers = 0x4000;
    size_t count = 0;
    for (uintptr_t number = 4; number < kNumbers; number += 4) {
        DWORD flags = 0;
        count += ::GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != FALSE ? 1 : 0;
    }
    return count;
}

int64_t ProcessorTimeMs() {
    constexpr int64_t kTicksPerMs = 10'000;
    int64_t times[4] = {};  // created, ended, in the kernel, outside
    auto* parts = reinterpret_cast<FILETIME*>(times);
    ::GetProcessTimes(::GetCurrentProcess(), parts, parts + 1, parts + 2, parts + 3);
    return (times[2] + times[3]) / kTicksPerMs;
}

bool IsUnderWine() {
    return ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

namespace {

void Check(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string(what) + ": " + std::to_string(::WSAGetLastError()));
}

// Two sockets that lead to each other. The second is for a child; programs can use it like a file.
std::pair<SOCKET, SOCKET> SocketPair() {
    WSADATA data;
    Check(::WSAStartup(MAKEWORD(2, 2), &data) == 0, "WSAStartup");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    int size = sizeof address;
    const SOCKET listener = ::WSASocketA(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0);
    const SOCKET ours = ::socket(AF_INET, SOCK_STREAM, 0);
    Check(::bind(listener, generic, size) == 0 && ::listen(listener, 1) == 0, "listen");
    Check(::getsockname(listener, generic, &size) == 0 && ::connect(ours, generic, size) == 0, "connect");
    const SOCKET theirs = ::accept(listener, nullptr, nullptr);
    Check(theirs != INVALID_SOCKET, "accept");
    ::closesocket(listener);
    return {ours, theirs};
}

}  // namespace

struct ChildProcess::Impl {
    UniqueHandle process;
    SOCKET socket = INVALID_SOCKET;
    bool killed = false;
};

// Over a socket: Wine starts programs of the system below it as well and hands that on as their standard input and
// output; pipes it can't. It has no handle for such a process.
ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : m_Impl(std::make_unique<Impl>()) {
    const auto [ours, theirs] = SocketPair();
    ::SetHandleInformation(reinterpret_cast<HANDLE>(ours), HANDLE_FLAG_INHERIT, 0);
    std::string line = "\"" + program + "\"";
    for (const std::string& argument : arguments) line += " \"" + argument + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = startup.hStdOutput = reinterpret_cast<HANDLE>(theirs);
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started{};
    if (::CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                         &started) != FALSE) {
        ::CloseHandle(started.hThread);
        m_Impl->process = UniqueHandle(started.hProcess);
    }
    ::closesocket(theirs);
    m_Impl->socket = ours;
}

ChildProcess::~ChildProcess() {
    Kill();
    ::closesocket(m_Impl->socket);
}

size_t ChildProcess::ReadSome(char* buffer, size_t size) {
    return static_cast<size_t>(std::max(::recv(m_Impl->socket, buffer, static_cast<int>(size), 0), 0));
}

void ChildProcess::Write(const std::string& text) {
    const auto size = static_cast<int>(text.size());
    Check(::send(m_Impl->socket, text.data(), size, 0) == size, "send");
}

void ChildProcess::CloseInput() {
    ::shutdown(m_Impl->socket, SD_SEND);
}

int ChildProcess::End() {
    constexpr DWORD kLeastCrashCode = 0xC0000000;  // a status of the kernel
    CloseInput();
    if (!m_Impl->process.IsOpen()) return 127;
    DWORD code = 0;
    ::WaitForSingleObject(m_Impl->process.Get(), INFINITE);
    ::GetExitCodeProcess(m_Impl->process.Get(), &code);
    m_Impl->process.Reset();
    return m_Impl->killed || code >= kLeastCrashCode ? -1 : static_cast<int>(code);
}

void ChildProcess::Kill() {
    // Before its input ends, or it would end by itself.
    if (m_Impl->process.IsOpen()) ::TerminateProcess(m_Impl->process.Get(), 1);
    // Where there is no process to end, its next line ends it. The closing alone doesn't wake a read under Wine.
    ::shutdown(m_Impl->socket, SD_BOTH);
    ::CancelIoEx(reinterpret_cast<HANDLE>(m_Impl->socket), nullptr);
    if (!m_Impl->process.IsOpen()) return;
    m_Impl->killed = true;
    End();
}

LoadedLibrary::LoadedLibrary(const std::filesystem::path& path)
    : m_Handle(reinterpret_cast<void*>(::LoadLibraryA(path.string().c_str()))) {
    if (m_Handle == nullptr) throw std::runtime_error("LoadLibraryA: " + std::to_string(::GetLastError()));
}

void LoadedLibrary::Unload() {
    if (m_Handle != nullptr) ::FreeLibrary(static_cast<HMODULE>(std::exchange(m_Handle, nullptr)));
}

void* LoadedLibrary::Find(const char* name) const {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(m_Handle), name));
}

std::filesystem::path LoadedLibrary::PathOf(void* code) {
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE module = nullptr;
    char path[MAX_PATH] = {};
    if (::GetModuleHandleExA(kFlags, static_cast<const char*>(code), &module) != FALSE) {
        ::GetModuleFileNameA(module, path, MAX_PATH);
    }
    return path;
}

}  // namespace quillet::test
