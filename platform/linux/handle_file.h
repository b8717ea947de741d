// SPDX-License-Identifier: MIT
// An open device over the kernel's file: what serial ports and HID devices have in common.
#pragma once

#include <string_view>
#include <sys/types.h>
#include <utility>

#include "platform/device_access.h"
#include "platform/linux/device_handle.h"

namespace quillet::platform {

class HandleFile : public DeviceFile {
  public:
    explicit HandleFile(UniqueFd fd) : m_Handle(std::move(fd)) {}

    WriteResult Write(std::string_view bytes, const WriteEnd& end) override;

  protected:
    // One call of the kernel; as write, and never raising SIGPIPE.
    virtual ssize_t WritePiece(int fd, std::string_view bytes) = 0;
    // True if a piece that was taken, however short, is the whole write.
    virtual bool IsOnePiece() const = 0;
    // A write failed with this code because the device went away.
    virtual bool IsGone(uint32_t error) const { return MeansGone(error); }
    // The stop signal, or the limit, cut a write short.
    virtual void OnWriteCut() {}

    DeviceHandle m_Handle;

  private:
    WriteResult WriteTo(const UniqueFd& file, std::string_view bytes, const WriteEnd& end);
};

}  // namespace quillet::platform
