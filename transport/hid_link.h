// SPDX-License-Identifier: MIT
// The link over USB HID: everything in blocks of 64 bytes.
#pragma once

#include <cstdint>
#include <string>

#include "transport/comm.h"
#include "transport/link_kinds.h"

namespace quillet {

extern const LinkKind kHidLinkKind;

class HidLink : public CComm {
  public:
    // Looks up the device's path, which the link then keeps. With no scanner there it is empty, and opening fails.
    explicit HidLink(LinkSetup setup);
    ~HidLink() override;

    // Throws HidLinkError.
    void EnableDevice() override;
    // A packet that doesn't fit a block isn't written; one line in the log.
    void WritePacket(CommandPacket& packet) override;
    // Bytes that don't fit a block aren't written and stay as they are; one line in the log.
    void WriteBytes(std::string& bytes) override;
    void AcceptText(std::string text) override;
    bool IsDevicePresent() override;
    int32_t OnReadData(uint32_t status, std::string& block) override;
    std::string GetLinkText() override { return "USB"; }

  private:
    // Of IsDevicePresent, which the power thread alone asks: what it found last, and the path of
    // the scanner that it saw.
    bool m_Present = false;
    std::string m_SeenPath;
};

}  // namespace quillet
