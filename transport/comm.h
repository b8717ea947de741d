// SPDX-License-Identifier: MIT
// One link to one scanner: the open device, its read thread, its power thread, and the way of the bytes out.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/parameter_list.h"
#include "foundation/sync.h"
#include "platform/device_access.h"
#include "platform/thread.h"
#include "protocol/packet.h"
#include "transport/link_error.h"
#include "transport/link_key.h"
#include "transport/port_discovery.h"

namespace quillet {

enum PowerState : uint32_t { PowerUnknown = 2000, PowerOnline = 2001, PowerOffOffline = 2004 };

// Results of a data callback.
inline constexpr int32_t kKeepReading = 1;
inline constexpr int32_t kEndReading = 2;  // auto disable: the read thread ends

// The largest block that a data callback gets.
inline constexpr uint32_t kMaxReadSize = 4095;

// Status of a block that a data callback gets.
inline constexpr uint32_t kGoodRead = 0;
inline constexpr uint32_t kFailedRead = 1;  // the block is empty

// One finished read, on the link's read thread. The block's memory serves the next read too, unless it is taken.
using DataCallback = int32_t (*)(void* owner, std::string& block, uint32_t status);
// A change of the power state, on the link's power thread. One that throws is called again at the next pass.
using PowerCallback = void (*)(void* owner, uint32_t powerState);
// The link's read thread has ended and nobody asked for it: the owner may have the link opened again. On the power
// thread. `repeated`: an attempt has been made before and came to nothing.
using ReopenCallback = void (*)(void* owner, bool repeated);

// What a link is made of.
struct LinkSetup {
    LinkKey key;
    ParameterList parameters = {};
    void* owner = nullptr;  // outlives the link
    DataCallback dataCallback = nullptr;
    const platform::WriteLimit* writeLimit = nullptr;  // of writes while the owner closes; the owner's, or none
};

// The text without backslashes and points, as traces show a port: COM3 for \\.\COM3.
std::string FormatPortTag(const std::string& text);

// Threads: EnableDevice, Reset, WriteString and WritePacket are called by one thread at a time (the arbiter's
// lock sees to it); the read thread and the power thread run beside them. Reset may run on the power thread
// while m_ReadyToReConnect is set and within Reopen, and never on the read thread. The owner outlives the link.
// Presence alone decides what is reported of the device; a read thread that ended is only asked to be replaced.
class CComm {
  public:
    explicit CComm(LinkSetup setup);
    // Derived destructors call EndThreads first: no thread may meet a half-destroyed link.
    virtual ~CComm();
    CComm(const CComm&) = delete;
    CComm& operator=(const CComm&) = delete;

    // Opens the device and starts the read thread; nothing if it is enabled already, also when the read
    // thread has ended by itself. Throws LinkError and leaves the link closed.
    virtual void EnableDevice();
    virtual void DisableDevice();
    // Writes one command. Throws LinkError.
    virtual void WritePacket(CommandPacket& packet) = 0;
    // Writes the wire form of a command that the caller has made; the string ends as what went out. Throws LinkError.
    virtual void WriteBytes(std::string& bytes) = 0;
    virtual void AcceptText(std::string text) = 0;
    virtual bool IsVirtualPort() const { return false; }
    // Body of the power thread.
    virtual int32_t PowerReportingThread();
    virtual bool IsDevicePresent() = 0;
    // One finished read, on the read thread; gives the data callback's result.
    virtual int32_t OnReadData(uint32_t status, std::string& block) = 0;
    virtual std::string GetLinkText() = 0;

    // Closes everything that EnableDevice opened, joining the read thread; ends the power thread too unless
    // the link waits for its device to come back.
    void Reset();
    // Writes all bytes in one operation, waiting as long as the device takes; ends early when the device is gone, and
    // when the limit of an owner that closes is over. Throws LinkError for a write that was under way and failed; one
    // that is refused at once isn't reported.
    void WriteString(const std::string& bytes);

    void SetPowerCallbacks(PowerCallback power, ReopenCallback reopen) {
        m_PowerCallback.store(power);
        m_ReopenCallback.store(reopen);
    }
    // Polls IsDevicePresent every 100 ms on a thread of its own; nothing if there is such a thread.
    void StartPowerReporting();
    // Tells the power thread to end, without joining it; nothing while the link waits for its device.
    void StopPowerReporting();
    // Hands a state that differs from the last one to the power callback.
    void ReportPowerState(uint32_t state);

