#include "transport/hid_link.h"

#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/text.h"

namespace quillet {

HidLink::HidLink(uint32_t deviceType, uint32_t key, std::string modelNumber, const ParameterList& params, void* owner,
                 DataCallback dataCallback)
    : CComm(deviceType, LinkUsbHid, key, params, owner, dataCallback), m_ModelNumber(std::move(modelNumber)) {
    LogInfo("    | ModelNumber:  ", m_ModelNumber);
    std::vector<PortDescriptor> found = DiscoveredHidScanners();
    m_Present = !found.empty();
    if (m_Present) m_Port = std::move(found.front());
    m_SeenPath = m_Port.DevicePath;
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
    m_PortName = m_ModelNumber;
    CComm::EnableDevice();
} catch (...) {
    Reset();
    throw;
}

bool HidLink::CheckBlockSize(const std::string& wireBytes) {
    if (FitsHidBlock(wireBytes)) return true;
    LogCritical("Error: a USB block has no room for a command of this size: ", static_cast<uint64_t>(wireBytes.size()));
    return false;
}

void HidLink::WritePacket(CommandPacket& packet) {
    const std::string wireBytes = ToWireBytes(packet);
    if (CheckBlockSize(wireBytes)) WriteString(ToHidBlock(wireBytes));
}

void HidLink::AcceptText(std::string) {}

bool HidLink::IsDevicePresent() {
    m_Present = IsHidScannerPresent(m_SeenPath, m_Present);
    return m_Present;
}

int32_t HidLink::OnReadData(uint32_t status, std::string& block) {
    const int32_t result = m_DataCallback == nullptr ? 0 : m_DataCallback(m_Owner, block, status);
    if (status == kGoodRead) return result;
    if (m_DeviceType != DevicePosUsb && m_DeviceType != DeviceUsb) {
        throw HidLinkError("Error while waiting for data (Code:" + NumToString(m_ReadError) + ").", m_ReadError);
    }
    LogInfo("Error: RunReadThread: failed while waiting for data; will attempt to reconnect");
    return result;
}

}  // namespace quillet
