// SPDX-License-Identifier: MIT
// Opening, reading and writing devices; replaceable in tests. Error codes are the operating system's own:
// errno on Linux, the last error on Windows; 0 means none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/stop_signal.h"
#include "platform/write_limit.h"

namespace quillet::platform {

enum class Sharing {
    Exclusive,  // a serial port: nobody else may hold it, here or in another process
    Shared      // a HID device: other processes may hold it too
};

// The line settings of a serial port, in the numbering of the Windows DCB. What isn't named here stays as the
// port has it.
struct SerialSettings {
    uint32_t baudRate = 0;  // bits per second, any number
    uint8_t byteSize = 0;   // data bits
    uint8_t parity = 0;     // 0 none, 1 odd, 2 even, 3 mark, 4 space
    uint8_t stopBits = 0;   // 0 one, 1 one and a half, 2 two
    bool ctsOutputFlow = false;
    bool dsrOutputFlow = false;
    uint8_t dtrControl = 0;  // 0 disable, 1 enable, 2 handshake
    uint8_t rtsControl = 0;  // 0 disable, 1 enable, 2 handshake, 3 toggle
    bool dsrSensitivity = false;
    bool softwareFlowOut = false;  // XON/XOFF
    bool softwareFlowIn = false;
    bool discardNulls = false;
};

// When a serial read ends: readIntervalMs after the last byte of a burst. The first byte is waited for without limit.
struct SerialTimeouts {
    uint32_t readIntervalMs = 0;
};

enum class IoState {
    Done,     // finished at once
    Pending,  // goes on; to be waited for and finished
    Failed    // failed at once, with an error code
};

struct IoStart {
    IoState state = IoState::Failed;
    uint32_t count = 0;  // bytes moved, when done
    uint32_t error = 0;  // when failed
};

struct IoFinish {
    bool ok = false;
    uint32_t count = 0;
    uint32_t error = 0;
};

enum class ReadWait {
    Stopped,   // the stop signal; it wins when both are set
    Finished,  // the read can be finished
    Failed     // neither could be waited for
};

// What ends a write that its device doesn't take: a signal, at once, and the limit of a handle that is being closed.
struct WriteEnd {
    WriteEnd(const StopSignal& stopSignal,
             const WriteLimit* writeLimit = nullptr)  // NOLINT(google-explicit-constructor)
        : stop(stopSignal), limit(writeLimit) {}
    const StopSignal& stop;
    const WriteLimit* const limit;  // may be null
};

// The outcome of one whole write, its wait included.
struct WriteResult {
    enum class Outcome {
        Written,       // count bytes are with the system; may be fewer than asked
        FailedAtOnce,  // refused when it was started, or the limit was over; count is what the system left there
        FailedPending  // was under way and failed, with error; also when the stop signal or the limit ended it
    };
    Outcome outcome = Outcome::Written;
    uint32_t count = 0;
    uint32_t error = 0;
};

// The reads of one thread on one device. The buffer of a started read must live until the read is finished or this
// object is gone; a read still pending then is cancelled and its data dropped. Used by one thread at a time.
class DeviceReader {
  public:
    virtual ~DeviceReader() = default;
    virtual IoStart Start(uint8_t* buffer, uint32_t size) = 0;
    // Waits without a limit for the pending read or the stop signal.
    virtual ReadWait Wait(const StopSignal& stop) = 0;
    // Ends a read that Wait called finished.
    virtual IoFinish Finish() = 0;
    // Code of the last failed Wait or Finish.
    virtual uint32_t LastError() const = 0;
};

// One open device. Reading, by one thread, and writing, by another, go on side by side; destruction closes
// the device and comes after both.
class DeviceFile {
  public:
    virtual ~DeviceFile() = default;

    // The three of a serial port; 0 or an error code.
    virtual uint32_t GetSerialSettings(SerialSettings& settings) = 0;
    virtual uint32_t SetSerialSettings(const SerialSettings& settings) = 0;
    virtual uint32_t SetSerialTimeouts(const SerialTimeouts& timeouts) = 0;

    virtual std::unique_ptr<DeviceReader> NewReader() = 0;

    // Writes all bytes in one operation, waiting without a limit of its own; it ends early when the device is gone or
    // `end` says so. A HID device takes one report in one call, which nothing breaks off: it ends by the limit of the
    // system's own (5 s on Linux).
    virtual WriteResult Write(std::string_view bytes, const WriteEnd& end) = 0;
};

struct OpenResult {
    std::unique_ptr<DeviceFile> file;  // null on failure
    uint32_t error = 0;
};

class DeviceAccess {
  public:
    virtual ~DeviceAccess() = default;
    // Never blocks on a modem line, never makes the terminal the host's controlling one, keeps input that
    // waits. An empty or unknown path fails with the system's code for a file that doesn't exist.
    virtual OpenResult Open(const std::string& path, Sharing sharing) = 0;
};

// The access in use: the system's, unless a test has put one of its own in its place. Made on first use:
// std::bad_alloc if there is no memory then, and the next use tries again.
DeviceAccess& TheDeviceAccess();
// Null puts the system's back. The caller keeps the object alive until then; no device may be open across the change.
void ReplaceDeviceAccess(DeviceAccess* access) noexcept;

// Given by the operating system's folder; throws as TheDeviceAccess.
DeviceAccess& SystemDeviceAccess();

}  // namespace quillet::platform
