// SPDX-License-Identifier: MIT
// Reading a device.
#pragma once

#include "platform/windows/device_request.h"

namespace quillet::platform {

class WindowsDeviceReader final : public DeviceReader {
  public:
    explicit WindowsDeviceReader(HANDLE device) noexcept : m_Request(device) {}

    IoStart Start(uint8_t* buffer, uint32_t size) override;
    ReadWait Wait(const StopSignal& stop) override;
    IoFinish Finish() override;
    uint32_t LastError() const override { return m_Error; }

  private:
    void TakeBytes(uint32_t count) const noexcept;

    DeviceRequest m_Request;
    uint8_t* m_Buffer = nullptr;  // of the caller
    uint32_t m_Error = 0;
};

}  // namespace quillet::platform
