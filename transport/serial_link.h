// SPDX-License-Identifier: MIT
// The link over a serial port, real or virtual: bytes without any framing.
#pragma once

#include <cstdint>
#include <string>

#include "transport/comm.h"
#include "transport/link_kinds.h"

namespace quillet {

extern const LinkKind kSerialLinkKind;
extern const LinkKind kVirtualSerialLinkKind;

class SerialLink : public CComm {
  public:
    // A port that discovery doesn't know is tried all the same.
    explicit SerialLink(LinkSetup setup);
    ~SerialLink() override;

    // Throws SerialLinkError, and StringError for a line setting that is no number.
    void EnableDevice() override;
    void WritePacket(CommandPacket& packet) override;
    void WriteBytes(std::string& bytes) override { WriteString(bytes); }
    void AcceptText(std::string text) override;
    bool IsVirtualPort() const override { return m_Port.linkType == LinkVirtualSerial; }
    bool IsDevicePresent() override;
    int32_t OnReadData(uint32_t status, std::string& block) override;
    // Such as "COM3,9600,n,8,1,n".
    std::string GetLinkText() override;

  private:
    void OpenPort();
    void LoadSettings();
    void ApplySettings();
    void LogSettings() const;
    void SetTimeouts();

    bool m_Present = false;  // what IsDevicePresent, which the power thread alone asks, found last
    // In the numbering of the Windows DCB.
    int32_t m_BaudRate = 9600;
    int32_t m_ByteSize = 8;
    int32_t m_Parity = 0;
    int32_t m_StopBits = 0;
    // No key sets these: the link has no hardware flow control.
    int32_t m_DtrControl = 0;
    int32_t m_OutxDsrFlow = 0;
    int32_t m_RtsControl = 0;
    int32_t m_OutxCtsFlow = 0;
};

}  // namespace quillet
