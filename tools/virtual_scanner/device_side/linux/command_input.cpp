// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/device_side/command_input.h"

#include <array>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <utility>

#include "platform/linux/unique_fd.h"
#include "tools/virtual_scanner/device_side/linux/checked.h"

namespace quillet::tools {
namespace {

// Waits until the signal or the file can be read; true if it was the signal. It wins.
bool WaitForEither(const platform::StopSignal& signal, int file) {
    std::array<pollfd, 2> waits{{{static_cast<int>(signal.NativeHandle()), POLLIN, 0}, {file, POLLIN, 0}}};
    while (::poll(waits.data(), waits.size(), -1) < 0) {
        if (errno != EINTR) ThrowErrno("poll");
    }
    return waits[0].revents != 0;
}

}  // namespace

CommandInput::CommandInput() {
    sigset_t ending;
    ::sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&ending, number);
    errno = ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    if (errno != 0) ThrowErrno("pthread_sigmask");
    m_Signals = Checked(::signalfd(-1, &ending, SFD_CLOEXEC), "signalfd");
    ::signal(SIGPIPE, SIG_IGN);
}

CommandInput::~CommandInput() {
    m_Finished.Set();
    m_Watcher.Join();
    ::close(m_Signals);
}

void CommandInput::WatchSignals(std::function<void()> onSignal) {
    m_OnSignal = std::move(onSignal);
    m_Watcher = platform::StartThread("signals", [this] {
        if (WaitForEither(m_Finished, m_Signals)) return;
        m_Signalled.Set();
        m_OnSignal();
    });
}

CommandInput::Next CommandInput::Read(std::string& line) {
    for (;;) {
        if (m_Signalled.IsSet()) return Next::Signal;
        if (TakeLine(line)) return Next::Line;
        if (m_Ended) return Next::End;
        if (WaitForEither(m_Signalled, STDIN_FILENO)) return Next::Signal;
        std::array<char, 4096> buffer;
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count > 0) m_Pending.append(buffer.data(), static_cast<size_t>(count));
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) m_Ended = true;
    }
}

bool CommandInput::TakeLine(std::string& line) {
    const size_t end = m_Pending.find('\n');
    if (end == std::string::npos && !(m_Ended && !m_Pending.empty())) return false;
    line = m_Pending.substr(0, end);
    m_Pending.erase(0, end == std::string::npos ? end : end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

}  // namespace quillet::tools
