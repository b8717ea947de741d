// SPDX-License-Identifier: MIT
#include "platform/linux/device_handle.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/event.h"
#include "platform/linux/poll_device.h"

namespace quillet::platform {
namespace {

constexpr std::array<uint32_t, 3> kGoneCodes = {EIO, ENODEV, ENXIO};
constexpr short kHangUpEvents = POLLHUP | POLLERR | POLLNVAL | POLLRDHUP;

}  // namespace

bool MeansGone(uint32_t error) noexcept {
    return std::find(kGoneCodes.begin(), kGoneCodes.end(), error) != kGoneCodes.end();
}

bool MeansSocketGone(uint32_t error) noexcept {
    return MeansGone(error) || error == EPIPE || error == ECONNRESET;
}

DeviceHandle::DeviceHandle(UniqueFd fd) : m_File(std::make_shared<const UniqueFd>(std::move(fd))) {}

DeviceHandle::File DeviceHandle::ForReading() const {
    const std::lock_guard lock(m_Mutex);
    return m_File;
}

DeviceHandle::File DeviceHandle::ForWriting() const {
    const std::lock_guard lock(m_Mutex);
    return m_Lost || !m_Origin.IsHere() ? nullptr : m_File;
}

void DeviceHandle::ReaderStarts() {
    const std::lock_guard lock(m_Mutex);
    ++m_Readers;
}

void DeviceHandle::ReaderEnds() noexcept {
    File dropped;  // closed outside of the lock
    const std::lock_guard lock(m_Mutex);
    --m_Readers;
    if (m_Lost && m_Readers == 0) dropped.swap(m_File);
}

void DeviceHandle::Close() noexcept {
    File dropped;
    const std::lock_guard lock(m_Mutex);
    m_Lost = true;
    m_Loss.Set();
    dropped.swap(m_File);
}

void DeviceHandle::ReportLoss() noexcept {
    File dropped;
    const std::lock_guard lock(m_Mutex);
    m_Lost = true;
    m_Loss.Set();
    if (m_Readers == 0) dropped.swap(m_File);
}

DeviceWake DeviceHandle::Poll(const UniqueFd& file, short events, const StopSignal& stop,
                              uint32_t timeoutMs) const noexcept {
    std::array<pollfd, 3> entries = EntriesOf(file, events, stop);
    return WakeOf(entries.data(), entries.size(), timeoutMs);
}

DeviceWake DeviceHandle::PollForWriting(const UniqueFd& file, const WriteEnd& end) const noexcept {
    const std::array<pollfd, 3> entries = EntriesOf(file, POLLOUT, end.stop);
    std::array<pollfd, 4> all = {entries[0], entries[1], entries[2], {-1, 0, 0}};
    const uint32_t leftMs = end.limit != nullptr ? end.limit->LeftMs() : kNoLimitMs;
    if (end.limit != nullptr && leftMs == kNoLimitMs) {
        all[3] = {static_cast<int>(end.limit->Begun().NativeHandle()), POLLIN, 0};
    }
    return WakeOf(all.data(), all.size(), leftMs);
}

std::array<pollfd, 3> DeviceHandle::EntriesOf(const UniqueFd& file, short events,
                                              const StopSignal& stop) const noexcept {
    return {{{static_cast<int>(stop.NativeHandle()), POLLIN, 0},
             {file.Get(), events, 0},
             {static_cast<int>(m_Loss.NativeHandle()), POLLIN, 0}}};
}

// The first three entries are those of EntriesOf.
DeviceWake DeviceHandle::WakeOf(pollfd* entries, nfds_t count, uint32_t timeoutMs) noexcept {
    DeviceWake wake;
    const int ready = PollUntil(entries, count, timeoutMs);
    if (ready < 0) {
        wake.error = LastErrno();
        return wake;
    }
    wake.stopped = entries[0].revents != 0;
    wake.hungUp = (entries[1].revents & kHangUpEvents) != 0;
    wake.gone = entries[2].revents != 0;
    wake.timedOut = ready == 0;
    return wake;
}

}  // namespace quillet::platform
