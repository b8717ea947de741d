// SPDX-License-Identifier: MIT
// Waiting for other threads in tests.
#pragma once

#include <chrono>
#include <thread>

namespace quillet::test {

// True as soon as the condition holds; false if it doesn't within the limit, which is far beyond what a
// loaded machine needs.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace quillet::test
