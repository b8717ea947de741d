// SPDX-License-Identifier: MIT
// What a device service of the device model has: state, status, result codes, the claim, the enabling of events.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <quillet/quillet.h>

#include "events/event_queue.h"
#include "foundation/parameter_list.h"
#include "foundation/sync.h"
#include "service/status_bits.h"
#include "transport/comm.h"

namespace quillet {

enum DeviceState : uint32_t { StateClosed = 1, StateOpen = 2, StateEnabled = 3 };

// The base of CScanner. Words that several threads touch are atomics. What has neither a lock nor is one is written by
// opening, claiming and closing alone, which one thread at a time does, and when no thread of a link is running.
class CDevice {
  public:
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;

  protected:
    CDevice();
    ~CDevice();

    // Back to the closed defaults. Keeps m_ResultCode, m_OpenResult, m_CheckHealthText and m_Closing.
    void ResetState();

    // Claims the port against other handles of this process and against other processes. 0 if claimed. The claim
    // belongs to the calling thread.
    ResultCode ClaimDevice(uint32_t timeoutMs);
    // 0 if released. A claim belongs to the thread that took it: on another thread a release by the owner fails with
    // 113 and keeps the claim; one by anybody closes the mutex, which frees the claim where the system allows that.
    enum class ReleaseBy { Owner, Anybody };
    ResultCode ReleaseDevice(ReleaseBy who) noexcept;

    void DataEventEnable(bool enable);
    bool DeviceEventEnable(bool enable);
    // Opens or closes the event masks; one without a value stays as it is.
    struct EventMasks {
        std::optional<bool> allowable = {};
        std::optional<bool> enabled = {};
    };
    void EventEnable(EventMasks masks);
    void OnFreezeEvents();

    // Path of the port: what the process's list of claims holds. The mutex between processes has the shorter name.
    std::string ClaimName() const;

    std::atomic<uint32_t> m_State{StateClosed};
    StatusBits m_Status;
    std::atomic<uint32_t> m_PowerNotify{0};  // power reporting runs if it isn't 0
    std::atomic<uint32_t> m_PowerState{PowerUnknown};
    std::atomic<uint32_t> m_ComPort{0};  // 0 on USB
    std::mutex m_TextMutex;              // guards the four texts below, which are read at any time
    std::string m_CheckHealthText;
    std::string m_DeviceDescription;
    std::string m_DeviceName;
    std::string m_StatisticsText;
    std::atomic<ResultCode> m_OpenResult{0};
    // Result of the last operation, whichever thread ran it; properties read it. An operation keeps its own result in a
    // local, which it stores here and returns, so that it never returns another thread's.
    std::atomic<ResultCode> m_ResultCode{ResultClosed};
    std::atomic<uint32_t> m_LinkType{LinkNone};
    ClaimMutex m_ClaimMutex;
    std::string m_ClaimedName;  // as the process's list of claims has it, while StatusClaimed is set
    ParameterList m_Parameters;
    std::atomic<bool> m_Closing{false};  // CloseService is running: the power thread doesn't act
    EventQueue m_EventQueue;             // last: its thread finds everything else made
};

}  // namespace quillet
