// SPDX-License-Identifier: MIT
#include "transport/comm.h"

#include <array>
#include <exception>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/text.h"
#include "platform/clock.h"

namespace quillet {
namespace {

constexpr std::array<const char*, 5> kDeviceTypeLabels = {"unknow", "Serial", "POSUSB", "USB", "Bluetooth"};
constexpr uint32_t kPowerPollMs = 100;
constexpr int64_t kReopenPauseNs = 1'000'000'000;
// Writes of this size and above are logged without their bytes.
constexpr size_t kMaxLoggedWrite = 128;

std::string DeviceTypeLabel(uint32_t deviceType) {
    return deviceType < kDeviceTypeLabels.size() ? kDeviceTypeLabels[deviceType] : NumToString(deviceType);
}

std::string WithCode(const char* text, uint32_t code) {
    return text + NumToString(code) + ")";
}

}  // namespace

std::string FormatPortTag(const std::string& text) {
    std::string tag = text;
    std::erase_if(tag, [](char character) { return character == '\\' || character == '.'; });
    return tag;
}

CComm::CComm(LinkSetup setup) : m_Setup(std::move(setup)) {
    m_Port.linkType = m_Setup.key.linkType;
    LogInfo("    | DeviceType:   ", DeviceTypeLabel(m_Setup.key.deviceType));
}

CComm::~CComm() {
    LogTrace trace("CComm::~CComm");
    Reset();
}

void CComm::EnableDevice() {
    LogTrace trace("CComm::EnableDevice");
    if (m_Enabled) return;
    m_TerminateThread.Reset();
    m_DeviceGone.Reset();
    if (!m_ReadThread.Joinable()) {
        m_Running = true;  // not left to the thread: an order to end may come before it is scheduled
        try {
            m_ReadThread = platform::StartThread("quillet-read", [this] { RunReadThread(); });
        } catch (const std::system_error& error) {
            throw LinkError(std::string("Unable to start the read thread: ") + error.what());
        }
    }
    m_Enabled = true;
}

void CComm::DisableDevice() {
    LogTrace trace("CComm::DisableDevice");
    Reset();
}

bool CComm::OpenDevice(platform::Sharing sharing, uint32_t& error) {
    platform::OpenResult opened = platform::TheDeviceAccess().Open(m_Port.devicePath, sharing);
    m_Handle = std::move(opened.file);
    error = opened.error;
    if (m_Handle == nullptr) m_PortName = "???";
    return m_Handle != nullptr;
}

void CComm::Reset() {
    LogTrace trace("CComm::Reset");
    Close();
}

void CComm::Close() {
    m_PowerState = PowerUnknown;
    m_Enabled = false;
    if (m_ReadThread.Joinable()) {
        LogInfo("    | About to ::SetEvent(m_TerminateThread)");
        m_TerminateThread.Set();
        LogInfo("    | About to call ::WaitForSingleObject(m_ReadThread, INFINITE);");
        m_Running = false;
        m_ReadThread.Join();
    }
    m_ReaderLost = false;
    if (!m_ReadyToReConnect) EndPowerThread();
    m_Handle.reset();
}

void CComm::Reopen() {
    const uint32_t reported = m_PowerState;
    Reset();
    try {
        EnableDevice();
    } catch (...) {
        m_PowerState = reported;
        m_ReaderLost = true;  // tried again later
        throw;
    }
    m_PowerState = reported;
}

void CComm::EndThreads() {
    {
        std::lock_guard lock(m_PowerThreadMutex);
        m_PowerThreadBanned = true;
    }
    EndPowerThread();  // first: its callback may be about to enable this link
    Close();
}

int32_t CComm::RunReadThread() {
    LogInfo("RunReadThread starting...");
    bool lost = true;
    try {
        ReadUntilTold();
        lost = false;
    } catch (const QuilletError& error) {
        LogCritical("Error: RunReadThread: ", error.what());
    } catch (const std::exception& error) {
        LogCritical("Error: read thread ended by an exception: ", error.what());
    } catch (...) {
        LogCritical("Error: read thread ended by an unknown exception");
    }
    LogInfo("    - About to exit RunReadThread");
    m_ReaderLost = lost;  // a Reset that is joining this thread clears it again
    return lost ? 1 : 0;
}

void CComm::ReadUntilTold() {
    const auto reader = m_Handle->NewReader();
    std::vector<uint8_t> buffer(m_ReadSize);
    std::string block;
    LogInfo("    | About to entered RunReadThread loop");
    while (m_Running) {
        block.reserve(m_ReadSize);  // before the read: nothing that was read is lost for want of memory
        const uint32_t count = ReadOnce(*reader, buffer.data());
        if (m_Running) Deliver(block.assign(reinterpret_cast<const char*>(buffer.data()), count));
        platform::TheClock().SleepMs(0);
    }
}

uint32_t CComm::ReadOnce(platform::DeviceReader& reader, uint8_t* buffer) {
    const platform::IoStart start = reader.Start(buffer, m_ReadSize);
    if (start.state == platform::IoState::Failed) {
        throw LinkError(WithCode("Error while reading data (Code:", start.error));
    }
    if (start.state == platform::IoState::Done) return start.count;
    switch (reader.Wait(m_TerminateThread)) {
        case platform::ReadWait::Finished: return FinishPendingRead(reader);
        case platform::ReadWait::Stopped:
            m_Running = false;
            LogInfo("    | Signaled termination of RunReadThread loop");
            return 0;
        default: m_Running = false; throw LinkError(WithCode("Error waiting on event (Code:", reader.LastError()));
    }
}

uint32_t CComm::FinishPendingRead(platform::DeviceReader& reader) {
    const platform::IoFinish finish = reader.Finish();
    if (finish.ok) return finish.count;
    m_ReadError = finish.error;
    std::string nothing;
    OnReadData(kFailedRead, nothing);
    m_Running = false;
    throw LinkError(WithCode("Error while waiting for data (Code:", finish.error));
}

// Without memory for the lines they are left out; the block is still delivered.
void CComm::LogBlock(const std::string& block) const noexcept try {
    if (block.empty() || !LogWanted(LLInfo)) return;
    const std::string port = "    - Port[" + FormatPortTag(m_PortName);
    LogInfo(port + "]Read(Ascii): " + ToAsciiText(block));
    LogInfo(port + "]Read(Hex): " + ToHexText(block));
} catch (const std::bad_alloc&) {
}

void CComm::Deliver(std::string& block) {
    LogBlock(block);
    if (OnReadData(kGoodRead, block) != kEndReading) return;
    LogInfo("Auto disable is true so will exit read thread");
    m_Running = false;
}

void CComm::WriteString(const std::string& bytes) {
    LogInfo("WriteString");
    LogInfo("    | DeviceType: ", m_Setup.key.deviceType);
    LogInfo("    | LinkType: ", m_Port.linkType);
    LogInfo("    | Length: ", static_cast<uint64_t>(bytes.size()));
    if (bytes.size() < kMaxLoggedWrite) {
        LogInfo("    | Data(Hex): ", HexOf{bytes});
        LogInfo("    | Data(Ascii): ", AsciiOf{bytes});
    }
    if (bytes.empty()) return;
    using Outcome = platform::WriteResult::Outcome;
    // A link that waits for its device is closed, which is a write that fails at once.
    platform::WriteResult written{Outcome::FailedAtOnce};
    if (m_Handle != nullptr) written = m_Handle->Write(bytes, {m_DeviceGone, m_Setup.writeLimit});
    if (written.outcome == Outcome::FailedPending) {
        throw LinkError(WithCode("Error writing data (Code:", written.error) + ".");
    }
    LogInfo("    | WrittenBytes: ", written.count);
}

void CComm::StartPowerReporting() {
    std::lock_guard lock(m_PowerThreadMutex);
    if (m_PowerThread.Joinable() || m_PowerThreadEnding || m_PowerThreadBanned) return;
    m_PowerState = PowerOffOffline;  // a device that is absent from the start isn't reported
    m_EndPower.Reset();
    m_PowerRunning = true;
    m_PowerThread = platform::StartThread("quillet-power", [this] { PowerReportingThread(); });
}

void CComm::StopPowerReporting() {
    if (m_ReadyToReConnect) return;
    std::lock_guard lock(m_PowerThreadMutex);
    m_PowerRunning = false;
    m_EndPower.Signal();
}

void CComm::EndPowerThread() {
    platform::Thread ending;
    {
        std::lock_guard lock(m_PowerThreadMutex);
        if (!m_PowerThread.Joinable() || m_PowerThread.IsCurrent()) return;
        m_PowerRunning = false;
        m_EndPower.Signal();
        m_PowerThreadEnding = true;
        ending = std::move(m_PowerThread);
    }
    ending.Join();
    std::lock_guard lock(m_PowerThreadMutex);
    m_PowerThreadEnding = false;
}

int32_t CComm::PowerReportingThread() {
    LogInfo("    | PowerReportingThread Start......");
    m_ReopenAsked = false;
    while (m_PowerRunning) {
        PollPower();
        if (m_EndPower.TimedWait(kPowerPollMs) == OsEventFailed) platform::TheClock().SleepMs(kPowerPollMs);
    }
    LogInfo("    | PowerReportingThread Exit......");
    return 0;
}

// A failure here (no memory, no file descriptors) must not end the polling, or a lost scanner would never come back.
void CComm::PollPower() noexcept try {
    ReportPowerState(IsDevicePresent() ? PowerOnline : PowerOffOffline);
    AskToReopen();
} catch (const std::exception& error) {
    LogCritical("Error: PowerReportingThread: ", error.what());
} catch (...) {
    LogCritical("Error: PowerReportingThread: unknown exception");
}

// Stored before the call: the callback may reset this link, and what it leaves in m_PowerState must stand.
void CComm::ReportPowerState(uint32_t state) {
    if (m_PowerState.exchange(state) == state) return;
    // A write that stalls on a device that has gone holds up every link: it ends here. Not before a report: a port that
    // the system doesn't list is never there, and none of its writes is to end for that.
    state == PowerOffOffline ? m_DeviceGone.Set() : m_DeviceGone.Reset();
    const PowerCallback callback = m_PowerCallback;
    if (callback == nullptr) return;
    try {
        callback(m_Setup.owner, state);
    } catch (...) {
        m_PowerState = PowerUnknown;  // so that the next pass reports again
        throw;
    }
}

// A device that went and came back between two passes, or that the system doesn't list, gives no change of the power
// state, but its old handle is dead. The owner is asked at the first pass that finds it so, then once a second.
void CComm::AskToReopen() {
    if (!m_ReaderLost) {
        m_ReopenAsked = false;
        return;
    }
    const ReopenCallback callback = m_ReopenCallback;
    const int64_t now = platform::TheClock().NowNs();
    if (callback == nullptr || (m_ReopenAsked && now < m_NextReopenNs)) return;
    m_NextReopenNs = now + kReopenPauseNs;
    callback(m_Setup.owner, std::exchange(m_ReopenAsked, true));
}

}  // namespace quillet
