// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace quillet::test {
namespace {

size_t CountEntries(const char* directory) {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
    return count;
}

}  // namespace

uint32_t ProcessId() {
    return static_cast<uint32_t>(::getpid());
}

size_t ThreadCount() {
    return CountEntries("/proc/self/task");
}

size_t HandleCount() {
    return CountEntries("/proc/self/fd");
}

int64_t ProcessorTimeMs() {
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return used.tv_sec * 1000 + used.tv_nsec / 1'000'000;
}

bool IsUnderWine() {
    return false;
}

struct ChildProcess::Impl {
    pid_t pid = -1;
    int input = -1;
    int output = -1;

    int Wait() {
        int status = 0;
        ::waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : m_Impl(std::make_unique<Impl>()) {
    int toChild[2] = {-1, -1};
    int fromChild[2] = {-1, -1};
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    std::vector<char*> texts{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    m_Impl->pid = ::fork();
    if (m_Impl->pid == 0) {
        ::dup2(toChild[0], STDIN_FILENO);
        ::dup2(fromChild[1], STDOUT_FILENO);
        ::execv(program.c_str(), texts.data());
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    m_Impl->input = toChild[1];
    m_Impl->output = fromChild[0];
}

ChildProcess::~ChildProcess() {
    Kill();
    CloseInput();
    ::close(m_Impl->output);
}

size_t ChildProcess::ReadSome(char* buffer, size_t size) {
    return static_cast<size_t>(std::max<ssize_t>(::read(m_Impl->output, buffer, size), 0));
}

void ChildProcess::Write(const std::string& text) {
    if (::write(m_Impl->input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the program takes no input");
    }
}

void ChildProcess::CloseInput() {
    if (m_Impl->input >= 0) ::close(std::exchange(m_Impl->input, -1));
}

int ChildProcess::End() {
    CloseInput();
    return m_Impl->Wait();
}

void ChildProcess::Kill() {
    if (m_Impl->pid <= 0) return;
    ::kill(m_Impl->pid, SIGKILL);
    m_Impl->Wait();
}

LoadedLibrary::LoadedLibrary(const std::filesystem::path& path)
    : m_Handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_Handle == nullptr) throw std::runtime_error(::dlerror());
}

void LoadedLibrary::Unload() {
    if (m_Handle != nullptr) ::dlclose(std::exchange(m_Handle, nullptr));
}

void* LoadedLibrary::Find(const char* name) const {
    return ::dlsym(m_Handle, name);
}

std::filesystem::path LoadedLibrary::PathOf(void* code) {
    Dl_info info{};
    ::dladdr(code, &info);
    return info.dli_fname;
}

}  // namespace quillet::test
