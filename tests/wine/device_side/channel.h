// Bytes or messages both ways over a handle, each way by one thread.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/device_side.h"
#include "wine/device_side/handles.h"

namespace quillet::platform {

// The file is opened for overlapped use and outlives the channel.
class Channel {
  public:
    explicit Channel(HANDLE file);
    ~Channel();  // drops what arrives from now on
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // As in DeviceEnd.
    DeviceEnd::Received Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop);
    DeviceEnd::Sent Send(std::string_view bytes, const StopSignal& stop);

  private:
    bool StartRead();
    DeviceEnd::Received FinishRead(std::string& bytes);

    const HANDLE m_File;
    // The receiving thread's. A read goes on from one Receive to the next: ending it could lose bytes.
    const UniqueHandle m_ReadEvent;
    OVERLAPPED m_Read{};
    bool m_Reading = false;
    std::array<char, 4096> m_Buffer;
    // The sending thread's.
    const UniqueHandle m_WriteEvent;
};

}  // namespace quillet::platform
