// SPDX-License-Identifier: MIT
#include "transport/hid_link.h"

#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/text.h"

namespace quillet {
namespace {

// One for all links of a device type, beside the numbers of ports.
int32_t NumberOf(const LinkKey& key) {
    return key.deviceType < DeviceBluetooth ? static_cast<int32_t>(key.deviceType) + 128 : kNoLinkNumber;
}

bool CheckScanners(const ParameterList&, const DiscoveredLists& found) {
    LogInfo("    | CommProtocol: emTypeUSB");
    if (!found.usb.empty()) return true;
    LogCritical("Error: OpenService: No Full Speed USB Scanners are connected to the system.");
    return false;
}

bool IsAnyScannerPresent() {
    return !DiscoveredHidScanners().empty();
}

std::shared_ptr<CComm> MakeLink(const LinkSetup& setup) {
    const int32_t number = NumberOf(setup.key);
    if (number == kNoLinkNumber) {
        throw LinkError("RemoveSerialDevice faild because invalid number :" + NumToString(number));
    }
    return std::make_shared<HidLink>(setup);
}

}  // namespace

constinit const LinkKind kHidLinkKind = {.linkType = LinkUsbHid,
                                         .name = "usb",
                                         .interfaceName = "IBM OEM USB",
                                         .statisticsSupported = false,
                                         .number = &NumberOf,
                                         .port = nullptr,
                                         .check = &CheckScanners,
                                         .isPresent = &IsAnyScannerPresent,
                                         .make = &MakeLink,
                                         .parse = &ParseUsbBuffer,
                                         .frame = &FindFrameInBlocks};

HidLink::HidLink(LinkSetup setup) : CComm(std::move(setup)) {
    m_Port.linkType = LinkUsbHid;     // whatever the key says
    LogInfo("    | ModelNumber:  ");  // no scanner has one
    std::vector<PortDescriptor> found = DiscoveredHidScanners();
    m_Present = !found.empty();
    if (m_Present) m_Port = std::move(found.front());
    m_SeenPath = m_Port.devicePath;
    m_ReadSize = kHidBlockSize;
}

HidLink::~HidLink() {
    EndThreads();
}

void HidLink::EnableDevice() try {
    if (IsEnabled()) return;
    LogInfo("EnableDevice");
    uint32_t error = 0;
    if (!OpenDevice(platform::Sharing::Shared, error)) {
        throw HidLinkError("Unable to open USB device (Code:" + NumToString(error) + ").");
    }
    LogInfo("    | Opened IBM USB Port");
    m_PortName.clear();  // its label would be the model number
    CComm::EnableDevice();
} catch (...) {
    Reset();
    throw;
}

void HidLink::WritePacket(CommandPacket& packet) {
    std::string bytes = ToWireBytes(packet);
    WriteBytes(bytes);
}

void HidLink::WriteBytes(std::string& bytes) {
    if (!FitsHidBlock(bytes)) {
        LogCritical("Error: a USB block has no room for a command of this size: ", static_cast<uint64_t>(bytes.size()));
        return;
    }
    bytes = ToHidBlock(bytes);
    WriteString(bytes);
}

void HidLink::AcceptText(std::string) {}

bool HidLink::IsDevicePresent() {
    m_Present = IsHidScannerPresent(m_SeenPath, m_Present);
    return m_Present;
}

int32_t HidLink::OnReadData(uint32_t status, std::string& block) {
    const int32_t result = m_Setup.dataCallback == nullptr ? 0 : m_Setup.dataCallback(m_Setup.owner, block, status);
    if (status == kGoodRead) return result;
    if (m_Setup.key.deviceType != DevicePosUsb && m_Setup.key.deviceType != DeviceUsb) {
        throw HidLinkError("Error while waiting for data (Code:" + NumToString(m_ReadError) + ").", m_ReadError);
    }
    LogInfo("Error: RunReadThread: failed while waiting for data; will attempt to reconnect");
    return result;
}

}  // namespace quillet
