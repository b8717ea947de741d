// SPDX-License-Identifier: MIT
// Takes the named mutex of its argument, tells whether it got it, and holds it until its input ends. Without an argument
// it names its thread, for a debugger to see.
#include <cstdio>

#include "platform/named_mutex.h"
#include "platform/thread.h"

int main(int argc, char** argv) {
    quillet::platform::SetCurrentThreadName("a name for the debugger");
    if (argc != 2) return 0;
    const auto mutex = quillet::platform::NamedMutex::Create(argv[1]);
    std::puts(mutex != nullptr && mutex->Take(0) ? "taken" : "refused");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
