// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace quillet::test {

size_t SettledThreadCount() {
    size_t least = ThreadCount();
    for (int look = 0; look < 10; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        least = std::min(least, ThreadCount());
    }
    return least;
}

std::string ChildProcess::ReadLine() {
    std::string line;
    for (char byte = 0; ReadByte(byte) && byte != '\n';) line += byte;
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace quillet::test
