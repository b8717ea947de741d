// SPDX-License-Identifier: MIT
// The kernel's file of one open device, given up as soon as the device is gone.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/types.h>

#include "platform/device_access.h"
#include "platform/linux/unique_fd.h"

namespace quillet::platform {

// What a device's poll told. The stop signal wins over everything.
struct DeviceWake {
    uint32_t error = 0;  // the poll itself failed
    bool stopped = false;
    bool timedOut = false;
    bool gone = false;    // the other thread found the device gone
    bool hungUp = false;  // the kernel reports a hang-up or an error
};

// True for the codes with which the kernel tells that a device went away.
bool MeansGone(uint32_t error) noexcept;
// The same for a socket that stands for a device. From a hidraw node EPIPE is no loss: the device refused one report.
bool MeansSocketGone(uint32_t error) noexcept;

// The reading and the writing thread use one file side by side, and either may find that the device is gone. The file
// has to be closed then: while it is open, the device gets another number when it is plugged in again. It must not be
// closed while the other thread uses it, since the system may give its descriptor to another file at once. So each
// thread holds a reference while it works, and the last one closes. A writer that finds the loss leaves the closing to
// the reader, which first reads what the kernel still holds.
class DeviceHandle {
  public:
    using File = std::shared_ptr<const UniqueFd>;

    explicit DeviceHandle(UniqueFd fd);

    // The file, to be held for one operation; null once the device is gone.
    File ForReading() const;
    File ForWriting() const;  // null also while only the reader may still go on, and in a copy of the process

    void ReaderStarts();
    void ReaderEnds() noexcept;

    // The reader found the device gone and has taken all that waited.
    void Close() noexcept;
    // A writer or a settings call found it gone.
    void ReportLoss() noexcept;

    // Waits for events of the file, the stop signal or the loss of the device.
    DeviceWake Poll(const UniqueFd& file, short events, const StopSignal& stop, uint32_t timeoutMs) const noexcept;
    // The same for a file that takes no more bytes. Wakes also when a limit begins, and when it is over.
    DeviceWake PollForWriting(const UniqueFd& file, const WriteEnd& end) const noexcept;

  private:
    std::array<pollfd, 3> EntriesOf(const UniqueFd& file, short events, const StopSignal& stop) const noexcept;
    static DeviceWake WakeOf(pollfd* entries, nfds_t count, uint32_t timeoutMs) noexcept;

    mutable std::mutex m_Mutex;  // guards m_File, m_Lost, m_Readers
    File m_File;
    bool m_Lost = false;
    int m_Readers = 0;
    const ProcessOrigin m_Origin;
    StopSignal m_Loss;  // set with m_Lost; wakes who waits in Poll
};

}  // namespace quillet::platform
