// SPDX-License-Identifier: MIT
// What descriptors this process has open.
#pragma once

#include <filesystem>
#include <string>

namespace quillet::platform {

inline size_t CountDescriptorsTo(const std::string& target) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone).string() == target ? 1 : 0;
    }
    return count;
}

}  // namespace quillet::platform
