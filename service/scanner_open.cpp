// SPDX-License-Identifier: MIT
// Open, claim, release and close.
#include <exception>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "service/scanner.h"
#include "transport/comm_arbiter.h"

namespace quillet {
namespace {

// Bits that a new connection starts without.
constexpr uint32_t kClearedAtOpen =
    StatusStatistics | StatusClaimed | StatusEnabled | StatusDataEventEnabled | StatusAutoDisable | StatusDecodeData;

// A step on the way down: without memory a packet isn't sent, say, but the rest has to go on.
template <typename Step>
void AsFarAsMemoryGoes(Step step) noexcept {
    try {
        step();
    } catch (const std::exception& error) {
        LogCritical("Error: closing: ", error.what());
    }
}

}  // namespace

ResultCode CScanner::Open(const std::string& connection) {
    LogTrace trace("CScanner::Open");
    ResultCode result = m_ResultCode;  // stays where an exception ends the opening
    ScopeExit leaving([&] {
        m_OpenResult = result;
        LogInfo("    | OpenResult: %d", result);
    });
    // A scanner that is open, perhaps lost, first gives up link and claim, so that both are free for this opening, also
    // where another thread took the claim.
    if (m_Status.Has(StatusOpened)) TakeDown(ReleaseBy::Anybody);
    ResetState();
    result = OpenConnection(connection);
    return m_ResultCode = result;
}

ResultCode CScanner::OpenConnection(const std::string& connection) {
    m_Parameters.Parse(connection);
    const DiscoveredLists found = DiscoveredPorts();
    const LinkKind* const kind = ChooseKind(found);
    if (kind == nullptr) {
        LogCritical("Error: not found hardware.");
        return ResultNoHardware;
    }
    try {
        if (kind->check != nullptr && !kind->check(m_Parameters, found)) return ResultNoHardware;
    } catch (const QuilletError& error) {
        const std::string text = error.what();
        LogCritical("Error: OpenService exception: ", text.empty() ? "Unknown exception" : text);
        return ResultOpenException;
    }
    StoreOpened(*kind);
    return ResultSuccess;
}

// The kind of link that the connection string names, or of what is plugged in, USB first; null if there is nothing.
const LinkKind* CScanner::ChooseKind(const DiscoveredLists& found) {
    if (const LinkKind* named = FindKind(m_Parameters.GetString("protocol", ""))) return named;
    const std::vector<PortDescriptor>& list = found.usb.empty() ? found.serial : found.usb;
    if (list.empty()) return nullptr;
    const PortDescriptor& port = list.front();
    const LinkKind& kind = KindOf(port.linkType);
    if (kind.port != nullptr) {
        m_Parameters.Remove("serialport");
        m_Parameters.Add("serialport", port.portSerial);
    }
    return &kind;
}

void CScanner::StoreOpened(const LinkKind& kind) {
    if (kind.port != nullptr) m_ComPort = kind.port(m_Parameters);
    m_LinkType = kind.linkType;
    {
        std::lock_guard lock(m_TextMutex);
        m_DeviceName = "Tovra_" + m_Parameters.GetString("module", "");
        m_DeviceDescription = m_DeviceName + " Scanner.";
    }
    m_ClaimMutex.SetName(NumToString(m_ComPort.load()));
    m_ClaimMutex.Create();
    m_ClaimMutex.Release();  // without effect on a mutex that this object doesn't own
    m_Status.Clear(kClearedAtOpen);
    m_Status.Set(StatusOpened | StatusBinaryNone);
    m_PowerNotify = 1;
    m_State = StateOpen;
}

ResultCode CScanner::GetOpenResult() {
    LogTrace trace("CScanner::GetOpenResult");
    return m_OpenResult;
}

ResultCode CScanner::ClaimDevice(uint32_t timeoutMs) {
    LogTrace trace("CScanner::ClaimDevice");
    ResultCode result = m_ResultCode;
    ScopeExit leaving([&] { LogInfo("    | ResultCode: %d", result); });
    return result = CDevice::ClaimDevice(timeoutMs);
}

ResultCode CScanner::ReleaseDevice() {
    return ReleaseService(ReleaseBy::Owner);
}

ResultCode CScanner::ReleaseService(ReleaseBy who) {
    LogTrace trace("CScanner::ReleaseDevice");
    ResultCode result = ResultNotClaimed;
    ScopeExit leaving([&] { LogInfo("    | ResultCode: %d", result); });
    if (!m_Status.Has(StatusClaimed)) {
        LogWarning("ReleaseDevice: Cannot release a device that has not been claimed.");
        return m_ResultCode = result;
    }
    {
        // Held from the question to the end, so that a scanner that comes back doesn't slip in between.
        std::lock_guard lock(m_EnableMutex);
        if (m_Status.Has(StatusEnabled)) AsFarAsMemoryGoes([this] { DeviceEnable(false); });
        m_Link.reset();
        // A lost scanner's link is still listed with its power thread, and one on a port above 132 is never
        // found by its key. Neither may outlive its owner.
        m_JoiningPowerThread = true;
        ScopeExit joined([this] { m_JoiningPowerThread = false; });
        TheCommArbiter().RemoveLinksOf(this);
    }
    return result = CDevice::ReleaseDevice(who);
}

ResultCode CScanner::CloseService() {
    LogTrace trace("CScanner::CloseService");
    ResultCode result = ResultClosed;
    ScopeExit leaving([&] { LogInfo("    | ResultCode: %d", result); });
    if (m_Status.Has(StatusOpened)) {
        TakeDown(ReleaseBy::Owner);
        result = ResultSuccess;
    }
    return m_ResultCode = result;
}

// From any open state to closed; what fails on the way doesn't stop it.
void CScanner::TakeDown(ReleaseBy who) {
    m_Closing = true;  // from here on the power thread only notes the power state
    m_Exchange.Close();
    if (m_Status.Has(StatusClaimed)) {
        AsFarAsMemoryGoes([this] { DeviceEnable(false); });
        ReleaseService(who);
    }
    m_EventQueue.ClearAll();
    m_Status.Clear(StatusOpened);
    ResetState();
    m_Exchange.Open();
    m_Closing = false;
}

}  // namespace quillet
