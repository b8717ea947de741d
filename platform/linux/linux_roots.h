// SPDX-License-Identifier: MIT
// Where the layer looks for devices; a test gives a tree of its own.
#pragma once

#include <string>
#include <vector>

namespace quillet::platform {

// Where claims can lie.
struct ClaimRoots {
    std::string runtime{};  // the user's own; may be empty
    std::string locks = "/run/lock";
    std::string temporary = "/tmp";
};

struct LinuxRoots {
    std::string sys = "/sys";
    std::string dev = "/dev";
    std::vector<std::string> registered{};  // directories of registered devices, the first one first
    ClaimRoots claims{};
};

// The machine's own. Reads the environment at the first call and never again: a host may change it from
// another thread at any time.
const LinuxRoots& SystemRoots();

}  // namespace quillet::platform
