// SPDX-License-Identifier: MIT
#include "service/device.h"

#include <utility>

#include "foundation/log.h"
#include "transport/comm_arbiter.h"

namespace quillet {

CDevice::CDevice() = default;

CDevice::~CDevice() {
    // Destroying any device ends logging for the whole process, until the next setLogLevel.
    TheLog().Stop();
}

std::string CDevice::ClaimName() const {
    return "\\\\.\\COM" + NumToString(m_ComPort.load());
}

ResultCode CDevice::ClaimDevice(uint32_t timeoutMs) {
    LogTrace trace("CDevice::ClaimDevice");
    LogInfo("    | Timeout: ", timeoutMs);
    if (m_Status.Has(StatusClaimed)) {
        LogInfo("    | Device claimed already by this app.");
        return m_ResultCode = ResultSuccess;
    }
    std::string name = ClaimName();
    if (TheCommArbiter().IsClaimed(name)) return m_ResultCode = ResultClaimed;
    if (m_ClaimMutex.Name().empty() || !m_ClaimMutex.IsOpen()) return m_ResultCode = ResultIllegal;
    LogInfo("    | Create Mutex:   ", m_ClaimMutex.Name());
    if (!m_ClaimMutex.Take(timeoutMs)) {
        LogWarning("ClaimDevice: The device has already been claimed by another application.");
        return m_ResultCode = ResultClaimed;
    }
    try {
        TheCommArbiter().AddClaim(name);
    } catch (...) {  // no memory
        m_ClaimMutex.Release();
        throw;
    }
    m_ClaimedName = std::move(name);
    m_Status.Set(StatusClaimed);
    m_ResultCode = ResultSuccess;
    LogInfo("    | Claimed the mutex that grants exclusive access.");
    return ResultSuccess;
}

ResultCode CDevice::ReleaseDevice(ReleaseBy who) noexcept {
    LogTrace trace("CDevice::ReleaseDevice");
    if (!m_ClaimMutex.Release()) {
        if (who == ReleaseBy::Owner) {
            LogCritical("Error: ReleaseDevice: Failed to released mutex.");
            return m_ResultCode = ResultBusy;
        }
        m_ClaimMutex.Close();
    }
    LogInfo("    | Released the mutex that grants exclusive access.");
    m_Status.Clear(StatusClaimed);
    TheCommArbiter().RemoveClaim(m_ClaimedName);
    return m_ResultCode = ResultSuccess;
}

void CDevice::DataEventEnable(bool enable) {
    LogTrace trace("CDevice::DataEventEnable");
    LogInfo(enable ? "    | Enable: True" : "    | Enable: False");
    m_Status.Put(StatusDataEventEnabled, enable);
    m_EventQueue.ChangeEnabledEvents(enable ? EventData : EventNone, enable ? EventNone : EventData);
}

bool CDevice::DeviceEventEnable(bool enable) {
    LogTrace trace("CDevice::DeviceEventEnable");
    LogInfo("    | Enable: ", enable);
    m_Status.Put(StatusEnabled, enable);
    EventEnable({.allowable = enable, .enabled = enable});
    return true;
}

void CDevice::EventEnable(EventMasks masks) {
    LogTrace trace("CDevice::EventEnable");
    if (masks.allowable) {
        LogInfo("    | in_Enable: ", *masks.allowable);
        LogInfo(*masks.allowable ? "    | Allowable Events: EventAll" : "    | Allowable Events: EventNone");
    }
    if (!masks.enabled) return;
    LogInfo("    | out_enable: ", *masks.enabled);
    if (!*masks.enabled) {
        m_EventQueue.SetEnabledEvents(EventNone);
        LogInfo("    | Enabled Events: EventNone");
        return;
    }
    // Data events only if the application has asked for them.
    const uint32_t mask = EventDirectIO | EventError | (m_Status.Has(StatusDataEventEnabled) ? EventData : EventNone);
    m_EventQueue.SetEnabledEvents(static_cast<int32_t>(mask));
    LogInfo("    | Enabled Events: ", mask);
}

void CDevice::OnFreezeEvents() {
    LogTrace trace("CDevice::OnFreezeEvents");
    if (m_Status.Has(StatusFreezeEvents | StatusCOFreeze)) return;
    m_EventQueue.ChangeEnabledEvents(0, 0);  // only wakes the queue
}

void CDevice::ResetState() {
    TheLog().SetFilePrefix("TovraQuillet");
    m_State = StateClosed;
    m_Status.Reset();
    {
        std::lock_guard lock(m_TextMutex);
        m_DeviceName.clear();
        m_DeviceDescription.clear();
    }
    m_PowerNotify = 0;
    m_PowerState = PowerUnknown;
    m_ComPort = 0;
    m_LinkType = LinkNone;
    m_ClaimMutex.Close();
    m_Parameters.Clear();
}

}  // namespace quillet
