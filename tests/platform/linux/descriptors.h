// What descriptors this process has open.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>

namespace quillet::platform {

inline std::set<int> OpenDescriptors() {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        found.insert(std::stoi(entry.path().filename().string()));
    }
    // The one that read the folder is among them and gone by now.
    std::erase_if(found, [](int fd) { return ::fcntl(fd, F_GETFD) == -1; });
    return found;
}

inline size_t CountDescriptorsTo(const std::string& target) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone).string() == target ? 1 : 0;
    }
    return count;
}

}  // namespace quillet::platform
