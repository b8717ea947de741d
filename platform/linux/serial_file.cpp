// SPDX-License-Identifier: MIT
#include "platform/linux/serial_file.h"

#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>

#include "platform/clock.h"
#include "platform/linux/handle_reader.h"
#include "platform/linux/line_settings.h"

namespace quillet::platform {
namespace {

// Output of a port that still goes out is waited for so long before it is dropped; a close would wait for up to 30 s.
constexpr int64_t kDrainLimitNs = 2000000000;
constexpr uint32_t kDrainStepMs = 5;

class SerialReader final : public HandleReader {
  public:
    SerialReader(DeviceHandle& handle, const std::atomic<uint32_t>& intervalMs)
        : HandleReader(handle), m_IntervalMs(intervalMs) {}

  private:
    ssize_t ReadPiece(int fd, uint8_t* buffer, size_t size) override { return ::read(fd, buffer, size); }
    bool IsOnePiece() const override { return false; }
    uint32_t NextPieceMs() const override { return m_IntervalMs; }

    const std::atomic<uint32_t>& m_IntervalMs;
};

// TIOCEXCL outlives a killed holder on a pty, whose terminal lives on at its other end; ordinary users could
// then never open it again. There the lock alone has to do.
bool IsPseudoTerminal(int fd) noexcept {
    constexpr unsigned kFirstMajor = 136;
    constexpr unsigned kLastMajor = 143;
    struct stat found {};
    const unsigned number = ::fstat(fd, &found) == 0 ? major(found.st_rdev) : 0;
    return number >= kFirstMajor && number <= kLastMajor;
}

uint32_t TakeLine(int fd) noexcept {
    if (::isatty(fd) == 0) return LastErrno();
    if (RetryInterrupted([fd] { return ::flock(fd, LOCK_EX | LOCK_NB); }) != 0) {
        return errno == EWOULDBLOCK ? EBUSY : LastErrno();
    }
    if (const uint32_t error = MakeRaw(fd)) return error;
    if (!IsPseudoTerminal(fd)) {
        ::ioctl(fd, TIOCEXCL);  // a gadget may refuse
    }
    return 0;
}

}  // namespace

OpenResult SerialFile::Take(UniqueFd fd) {
    if (const uint32_t error = TakeLine(fd.Get())) return {nullptr, error};
    return {std::make_unique<SerialFile>(std::move(fd)), 0};
}

// Both claims are given up by name, as a child that the host forked may have the terminal open too; but not
// in that child itself.
SerialFile::~SerialFile() {
    const DeviceHandle::File file = m_Handle.ForReading();
    if (file && m_Origin.IsHere()) {
        DrainOutput(file->Get());
        ::ioctl(file->Get(), TIOCNXCL);
        ::flock(file->Get(), LOCK_UN);
    }
}

void SerialFile::DrainOutput(int fd) const {
    const int64_t limit = TheClock().NowNs() + kDrainLimitNs;
    int waiting = 0;
    while (::ioctl(fd, TIOCOUTQ, &waiting) == 0 && waiting > 0) {
        if (m_OutputStuck || TheClock().NowNs() >= limit) {
            ::tcflush(fd, TCOFLUSH);
            return;
        }
        TheClock().SleepMs(kDrainStepMs);
    }
}

uint32_t SerialFile::CheckForLoss(uint32_t error) noexcept {
    if (MeansGone(error)) m_Handle.ReportLoss();
    return error;
}

uint32_t SerialFile::GetSerialSettings(SerialSettings& settings) {
    const DeviceHandle::File file = m_Handle.ForWriting();
    return file ? CheckForLoss(GetLineSettings(file->Get(), settings)) : ENODEV;
}

uint32_t SerialFile::SetSerialSettings(const SerialSettings& settings) {
    const DeviceHandle::File file = m_Handle.ForWriting();
    return file ? CheckForLoss(SetLineSettings(file->Get(), settings)) : ENODEV;
}

uint32_t SerialFile::SetSerialTimeouts(const SerialTimeouts& timeouts) {
    m_ReadIntervalMs = timeouts.readIntervalMs;
    return m_Handle.ForWriting() ? 0 : ENODEV;
}

std::unique_ptr<DeviceReader> SerialFile::NewReader() {
    return std::make_unique<SerialReader>(m_Handle, m_ReadIntervalMs);
}

ssize_t SerialFile::WritePiece(int fd, std::string_view bytes) {
    return ::write(fd, bytes.data(), bytes.size());
}

}  // namespace quillet::platform
