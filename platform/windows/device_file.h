// SPDX-License-Identifier: MIT
// An open device: a serial port or a HID device, which differ in nothing here.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "platform/device_access.h"
#include "platform/windows/unique_handle.h"

namespace quillet::platform {

// Reader and writer share the handle and nothing else. The three calls of a serial port belong to one thread.
class WindowsDeviceFile final : public DeviceFile {
  public:
    // A handle opened for overlapped work.
    explicit WindowsDeviceFile(UniqueHandle handle) noexcept : m_Handle(std::move(handle)) {}

    uint32_t GetSerialSettings(SerialSettings& settings) override;
    uint32_t SetSerialSettings(const SerialSettings& settings) override;
    uint32_t SetSerialTimeouts(const SerialTimeouts& timeouts) override;
    std::unique_ptr<DeviceReader> NewReader() override;
    WriteResult Write(std::string_view bytes, const WriteEnd& end) override;

  private:
    uint32_t FetchDcb();

    const UniqueHandle m_Handle;
    std::optional<DCB> m_Dcb;  // as the port gave it last; keeps what SerialSettings doesn't name
};

}  // namespace quillet::platform
