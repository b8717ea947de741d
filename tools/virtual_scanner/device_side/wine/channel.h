// Bytes or messages both ways over a handle, each way by one thread.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/wine/handles.h"

namespace quillet::tools {

// The file is opened for overlapped use and outlives the channel.
class Channel {
  public:
    virtual ~Channel();  // what arrives from now on is dropped
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // As in DeviceEnd.
    DeviceEnd::Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop);
    DeviceEnd::Sent Send(std::string_view bytes, const platform::StopSignal& stop);

  protected:
    explicit Channel(HANDLE file);
    // False if it could not be started.
    virtual bool BeginRead(char* buffer, size_t size, OVERLAPPED& overlapped) = 0;
    virtual bool BeginWrite(std::string_view bytes, OVERLAPPED& overlapped) = 0;

    const HANDLE m_File;

  private:
    bool EnsureReading();
    DeviceEnd::Received FinishRead(std::string& bytes);

    // The receiving thread's. A read goes on from one Receive to the next: ending it could lose bytes.
    const platform::UniqueHandle m_ReadEvent;
    OVERLAPPED m_Read{};
    bool m_Reading = false;
    std::array<char, 4096> m_Buffer;
    // The sending thread's.
    const platform::UniqueHandle m_WriteEvent;
};

class PipeChannel final : public Channel {
  public:
    explicit PipeChannel(HANDLE pipe) : Channel(pipe) {}

  private:
    bool BeginRead(char* buffer, size_t size, OVERLAPPED& overlapped) override;
    bool BeginWrite(std::string_view bytes, OVERLAPPED& overlapped) override;
};

// Not by the calls for files: where a socket's buffer is full, Wine then loses count of what is written.
class SocketChannel final : public Channel {
  public:
    explicit SocketChannel(SOCKET socket) : Channel(reinterpret_cast<HANDLE>(socket)), m_Socket(socket) {}

  private:
    bool BeginRead(char* buffer, size_t size, OVERLAPPED& overlapped) override;
    bool BeginWrite(std::string_view bytes, OVERLAPPED& overlapped) override;

    const SOCKET m_Socket;
};

}  // namespace quillet::tools
