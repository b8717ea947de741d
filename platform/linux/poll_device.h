// SPDX-License-Identifier: MIT
// poll with a limit that interruptions don't stretch.
#pragma once

#include <cstdint>
#include <poll.h>

namespace quillet::platform {

// As poll, with kNoLimitMs for no limit and EINTR waited through: the number of entries that have something
// to tell, 0 at the time-out, -1 with errno.
int PollUntil(pollfd* entries, nfds_t count, uint32_t timeoutMs) noexcept;

}  // namespace quillet::platform
