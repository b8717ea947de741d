// SPDX-License-Identifier: MIT
// Reading a device through poll.
#pragma once

#include <cstdint>
#include <sys/types.h>

#include "platform/device_access.h"
#include "platform/linux/device_handle.h"

namespace quillet::platform {

// A read is pending from its start: nothing is asked of the kernel before Wait. Derived classes say how a
// piece is read and whether more belongs to it.
class HandleReader : public DeviceReader {
  public:
    explicit HandleReader(DeviceHandle& handle) : m_Handle(handle) {
        m_Handle.ReaderStarts();
        m_File = m_Handle.ForReading();
    }
    ~HandleReader() override {
        m_File.reset();
        m_Handle.ReaderEnds();
    }
    HandleReader(const HandleReader&) = delete;
    HandleReader& operator=(const HandleReader&) = delete;

    IoStart Start(uint8_t* buffer, uint32_t size) override;
    ReadWait Wait(const StopSignal& stop) override;
    IoFinish Finish() override;
    uint32_t LastError() const override { return m_Error; }

  protected:
    // One piece into the buffer; as read.
    virtual ssize_t ReadPiece(int fd, uint8_t* buffer, size_t size) = 0;
    // True if the first piece is the whole read, else how long the next piece is waited for.
    virtual bool IsOnePiece() const = 0;
    virtual uint32_t NextPieceMs() const { return 0; }
    // A read failed with this code because the device went away.
    virtual bool IsGone(uint32_t error) const { return MeansGone(error); }

  private:
    ReadWait TakeMore(const StopSignal& stop);
    ReadWait End(uint32_t error);
    bool TryWithoutPoll();
    ssize_t Read();

    DeviceHandle& m_Handle;
    DeviceHandle::File m_File;     // given up as soon as a read finds the device gone
    uint32_t m_ReadsUntilTry = 0;  // that go by a poll
    uint32_t m_PauseOfTries = 0;   // how many those were after the last try
    uint8_t* m_Buffer = nullptr;
    uint32_t m_Size = 0;
    uint32_t m_Count = 0;
    uint32_t m_Error = 0;
};

}  // namespace quillet::platform
