// SPDX-License-Identifier: MIT
// The only file that sees the kernel's own termios: its termios2 takes any speed, and its header can't be
// included together with the C library's.
#include "platform/linux/line_settings.h"

#include <array>
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include "platform/linux/unique_fd.h"

namespace quillet::platform {
namespace {

constexpr uint8_t kDtrRtsEnable = 1;
constexpr uint8_t kHandshake = 2;
constexpr std::array<tcflag_t, 4> kSizeBits = {CS5, CS6, CS7, CS8};
constexpr uint8_t kSmallestSize = 5;
constexpr std::array<tcflag_t, 5> kParityBits = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
constexpr tcflag_t kParityMask = PARENB | PARODD | CMSPAR;
constexpr uint8_t kOneStopBit = 0;
constexpr uint8_t kTwoStopBits = 2;

template <typename Argument>
uint32_t Control(int fd, unsigned long request, Argument* argument) noexcept {
    return RetryInterrupted([&] { return ::ioctl(fd, request, argument); }) == 0 ? 0 : LastErrno();
}

template <size_t Size>
uint8_t IndexOf(const std::array<tcflag_t, Size>& table, tcflag_t bits) noexcept {
    for (size_t i = 0; i < Size; ++i) {
        if (table[i] == bits) return static_cast<uint8_t>(i);
    }
    return 0;
}

void SetBits(tcflag_t& flags, tcflag_t mask, tcflag_t bits) noexcept {
    flags = (flags & ~mask) | bits;
}

void SetFlag(tcflag_t& flags, tcflag_t flag, bool on) noexcept {
    SetBits(flags, flag, on ? flag : 0);
}

bool IsPossible(const SerialSettings& settings) noexcept {
    const bool frame = settings.baudRate != 0 && settings.byteSize >= kSmallestSize &&
                       settings.byteSize < kSmallestSize + kSizeBits.size() && settings.parity < kParityBits.size() &&
                       (settings.stopBits == kOneStopBit || settings.stopBits == kTwoStopBits);
    const bool flow = !settings.dsrOutputFlow && !settings.dsrSensitivity && !settings.discardNulls &&
                      settings.dtrControl <= kDtrRtsEnable && settings.rtsControl <= kHandshake;
    return frame && flow;
}

void FillLine(termios2& line, const SerialSettings& settings) noexcept {
    SetBits(line.c_cflag, CBAUD | CIBAUD, BOTHER);  // no input speed of its own: as the output
    line.c_ospeed = settings.baudRate;
    line.c_ispeed = settings.baudRate;
    SetBits(line.c_cflag, CSIZE, kSizeBits[settings.byteSize - kSmallestSize]);
    SetBits(line.c_cflag, kParityMask, kParityBits[settings.parity]);
    SetFlag(line.c_cflag, CSTOPB, settings.stopBits == kTwoStopBits);
    SetFlag(line.c_cflag, CRTSCTS, settings.ctsOutputFlow || settings.rtsControl == kHandshake);
    SetFlag(line.c_iflag, IXON, settings.softwareFlowOut);
    SetFlag(line.c_iflag, IXOFF, settings.softwareFlowIn);
}

// Ptys and some gadgets have no modem lines and refuse; that is no failure.
void SetModemLine(int fd, int line, uint8_t control) noexcept {
    if (control != kHandshake) Control(fd, control == kDtrRtsEnable ? TIOCMBIS : TIOCMBIC, &line);
}

}  // namespace

uint32_t MakeRaw(int fd) noexcept {
    termios2 line{};
    if (const uint32_t error = Control(fd, TCGETS2, &line)) return error;
    line.c_iflag = 0;
    line.c_oflag = 0;
    line.c_lflag = 0;
    SetBits(line.c_cflag, CSIZE | PARENB | CRTSCTS, CS8 | CREAD | CLOCAL);
    line.c_cc[VMIN] = 1;
    line.c_cc[VTIME] = 0;
    return Control(fd, TCSETS2, &line);
}

uint32_t GetLineSettings(int fd, SerialSettings& settings) noexcept {
    termios2 line{};
    if (const uint32_t error = Control(fd, TCGETS2, &line)) return error;
    int modem = 0;
    Control(fd, TIOCMGET, &modem);
    const bool hardwareFlow = (line.c_cflag & CRTSCTS) != 0;
    settings = {};
    settings.baudRate = line.c_ospeed;
    settings.byteSize = static_cast<uint8_t>(kSmallestSize + IndexOf(kSizeBits, line.c_cflag & CSIZE));
    settings.parity = (line.c_cflag & PARENB) != 0 ? IndexOf(kParityBits, line.c_cflag & kParityMask) : uint8_t{0};
    settings.stopBits = (line.c_cflag & CSTOPB) != 0 ? kTwoStopBits : kOneStopBit;
    settings.ctsOutputFlow = hardwareFlow;
    settings.rtsControl = hardwareFlow ? kHandshake : static_cast<uint8_t>((modem & TIOCM_RTS) != 0);
    settings.dtrControl = static_cast<uint8_t>((modem & TIOCM_DTR) != 0);
    settings.softwareFlowOut = (line.c_iflag & IXON) != 0;
    settings.softwareFlowIn = (line.c_iflag & IXOFF) != 0;
    return 0;
}

uint32_t SetLineSettings(int fd, const SerialSettings& settings) noexcept {
    if (!IsPossible(settings)) return EINVAL;
    termios2 line{};
    if (const uint32_t error = Control(fd, TCGETS2, &line)) return error;
    FillLine(line, settings);
    if (const uint32_t error = Control(fd, TCSETS2, &line)) return error;
    SetModemLine(fd, TIOCM_DTR, settings.dtrControl);
    SetModemLine(fd, TIOCM_RTS, settings.rtsControl);
    return 0;
}

}  // namespace quillet::platform
