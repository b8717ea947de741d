// SPDX-License-Identifier: MIT
// What the tests of devices share.
#pragma once

#include <string>
#include <vector>

#include "platform/device_access.h"

namespace quillet::platform {

// One whole read: started, waited for, finished. One that is done at once shows as finished, too.
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
    if (outcome.start.state == IoState::Failed) return outcome;
    const bool done = outcome.start.state == IoState::Done;
    outcome.wait = done ? ReadWait::Finished : reader.Wait(stop);
    if (outcome.wait == ReadWait::Finished) {
        outcome.finish = done ? IoFinish{true, outcome.start.count, 0} : reader.Finish();
        outcome.bytes.assign(buffer.begin(), buffer.begin() + outcome.finish.count);
    }
    return outcome;
}

inline std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<char>(value));
    return bytes;
}

}  // namespace quillet::platform