    void SetReadyToReConnect(bool ready) { m_ReadyToReConnect.store(ready); }
    bool IsReadyToReConnect() const { return m_ReadyToReConnect.load(); }
    bool IsEnabled() const { return m_Enabled.load(); }
    // True from the end of a read thread that nobody asked to end until the link is opened again, or closed.
    bool HasLostReader() const { return m_ReaderLost.load(); }
    // Closes the device and opens it again, as if nothing had happened: the power state stays as it is. On the power
    // thread alone, with the arbiter's lock. Throws as EnableDevice, with the link closed and its reader still lost.
    void Reopen();
    int32_t Number() const { return m_Setup.key.Number(); }
    const PortDescriptor& Port() const { return m_Port; }
    const void* Owner() const { return m_Setup.owner; }

    // Whether the arbiter lists this link: a link that it doesn't list is on its way to its end, and isn't written to.
    // Under the arbiter's lock alone.
    void SetListed(bool listed) { m_Listed = listed; }
    bool IsListed() const { return m_Listed; }

    // Closes the device and ends both threads in any case, for good: no power reporting can be started any
    // more. Not on a thread of this link.
    void EndThreads();
    // Makes a write under way fail, from any thread.
    void EndWrite() noexcept { m_DeviceGone.Set(); }

  protected:
    // Opens m_Port's device; on failure its code is in `error`, and the port's label is "???".
    bool OpenDevice(platform::Sharing sharing, uint32_t& error);

    // Set by the constructors, constant afterwards.
    const LinkSetup m_Setup;
    PortDescriptor m_Port;
    uint32_t m_ReadSize = kMaxReadSize;  // bytes asked of one read

    // Written by EnableDevice and Reset alone, while no read thread runs; the read thread reads them.
    std::string m_PortName;  // label in traces
    std::unique_ptr<platform::DeviceFile> m_Handle;

    uint32_t m_ReadError = 0;  // code of the last failed read; read thread alone

  private:
    void Close();

    int32_t RunReadThread();
    void ReadUntilTold();
    // Bytes of one read; nothing to deliver if m_Running is clear afterwards.
    uint32_t ReadOnce(platform::DeviceReader& reader, uint8_t* buffer);
    uint32_t FinishPendingRead(platform::DeviceReader& reader);
    void Deliver(std::string& block);
    void LogBlock(const std::string& block) const noexcept;

    void PollPower() noexcept;
    void AskToReopen();
    void EndPowerThread();

    platform::StopSignal m_TerminateThread;  // ends the wait of the read thread; fresh at each enabling
    platform::StopSignal m_DeviceGone;       // ends a write under way; set by a report that the device has gone
    OsEvent m_EndPower{kManualResetEvent};   // ends the pause of the power thread
    bool m_Listed = false;                   // guarded by the arbiter's lock

    // Single words shared by the threads.
    std::atomic<bool> m_Running{false};
    std::atomic<bool> m_PowerRunning{false};
    std::atomic<bool> m_ReadyToReConnect{false};
    std::atomic<bool> m_Enabled{false};
    std::atomic<uint32_t> m_PowerState{PowerUnknown};
    std::atomic<PowerCallback> m_PowerCallback{nullptr};
    std::atomic<ReopenCallback> m_ReopenCallback{nullptr};
    std::atomic<bool> m_ReaderLost{false};  // set by the read thread when it ends, and by a reopening that failed

    // Of the power thread alone: the attempts to reopen.
    bool m_ReopenAsked = false;
    int64_t m_NextReopenNs = 0;

    platform::Thread m_ReadThread;  // touched by EnableDevice and Reset alone
    // Guards the three below, and the order in which m_PowerRunning and m_EndPower are set and cleared; never
    // held while joining.
    std::mutex m_PowerThreadMutex;
    platform::Thread m_PowerThread;
    bool m_PowerThreadEnding = false;  // m_PowerThread was moved out to be joined, and the thread still runs
    bool m_PowerThreadBanned = false;  // the link is at its end
};

}  // namespace quillet
