// SPDX-License-Identifier: MIT
// Enabling and disabling, and what a scanner that goes away and comes back sets off.
#include <string>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "platform/clock.h"
#include "service/scanner.h"
#include "transport/comm_arbiter.h"

namespace quillet {
namespace {

// A scanner needs this long after the opening before it takes a command.
constexpr uint32_t kSettleMs = 100;
// How long the power thread lets m_EnableMutex be before it tries again.
constexpr uint32_t kRetryLockMs = 5;

}  // namespace

ResultCode CScanner::DeviceEnable(bool enable) {
    LogTrace trace("CScanner::DeviceEnable");
    std::lock_guard lock(m_EnableMutex);
    if (m_Status.Has(StatusEnabled) == enable) {
        LogInfo("    | Repeat Setting DeviceEnable:       ", enable);
        return ResultSuccess;
    }
    LogInfo("    | Enable:       ", enable);
    LogInfo("    | CommProtocol: ", m_LinkType.load());
    LogInfo("    | ModelNumber:  ");  // no scanner has one
    return enable ? EnableLink() : DisableLink();
}

ResultCode CScanner::EnableLink() {
    ScopeExit undo([this] { UndoEnabling(); });
    DeviceEventEnable(true);
    if (!DeviceCommEnable(true)) return ResultNoHardware;
    m_Status.Set(StatusEnabled);
    if (m_PowerNotify != 0) ReportPowerAtEnabling();
    undo.Disarm();
    // The report may have found a USB scanner gone and disabled the device again; then the state stays open.
    if (m_Status.Has(StatusEnabled)) m_State = StateEnabled;
    return ResultSuccess;
}

// After a failure at any step: back to the state before the attempt, so that it can be repeated.
void CScanner::UndoEnabling() noexcept {
    DeviceEventEnable(false);
    if (m_Link == nullptr) return;
    m_JoiningPowerThread = true;
    m_Link.reset();
    TheCommArbiter().RemoveDevice(Key());
    m_JoiningPowerThread = false;
}

void CScanner::ReportPowerAtEnabling() {
    if (Kind().isPresent != nullptr) ProcessStatusEvent(Kind().isPresent() ? PowerOnline : PowerOffOffline);
    TheCommArbiter().StartPowerReporting(Key(), &CScanner::PowerCallbackEntry, &CScanner::ReopenCallbackEntry);
}

ResultCode CScanner::DisableLink() {
    m_JoiningPowerThread = true;
    ScopeExit joined([this] { m_JoiningPowerThread = false; });
    if (m_PowerNotify != 0) {
        TheCommArbiter().StopPowerReporting(Key());
        m_PowerState = PowerUnknown;
    }
    EventEnable({.allowable = false});
    if (DeviceCommEnable(false)) m_Status.Clear(StatusEnabled);
    m_Exchange.BreakUnlimited();
    LogInfo("    | Waiting for device to be claimed by other applications...");
    m_State = StateOpen;
    return ResultSuccess;
}

bool CScanner::DeviceCommEnable(bool enable) try {
    LogTrace trace("CScanner::DeviceCommEnable");
    if (enable) {
        LogInfo("    | Adding Device for Data events...");
        m_Link = TheCommArbiter().AddDevice({.key = Key(),
                                             .parameters = m_Parameters,
                                             .owner = this,
                                             .dataCallback = &CScanner::DataCallbackEntry,
                                             .writeLimit = &m_WriteLimit});
        // A serial port can have the number that stands for the USB link; another handle's link isn't ours to use.
        if (m_Link != nullptr && m_Link->Owner() != this) {
            m_Link.reset();
            throw LinkError("Device already in use.");
        }
        if (m_Link != nullptr) m_SendLink.Set(m_Link);
        platform::TheClock().SleepMs(kSettleMs);
        EnableDeocdeData(false);
    } else {
        EnableDeocdeData(false);
        LogInfo("    | Removing Device for Data events...");
        m_Link.reset();
        TheCommArbiter().RemoveDevice(Key());
    }
    return true;
} catch (const QuilletError& error) {
    const std::string text = error.what();
    LogCritical("Error: DeviceCommEnable ", text.empty() ? "Unknown exception" : text);
    m_ResultCode = static_cast<ResultCode>(error.Code());
    return false;
}

void CScanner::EnableDeocdeData(bool enable) {
    LogTrace trace("CScanner::EnableDeocdeData");
    LogInfo("    | enable = ", enable);
    CommandPacket packet(OpcodeBarcode, std::string(1, enable ? '\1' : '\0'));
    SendPacket(packet);
}

void CScanner::ProcessStatusEvent(uint32_t status) {
    LogTrace trace("CScanner::ProcessStatusEvent");
    LogInfo("status: ", status);
    StatusChanged(status);
    EventRecord record;
    record.SetStatusUpdate(status);
    ProcessEvent(record);
}

void CScanner::StatusChanged(uint32_t& status) {
    LogTrace trace("CScanner::StatusChanged");
    if (status != PowerOnline && status != PowerOffOffline) return;
    m_PowerState = status;
    std::unique_lock lock(m_EnableMutex, std::defer_lock);
    if (!LockForPowerReport(lock)) return;
    status == PowerOnline ? LinkBack() : LinkLost();
}

// Whoever closes, releases or disables holds m_EnableMutex while it joins the power thread. Waiting for the lock with
// no way out, that thread would never end. True with the lock held and the service one that may act; false if it is
// being taken down.
bool CScanner::LockForPowerReport(std::unique_lock<std::recursive_mutex>& lock) {
    while (!m_Closing && !lock.try_lock()) {
        if (m_JoiningPowerThread) return false;
        platform::TheClock().SleepMs(kRetryLockMs);
    }
    return lock.owns_lock() && !m_Closing && m_Status.Has(StatusOpened) && m_Status.Has(StatusClaimed);
}

// The read thread has ended although the scanner isn't lost: nothing is reported, and no state changes. It is tried
// until it works; of the attempts that fail only the first is logged.
void CScanner::ReopenLink(bool repeated) {
    std::unique_lock lock(m_EnableMutex, std::defer_lock);
    if (!LockForPowerReport(lock) || !m_Status.Has(StatusEnabled)) return;
    m_Exchange.BreakUnlimited();  // nobody is left to receive its reply
    LogHold lines(repeated);
    if (!TheCommArbiter().ReopenLink(m_SendLink)) return;
    lines.LetGo();
    platform::TheClock().SleepMs(kSettleMs);
    EnableDeocdeData(false);
}

void CScanner::LinkLost() {
    // Marked first: the disabling then closes the link but leaves it listed, and its power thread,
    // perhaps this one, goes on.
    TheCommArbiter().setReadyToReConnect(Key(), true);
    if (m_Status.Has(StatusEnabled)) DeviceEnable(false);
    m_PowerState = PowerUnknown;  // what a lost scanner shows, also after the link's second report
}

void CScanner::LinkBack() {
    if (!m_Status.Has(StatusEnabled)) DeviceEnable(true);
    if (m_Status.Has(StatusEnabled)) {
        TheCommArbiter().setReadyToReConnect(Key(), false);
    } else {
        m_PowerState = PowerUnknown;  // still lost: the next report of the link tries again
    }
}

}  // namespace quillet
