// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

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
    char buffer[4096];
    size_t end = 0;
    while ((end = m_Unread.find('\n')) == std::string::npos) {
        const size_t count = ReadSome(buffer, sizeof buffer);
        if (count == 0) return std::exchange(m_Unread, {});
        m_Unread.append(buffer, count);
    }
    std::string line = m_Unread.substr(0, end);
    m_Unread.erase(0, end + 1);
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace quillet::test
