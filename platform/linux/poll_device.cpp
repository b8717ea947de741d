// SPDX-License-Identifier: MIT
#include "platform/linux/poll_device.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "platform/event.h"

namespace quillet::platform {
namespace {

using Clock = std::chrono::steady_clock;

timespec Remaining(Clock::time_point deadline) noexcept {
    const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const std::chrono::nanoseconds rest = left - seconds;
    return {static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
}

}  // namespace

int PollUntil(pollfd* entries, nfds_t count, uint32_t timeoutMs) noexcept {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const timespec left = Remaining(deadline);
        const int ready = ::ppoll(entries, count, timeoutMs == kNoLimitMs ? nullptr : &left, nullptr);
        if (ready >= 0 || errno != EINTR) return ready;
    }
}

}  // namespace quillet::platform
