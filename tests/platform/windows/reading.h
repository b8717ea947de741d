// What the tests of devices share.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

#include "platform/device_access.h"

namespace quillet::platform {

// One whole read, whether it ended at once or was waited for.
struct Reading {
    IoState start = IoState::Failed;
    bool stopped = false;
    bool ok = false;
    uint32_t error = 0;
    bool gone = false;
    std::string bytes;
};

inline Reading ReadFrom(DeviceReader& reader, const StopSignal& stop, uint32_t size) {
    std::vector<uint8_t> buffer(size, 0xEE);
    const IoStart start = reader.Start(buffer.data(), size);
    Reading reading{start.state, false, start.state == IoState::Done, start.error, start.gone, {}};
    uint32_t count = start.count;
    if (start.state == IoState::Pending) {
        const ReadWait wait = reader.Wait(stop);
        reading.stopped = wait == ReadWait::Stopped;
        if (wait != ReadWait::Finished) return reading;
        const IoFinish finish = reader.Finish();
        reading = {start.state, false, finish.ok, finish.error, finish.gone, {}};
        count = finish.count;
    }
    if (reading.ok) reading.bytes.assign(buffer.begin(), buffer.begin() + count);
    return reading;
}

inline std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<char>(value));
    return bytes;
}

inline DWORD OpenHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

}  // namespace quillet::platform
