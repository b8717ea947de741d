// SPDX-License-Identifier: MIT
#include "transport/serial_link.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "foundation/format.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "foundation/truncate.h"
#include "platform/clock.h"

namespace quillet {
namespace {

constexpr uint32_t kPauseBeforeOpenMs = 25;
// This much quiet after its last byte ends a burst, which is what one read gives.
constexpr uint32_t kReadIntervalMs = 25;

constexpr std::array<const char*, 5> kParityLabels = {"None", "Odd", "Even", "Mark", "Space"};
constexpr std::array<const char*, 5> kParityLetters = {"n", "o", "e", "m", "s"};
constexpr std::array<const char*, 3> kStopBitsLabels = {"1", "1.5", "2"};
constexpr std::array<const char*, 4> kControlLabels = {"DISABLE", "ENABLE", "HANDSHAKE", "TOGGLE"};

std::string LabelOf(int32_t code, std::span<const char* const> labels) {
    const bool known = code >= 0 && static_cast<size_t>(code) < labels.size();
    return known ? labels[static_cast<size_t>(code)] : NumToString(code);
}

void Check(uint32_t error, const char* text) {
    if (error != 0) throw SerialLinkError(text + NumToString(error) + ").");
}

char FlowLetter(bool dsr, bool cts) {
    if (dsr) return cts ? 'p' : 'd';
    return cts ? 'c' : 'n';
}

uint32_t PortNumber(const ParameterList& parameters, double defaultNumber) {
    return static_cast<uint32_t>(TruncateToInt32(parameters.GetNumber("serialport", defaultNumber)));
}

uint32_t PortOf(const ParameterList& parameters) {
    return PortNumber(parameters, 0.0);
}

int32_t NumberOf(const LinkKey& key) {
    return static_cast<int32_t>(key.port);
}

bool CheckPort(const ParameterList& parameters, const DiscoveredLists&) {
    constexpr double kNoSuchPort = 65535.0;  // a number that no machine has, for a connection string that names none
    LogInfo("    | CommProtocols: SerialScanner");
    if (!FindSerialPort(PortNumber(parameters, kNoSuchPort)).empty()) return true;
    LogCritical("Error: OpenService: Invalid serial port...");
    return false;
}

std::shared_ptr<CComm> MakeLink(const LinkSetup& setup) {
    return std::make_shared<SerialLink>(setup);
}

// Bytes come without any framing: a frame begins where the reply does.
std::string_view AllOf(std::string_view received) {
    return received;
}

}  // namespace

constinit const LinkKind kSerialLinkKind = {.linkType = LinkSerial,
                                            .name = "serial port",
                                            .interfaceName = "RS232",
                                            .statisticsSupported = true,
                                            .number = &NumberOf,
                                            .port = &PortOf,
                                            .check = nullptr,
                                            .isPresent = nullptr,
                                            .make = &MakeLink,
                                            .parse = &ParseSerialBuffer,
                                            .frame = &AllOf};

constinit const LinkKind kVirtualSerialLinkKind = {.linkType = LinkVirtualSerial,
                                                   .name = "virtual serial port",
                                                   .interfaceName = "POS USB",
                                                   .statisticsSupported = true,
                                                   .number = &NumberOf,
                                                   .port = &PortOf,
                                                   .check = &CheckPort,
                                                   .isPresent = nullptr,
                                                   .make = &MakeLink,
                                                   .parse = &ParseSerialBuffer,
                                                   .frame = &AllOf};

SerialLink::SerialLink(LinkSetup setup) : CComm(std::move(setup)) {
    std::vector<PortDescriptor> found = FindSerialPort(m_Setup.key.port);
    m_Present = !found.empty();
    if (m_Present) m_Port = std::move(found.front());
    m_Port.devicePath = "\\\\.\\COM" + NumToString(static_cast<int32_t>(m_Setup.key.port));
}

SerialLink::~SerialLink() {
    EndThreads();
}

void SerialLink::EnableDevice() try {
    if (IsEnabled()) return;
    platform::TheClock().SleepMs(kPauseBeforeOpenMs);
    OpenPort();
    ApplySettings();
    LogSettings();
    SetTimeouts();
    CComm::EnableDevice();
} catch (...) {
    Reset();
    throw;
}

void SerialLink::OpenPort() {
    LogInfo("EnableDevice");
    LogInfo("    | TargetName: ", m_Port.devicePath);
    uint32_t error = 0;
    if (!OpenDevice(platform::Sharing::Exclusive, error)) {
        throw SerialLinkError("Unable to open COM port (Code:" + NumToString(error) + ").");
    }
    m_PortName = m_Port.devicePath;
    LogInfo("    | Opened COM Port");
}

void SerialLink::LoadSettings() {
    m_BaudRate = TruncateToInt32(m_Setup.parameters.GetNumber("baudrate", 9600.0));
    m_ByteSize = TruncateToInt32(m_Setup.parameters.GetNumber("bytesize", 8.0));
    m_Parity = TruncateToInt32(m_Setup.parameters.GetNumber("parity", 0.0));
    m_StopBits = TruncateToInt32(m_Setup.parameters.GetNumber("stopbits", 0.0));
}

void SerialLink::ApplySettings() {
    platform::SerialSettings settings;
    Check(m_Handle->GetSerialSettings(settings), "Unable to retrieve COM port settings (Code:");
    LogInfo("    | Retrieved COM Port settings");
    LoadSettings();
    settings.baudRate = static_cast<uint32_t>(m_BaudRate);
    settings.byteSize = static_cast<uint8_t>(m_ByteSize);
    settings.parity = static_cast<uint8_t>(m_Parity);
    settings.stopBits = static_cast<uint8_t>(m_StopBits);
    settings.ctsOutputFlow = m_OutxCtsFlow != 0;
    settings.dsrOutputFlow = m_OutxDsrFlow != 0;
    settings.dtrControl = static_cast<uint8_t>(m_DtrControl);
    settings.rtsControl = static_cast<uint8_t>(m_RtsControl);
    settings.dsrSensitivity = false;
    settings.softwareFlowOut = false;
    settings.softwareFlowIn = false;
    settings.discardNulls = false;
    Check(m_Handle->SetSerialSettings(settings), "Unable to update COM port settings (Code:");
}

void SerialLink::LogSettings() const {
    if (!LogWanted(LLInfo)) return;
    LogInfo("    | ================= Serial Cfg\t=================\t\t");
    LogInfo("    | BaudRate\t\t\t", m_BaudRate);
    LogInfo("    | ByteSize\t\t\t", m_ByteSize);
    LogInfo("    | Parity\t\t\t", LabelOf(m_Parity, kParityLabels));
    LogInfo("    | StopBits\t\t\t", LabelOf(m_StopBits, kStopBitsLabels));
    LogInfo("    | fOutxCtsFlow     ", m_OutxCtsFlow);
    LogInfo("    | fOutxDsrFlow     ", m_OutxDsrFlow);
    LogInfo("    | fRtsControl      ", LabelOf(m_RtsControl, kControlLabels));
    LogInfo("    | fDtrControl      ", LabelOf(m_DtrControl, kControlLabels));
    LogInfo("    | ================= Serial Cfg\tEnd =================\t\t");
}

void SerialLink::SetTimeouts() {
    platform::SerialTimeouts timeouts;
    timeouts.readIntervalMs = kReadIntervalMs;
    Check(m_Handle->SetSerialTimeouts(timeouts), "Unable to set timeouts on the COM port (Code:");
    LogInfo("    | Set COM Port timeouts");
}

void SerialLink::WritePacket(CommandPacket& packet) {
    WriteString(ToWireBytes(packet));
}

void SerialLink::AcceptText(std::string) {}

bool SerialLink::IsDevicePresent() {
    m_Present = IsSerialPortPresent(m_Setup.key.port, m_Present);
    return m_Present;
}

int32_t SerialLink::OnReadData(uint32_t status, std::string& block) {
    return m_Setup.dataCallback == nullptr ? kKeepReading : m_Setup.dataCallback(m_Setup.owner, block, status);
}

std::string SerialLink::GetLinkText() {
    LoadSettings();
    const char flow = FlowLetter(m_OutxDsrFlow == 1, m_OutxCtsFlow == 1);
    return Format("COM%d,%d,%c,%s,%d,%c", static_cast<int32_t>(m_Setup.key.port), m_BaudRate,
                  LabelOf(m_Parity, kParityLetters), m_ByteSize, LabelOf(m_StopBits, kStopBitsLabels), flow);
}

}  // namespace quillet
