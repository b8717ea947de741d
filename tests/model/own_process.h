// A process for one run of a test.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace quillet::test {

// Runs the body in a process of its own, so that a run leaves nothing to the next: no claim, no thread, no lock. Empty if
// the body returned, else why not: what it threw, a crash, or that it was still running after half a minute. For a
// process without other threads.
inline std::string RunInOwnProcess(const std::function<void()>& body) {
    constexpr int kLimitMs = 30'000;
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    std::fflush(nullptr);  // or both would write it
    const pid_t child = fork();
    if (child == 0) {
        try {
            body();
            std::exit(0);  // with all that the library does at the end of a process
        } catch (const std::exception& error) {
            static_cast<void>(write(ends[1], error.what(), std::string(error.what()).size()) < 0);
        }
        _exit(1);
    }
    close(ends[1]);
    std::string text;
    pollfd readable{ends[0], POLLIN, 0};
    if (poll(&readable, 1, kLimitMs) == 1) {  // the other one's end is the end of the file
        char buffer[1024];
        text.assign(buffer, static_cast<size_t>(std::max<ssize_t>(read(ends[0], buffer, sizeof buffer), 0)));
    } else {
        text = "it hangs";
        kill(child, SIGKILL);
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status != 0 && text.empty() ? "it crashed, status " + std::to_string(status) : text;
}

}  // namespace quillet::test
