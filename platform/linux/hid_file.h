// SPDX-License-Identifier: MIT
// An open HID device: a hidraw node, or a socket that stands for one.
#pragma once

#include "platform/linux/handle_file.h"

namespace quillet::platform {

class HidFile final : public HandleFile {
  public:
    enum class Kind { Socket, Numbered, Unnumbered };

    // A hidraw node; reads its report descriptor.
    static std::unique_ptr<HidFile> OfNode(UniqueFd fd);

    HidFile(UniqueFd fd, Kind kind) : HandleFile(std::move(fd)), m_Kind(kind) {}

    uint32_t GetSerialSettings(SerialSettings& settings) override;
    uint32_t SetSerialSettings(const SerialSettings& settings) override;
    uint32_t SetSerialTimeouts(const SerialTimeouts& timeouts) override;
    std::unique_ptr<DeviceReader> NewReader() override;

  private:
    ssize_t WritePiece(int fd, std::string_view bytes) override;
    bool IsOnePiece() const override { return true; }
    bool IsGone(uint32_t error) const override;

    const Kind m_Kind;
};

// True if the reports of a device carry an id, by its report descriptor.
bool HasReportIds(std::string_view descriptor) noexcept;

// One read of one report into a buffer: the id in front, zeros behind a short one.
ssize_t ReadReport(int fd, HidFile::Kind kind, uint8_t* buffer, size_t size);

}  // namespace quillet::platform
