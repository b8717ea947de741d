// SPDX-License-Identifier: MIT
#include "platform/linux/handle_reader.h"

#include <algorithm>
#include <poll.h>

#include "platform/event.h"

namespace quillet::platform {
namespace {

constexpr short kReadEvents = POLLIN | POLLRDHUP;

// What a read that gave nothing means: an error code, or 0 to go on waiting. A terminal also gives nothing,
// without an error, when it has hung up.
uint32_t ErrorOfEmptyRead(ssize_t count, uint32_t error, const DeviceWake& wake) noexcept {
    const bool nothing = count == 0 || error == EAGAIN;
    if (nothing) return wake.hungUp || wake.gone ? ENODEV : 0;
    return error;
}

}  // namespace

IoStart HandleReader::Start(uint8_t* buffer, uint32_t size) {
    if (!m_File) return {IoState::Failed, 0, ENODEV};
    m_Buffer = buffer;
    m_Size = size;
    m_Count = 0;
    m_Error = 0;
    return {IoState::Pending, 0, 0};
}

ReadWait HandleReader::End(uint32_t error) {
    m_Error = error;
    return ReadWait::Finished;
}

ReadWait HandleReader::Wait(const StopSignal& stop) {
    if (!m_File) return stop.IsSet() ? ReadWait::Stopped : End(ENODEV);
    if (IsOnePiece() && !stop.LooksSet() && TryWithoutPoll()) return ReadWait::Finished;
    for (;;) {
        const DeviceWake wake = m_Handle.Poll(*m_File, kReadEvents, stop, kNoLimitMs);
        if (wake.error != 0) {
            m_Error = wake.error;
            return ReadWait::Failed;
        }
        if (wake.stopped) return ReadWait::Stopped;
        const ssize_t count = Read();
        if (count > 0) return IsOnePiece() ? ReadWait::Finished : TakeMore(stop);
        const uint32_t error = ErrorOfEmptyRead(count, LastErrno(), wake);
        if (IsGone(error)) {
            m_File.reset();
            m_Handle.Close();
        }
        if (error != 0) return End(error);
    }
}

// The reports of a long barcode follow each other at once, and a poll for each would double the calls; after a single
// one a read in vain would. So each try in vain doubles the reads until the next one, up to 16.
bool HandleReader::TryWithoutPoll() {
    constexpr uint32_t kLongestPause = 15;
    if (m_ReadsUntilTry > 0) {
        --m_ReadsUntilTry;
        return false;
    }
    const bool found = Read() > 0;
    m_PauseOfTries = found ? 0 : std::min(2 * m_PauseOfTries + 1, kLongestPause);
    m_ReadsUntilTry = m_PauseOfTries;
    return found;
}

// As read, behind what is in the buffer already.
ssize_t HandleReader::Read() {
    const ssize_t count =
        RetryInterrupted([&] { return ReadPiece(m_File->Get(), m_Buffer + m_Count, m_Size - m_Count); });
    if (count > 0) m_Count += static_cast<uint32_t>(count);
    return count;
}

// Adds to the burst until the line is quiet. A loss in between ends the burst; the next read will meet it again.
ReadWait HandleReader::TakeMore(const StopSignal& stop) {
    while (m_Count < m_Size) {
        const DeviceWake wake = m_Handle.Poll(*m_File, kReadEvents, stop, NextPieceMs());
        if (wake.stopped) return ReadWait::Stopped;
        if (wake.timedOut || wake.error != 0) return ReadWait::Finished;
        const ssize_t count = Read();
        if (count <= 0 && ErrorOfEmptyRead(count, LastErrno(), wake) != 0) return ReadWait::Finished;
    }
    return ReadWait::Finished;
}

IoFinish HandleReader::Finish() {
    if (m_Error != 0) return {false, 0, m_Error};
    return {true, m_Count, 0};
}

}  // namespace quillet::platform
