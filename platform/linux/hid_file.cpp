// SPDX-License-Identifier: MIT
#include "platform/linux/hid_file.h"

#include <algorithm>
#include <cstring>
#include <linux/hidraw.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/linux/handle_reader.h"

namespace quillet::platform {
namespace {

constexpr size_t kReportSize = 64;

bool MeansGoneFrom(HidFile::Kind kind, uint32_t error) {
    return kind == HidFile::Kind::Socket ? MeansSocketGone(error) : MeansGone(error);
}

class HidReader final : public HandleReader {
  public:
    HidReader(DeviceHandle& handle, HidFile::Kind kind) : HandleReader(handle), m_Kind(kind) {}

  private:
    ssize_t ReadPiece(int fd, uint8_t* buffer, size_t size) override { return ReadReport(fd, m_Kind, buffer, size); }
    bool IsOnePiece() const override { return true; }
    bool IsGone(uint32_t error) const override { return MeansGoneFrom(m_Kind, error); }

    const HidFile::Kind m_Kind;
};

// Reports are numbered unless the descriptor says otherwise.
HidFile::Kind KindOfNode(int fd) noexcept {
    hidraw_report_descriptor descriptor{};
    int size = 0;
    if (::ioctl(fd, HIDIOCGRDESCSIZE, &size) != 0 || size <= 0 || size > HID_MAX_DESCRIPTOR_SIZE) {
        return HidFile::Kind::Numbered;
    }
    descriptor.size = static_cast<uint32_t>(size);
    if (::ioctl(fd, HIDIOCGRDESC, &descriptor) != 0) return HidFile::Kind::Numbered;
    const std::string_view bytes(reinterpret_cast<const char*>(descriptor.value), descriptor.size);
    return HasReportIds(bytes) ? HidFile::Kind::Numbered : HidFile::Kind::Unnumbered;
}

}  // namespace

bool HasReportIds(std::string_view descriptor) noexcept {
    constexpr uint8_t kLongItem = 0xFE;
    constexpr uint8_t kReportId = 0x84;  // without the two bits of the size
    for (size_t at = 0; at < descriptor.size();) {
        const auto item = static_cast<uint8_t>(descriptor[at]);
        if (item == kLongItem) {
            const size_t size = at + 1 < descriptor.size() ? static_cast<uint8_t>(descriptor[at + 1]) : 0;
            at += 3 + size;
            continue;
        }
        if ((item & 0xFC) == kReportId) return true;
        const size_t size = item & 3U;
        at += 1 + (size == 3 ? 4 : size);
    }
    return false;
}

ssize_t ReadReport(int fd, HidFile::Kind kind, uint8_t* buffer, size_t size) {
    const size_t idSize = kind == HidFile::Kind::Unnumbered && size > 0 ? 1 : 0;
    ssize_t count = ::read(fd, buffer + idSize, size - idSize);
    if (count < 0 && errno == ECONNRESET) {
        // A socket tells once, and first, that its other end closed with some of our reports unread; what
        // that end had sent is still there.
        count = ::read(fd, buffer + idSize, size - idSize);
    }
    if (count <= 0) return count;
    std::memset(buffer, 0, idSize);
    const size_t filled = idSize + static_cast<size_t>(count);
    const size_t padded = std::max(filled, std::min(size, kReportSize));
    std::memset(buffer + filled, 0, padded - filled);
    return static_cast<ssize_t>(padded);
}

std::unique_ptr<HidFile> HidFile::OfNode(UniqueFd fd) {
    const Kind kind = KindOfNode(fd.Get());
    return std::make_unique<HidFile>(std::move(fd), kind);
}

uint32_t HidFile::GetSerialSettings(SerialSettings&) {
    return ENOTTY;
}
uint32_t HidFile::SetSerialSettings(const SerialSettings&) {
    return ENOTTY;
}
uint32_t HidFile::SetSerialTimeouts(const SerialTimeouts&) {
    return ENOTTY;
}

std::unique_ptr<DeviceReader> HidFile::NewReader() {
    return std::make_unique<HidReader>(m_Handle, m_Kind);
}

ssize_t HidFile::WritePiece(int fd, std::string_view bytes) {
    if (m_Kind == Kind::Socket) return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return ::write(fd, bytes.data(), bytes.size());
}

bool HidFile::IsGone(uint32_t error) const {
    return MeansGoneFrom(m_Kind, error);
}

}  // namespace quillet::platform
