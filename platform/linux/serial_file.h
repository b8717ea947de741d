// SPDX-License-Identifier: MIT
// An open serial port.
#pragma once

#include <atomic>

#include "platform/linux/handle_file.h"

namespace quillet::platform {

class SerialFile final : public HandleFile {
  public:
    // Takes an open terminal for its sole use and makes it raw. Null with an error: EBUSY if it is in use,
    // ENOTTY if it is no terminal.
    static OpenResult Take(UniqueFd fd);

    explicit SerialFile(UniqueFd fd) : HandleFile(std::move(fd)) {}
    ~SerialFile() override;

    uint32_t GetSerialSettings(SerialSettings& settings) override;
    uint32_t SetSerialSettings(const SerialSettings& settings) override;
    uint32_t SetSerialTimeouts(const SerialTimeouts& timeouts) override;
    std::unique_ptr<DeviceReader> NewReader() override;

  private:
    ssize_t WritePiece(int fd, std::string_view bytes) override;
    bool IsOnePiece() const override { return false; }
    void OnWriteCut() override { m_OutputStuck = true; }

    void DrainOutput(int fd) const;
    uint32_t CheckForLoss(uint32_t error) noexcept;

    std::atomic<uint32_t> m_ReadIntervalMs{0};  // read by the reader's thread
    std::atomic<bool> m_OutputStuck{false};
    const ProcessOrigin m_Origin;
};

}  // namespace quillet::platform
