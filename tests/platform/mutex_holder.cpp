// SPDX-License-Identifier: MIT
// Takes the named mutex of its argument, tells whether it got it, and holds it until its input ends.
#include <cstdio>

#include "platform/named_mutex.h"

int main(int argc, char** argv) {
    const auto mutex = quillet::platform::NamedMutex::Create(argc == 2 ? argv[1] : "");
    std::puts(mutex != nullptr && mutex->Take(0) ? "taken" : "refused");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
