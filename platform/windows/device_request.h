// SPDX-License-Identifier: MIT
// One read or write that goes on while its thread waits.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/device_access.h"
#include "platform/windows/unique_handle.h"

namespace quillet::platform {

// What the driver works on (the overlapped record, its event, the bytes) stands in one block of the heap, and nothing
// of the caller's memory is ever lent to it. A request that is pending when the next one starts, or at the end of this
// object, is cancelled; if the driver doesn't end it in time, the block is never freed. Used by one
// thread, the same from start to end: the system ends the requests of a thread that ends.
class DeviceRequest {
  public:
    // The device stays open as long as this object lives.
    explicit DeviceRequest(HANDLE device) noexcept : m_Device(device) {}
    ~DeviceRequest() { DropPending(); }
    DeviceRequest(const DeviceRequest&) = delete;
    DeviceRequest& operator=(const DeviceRequest&) = delete;

    IoStart StartRead(uint32_t size);
    IoStart StartWrite(std::string_view bytes);

    // Waits without a limit for the stop signal or the end of the pending request; gives what the wait returned.
    static constexpr DWORD kStopped = WAIT_OBJECT_0;
    static constexpr DWORD kEnded = WAIT_OBJECT_0 + 1;
    DWORD Wait(const StopSignal& stop) const noexcept;
    // The same for a write, at most timeoutMs: WAIT_TIMEOUT then. A write without a limit so far wakes when one begins.
    static constexpr DWORD kLimitBegun = WAIT_OBJECT_0 + 2;
    DWORD Wait(const WriteEnd& end, uint32_t timeoutMs) const noexcept;
    // The outcome of a request that Wait called ended.
    IoFinish Finish() noexcept;

    // What was read. Valid until the next start.
    const uint8_t* Bytes() const noexcept { return m_Block->bytes.data(); }

  private:
    struct Block {
        OVERLAPPED overlapped{};
        UniqueHandle event;
        std::vector<uint8_t> bytes;
    };

    uint32_t Prepare(size_t size);
    IoStart Started(bool done, DWORD count) noexcept;
    bool Cancel() const noexcept;
    void DropPending() noexcept;

    const HANDLE m_Device;
    std::unique_ptr<Block> m_Block;
    bool m_Pending = false;
};

}  // namespace quillet::platform
