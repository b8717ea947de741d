// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <windows.h>
#include <stdexcept>
#include <tlhelp32.h>
#include <utility>

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

struct Pipe {
    UniqueHandle reading;
    UniqueHandle writing;
};

// The child's end is the one that is inherited.
Pipe NewPipe(bool childReads) {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;
    if (::CreatePipe(&reading, &writing, &inherited, 0) == FALSE) throw std::runtime_error("CreatePipe");
    ::SetHandleInformation(childReads ? writing : reading, HANDLE_FLAG_INHERIT, 0);
    return {UniqueHandle(reading), UniqueHandle(writing)};
}

}  // namespace

struct ChildProcess::Impl {
    UniqueHandle process;
    UniqueHandle input;
    UniqueHandle output;
    bool killed = false;
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : m_Impl(std::make_unique<Impl>()) {
    Pipe toChild = NewPipe(true);
    Pipe fromChild = NewPipe(false);
    std::string line = "\"" + program + "\"";
    for (const std::string& argument : arguments) line += " \"" + argument + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = toChild.reading.Get();
    startup.hStdOutput = fromChild.writing.Get();
    PROCESS_INFORMATION started{};
    if (::CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                         &started) != FALSE) {
        ::CloseHandle(started.hThread);
        m_Impl->process = UniqueHandle(started.hProcess);
    }
    m_Impl->input = std::move(toChild.writing);
    m_Impl->output = std::move(fromChild.reading);
}

ChildProcess::~ChildProcess() {
    Kill();
}

bool ChildProcess::ReadByte(char& byte) {
    DWORD count = 0;
    return ::ReadFile(m_Impl->output.Get(), &byte, 1, &count, nullptr) != FALSE && count == 1;
}

void ChildProcess::Write(const std::string& text) {
    DWORD count = 0;
    const auto size = static_cast<DWORD>(text.size());
    if (::WriteFile(m_Impl->input.Get(), text.data(), size, &count, nullptr) == FALSE || count != size) {
        throw std::runtime_error("the program takes no input");
    }
}

void ChildProcess::CloseInput() {
    m_Impl->input.Reset();
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
    if (!m_Impl->process.IsOpen()) return;
    m_Impl->killed = true;
    ::TerminateProcess(m_Impl->process.Get(), 1);
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
