// What the tests of devices share.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "platform/device_access.h"

namespace quillet::platform {

// One whole read: started, waited for, finished.
struct ReadOutcome {
    IoStart start;
    ReadWait wait = ReadWait::Failed;
    IoFinish finish;
    std::string bytes;
};

inline ReadOutcome ReadFrom(DeviceReader& reader, const StopSignal& stop, uint32_t size) {
    ReadOutcome outcome;
    std::vector<uint8_t> buffer(size, 0xEE);
    outcome.start = reader.Start(buffer.data(), size);
    if (outcome.start.state != IoState::Pending) {
        return outcome;
    }
    outcome.wait = reader.Wait(stop);
    if (outcome.wait == ReadWait::Finished) {
        outcome.finish = reader.Finish();
        outcome.bytes.assign(buffer.begin(), buffer.begin() + outcome.finish.count);
    }
    return outcome;
}

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

inline std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

}  // namespace quillet::platform
