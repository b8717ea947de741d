// The link over USB HID: everything in blocks of 64 bytes.
#pragma once

#include <cstdint>
#include <string>

#include "transport/comm.h"

namespace quillet {

class HidLink : public CComm {
  public:
    // Looks up the device's path, once and for all. With no scanner there the path stays empty, and opening
    // fails.
    HidLink(uint32_t deviceType, uint32_t key, std::string modelNumber, const ParameterList& params, void* owner,
            DataCallback dataCallback);
    ~HidLink() override;

    // Throws HidLinkError.
    void EnableDevice() override;
    // A packet that doesn't fit a block isn't written; one line in the log.
    void WritePacket(CommandPacket& packet) override;
    void AcceptText(std::string text) override;
    bool IsDevicePresent() override;
    int32_t OnReadData(uint32_t status, std::string& block) override;
    std::string GetLinkText() override { return "USB"; }

    // False, with one line in the log, for a wire form that has no room in a block.
    static bool CheckBlockSize(const std::string& wireBytes);

  private:
    const std::string m_ModelNumber;
    // Of IsDevicePresent, which the power thread alone asks: what it found last, and the path of the scanner that it saw.
    bool m_Present = false;
    std::string m_SeenPath;
};

}  // namespace quillet
