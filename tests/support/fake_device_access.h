// SPDX-License-Identifier: MIT
// Devices whose every answer a test decides.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/device_access.h"

namespace quillet::test {

inline constexpr uint32_t kFakeNoSuchFile = 2;
inline constexpr uint32_t kFakeBusy = 16;
inline constexpr uint32_t kFakeGone = 19;
inline constexpr uint32_t kFakeCanceled = 125;

// How one read ends.
struct FakeRead {
    enum class Kind { DoneAtOnce, FailedAtOnce, Finished, FailedPending, WaitFailed };
    Kind kind = Kind::Finished;
    std::string data;
    uint32_t error = 0;
};

// Codes of operations, 0 for success.
struct FakeErrors {
    uint32_t open = 0;
    uint32_t getSettings = 0;
    uint32_t setSettings = 0;
    uint32_t setTimeouts = 0;
};

// What a device does and what was done with it.
struct FakeDeviceState {
    // A pending read finishes with this.
    void Deliver(std::string data) { reads.push_back({FakeRead::Kind::Finished, std::move(data), 0}); }
    // Every open and read fails from now on, and what wasn't read is lost.
    void Unplug() {
        gone = true;
        reads.clear();
    }
    // Can be opened again; a handle from before stays dead.
    void Plug() {
        gone = false;
        ++plugs;
    }
    bool IsDead(int plugsAtOpening) const { return gone || plugsAtOpening != plugs; }
    FakeRead TakeRead() {
        FakeRead read = std::move(reads.front());
        reads.pop_front();
        return read;
    }

    std::deque<FakeRead> reads;  // used up in order; without one a read stays pending
    uint32_t lastReadSize = 0;
    bool gone = false;
    int plugs = 0;
    FakeErrors errors;

    int attempts = 0;  // to open it, those that failed too
    int opens = 0;
    int openNow = 0;
    platform::Sharing openedAs = platform::Sharing::Exclusive;
    platform::SerialSettings settings;
    platform::SerialTimeouts timeouts;

    bool stalled = false;               // writes go on until they are told to end, or until this is taken back
    bool stalledNow = false;            // one does
    platform::WriteResult writeResult;  // the count is the bytes' own number
    std::vector<std::string> writes;
    std::string answer;  // to each write, if there is one
};

// One device, for any thread, also while a link has it open: device->opens.
class FakeDevice {
  public:
    // Nobody else has the state before the end of the expression.
    struct Locked {
        FakeDeviceState* operator->() const { return state; }
        std::unique_lock<std::recursive_mutex> lock;
        FakeDeviceState* state;
    };
    Locked operator->() { return Lock(); }
    Locked Lock() { return {std::unique_lock(m_Mutex), &m_State}; }

  private:
    std::recursive_mutex m_Mutex;  // guards the state; an expression may look at it twice
    FakeDeviceState m_State;
};

class FakeReader : public platform::DeviceReader {
  public:
    FakeReader(FakeDevice& device, int plugs) : m_Device(device), m_Plugs(plugs) {}

    platform::IoStart Start(uint8_t* buffer, uint32_t size) override {
        const FakeDevice::Locked device = m_Device.Lock();
        device->lastReadSize = m_Size = size;
        m_Buffer = buffer;
        if (device->IsDead(m_Plugs)) return {platform::IoState::Failed, 0, kFakeGone};
        if (device->reads.empty()) return {platform::IoState::Pending};
        switch (device->reads.front().kind) {
            case FakeRead::Kind::DoneAtOnce: return {platform::IoState::Done, CopyOut(device->TakeRead().data)};
            case FakeRead::Kind::FailedAtOnce: return {platform::IoState::Failed, 0, device->TakeRead().error};
            default: return {platform::IoState::Pending};
        }
    }
    platform::ReadWait Wait(const platform::StopSignal& stop) override {
        for (;; stop.Wait(1)) {
            if (stop.IsSet()) return platform::ReadWait::Stopped;
            const FakeDevice::Locked device = m_Device.Lock();
            if (device->IsDead(m_Plugs)) return platform::ReadWait::Finished;
            if (device->reads.empty()) continue;
            if (device->reads.front().kind != FakeRead::Kind::WaitFailed) return platform::ReadWait::Finished;
            m_Error = device->TakeRead().error;
            return platform::ReadWait::Failed;
        }
    }
    platform::IoFinish Finish() override {
        const FakeDevice::Locked device = m_Device.Lock();
        const FakeRead gone{FakeRead::Kind::FailedPending, {}, kFakeGone};
        const FakeRead read = device->IsDead(m_Plugs) ? gone : device->TakeRead();
        m_Error = read.error;
        if (read.kind == FakeRead::Kind::FailedPending) return {false, 0, read.error};
        return {true, CopyOut(read.data), 0};
    }
    uint32_t LastError() const override { return m_Error; }

  private:
    uint32_t CopyOut(const std::string& data) {
        return static_cast<uint32_t>(data.copy(reinterpret_cast<char*>(m_Buffer), m_Size));
    }

    FakeDevice& m_Device;
    const int m_Plugs;
    uint8_t* m_Buffer = nullptr;
    uint32_t m_Size = 0;
    uint32_t m_Error = 0;
};

class FakeFile : public platform::DeviceFile {
  public:
    FakeFile(FakeDevice& device, int plugs) : m_Device(device), m_Plugs(plugs) {}
    ~FakeFile() override { --m_Device->openNow; }

    uint32_t GetSerialSettings(platform::SerialSettings& settings) override {
        settings = m_Device->settings;
        return m_Device->errors.getSettings;
    }
    uint32_t SetSerialSettings(const platform::SerialSettings& settings) override {
        m_Device->settings = settings;
        return m_Device->errors.setSettings;
    }
    uint32_t SetSerialTimeouts(const platform::SerialTimeouts& timeouts) override {
        m_Device->timeouts = timeouts;
        return m_Device->errors.setTimeouts;
    }
    std::unique_ptr<platform::DeviceReader> NewReader() override {
        return std::make_unique<FakeReader>(m_Device, m_Plugs);
    }
    platform::WriteResult Write(std::string_view bytes, const platform::WriteEnd& end) override {
        using Outcome = platform::WriteResult::Outcome;
        for (;; end.stop.Wait(1)) {
            const bool ended = end.stop.IsSet() || (end.limit != nullptr && end.limit->LeftMs() == 0);
            const FakeDevice::Locked device = m_Device.Lock();
            device->stalledNow = device->stalled && !ended;
            if (device->stalledNow) continue;
            if (device->stalled) return {Outcome::FailedPending, 0, kFakeCanceled};
            if (device->IsDead(m_Plugs)) return {Outcome::FailedAtOnce, 0, kFakeGone};
            platform::WriteResult result = device->writeResult;
            if (result.outcome == Outcome::Written) device->writes.emplace_back(bytes);
            if (!device->answer.empty()) device->Deliver(device->answer);
            result.count = static_cast<uint32_t>(bytes.size());
            return result;
        }
    }

  private:
    FakeDevice& m_Device;
    const int m_Plugs;  // of the device when it was opened
};

// In use from its making to its end; every link must be closed before that. Devices are made on first mention.
class FakeDeviceAccess : public platform::DeviceAccess {
  public:
    FakeDeviceAccess() { platform::ReplaceDeviceAccess(this); }
    ~FakeDeviceAccess() override { platform::ReplaceDeviceAccess(nullptr); }

    // The device of a path, which can be opened from then on.
    FakeDevice& Device(const std::string& path) {
        std::lock_guard lock(m_Mutex);
        return m_Devices[path];
    }
    FakeDevice& Port(uint32_t number) { return Device("\\\\.\\COM" + std::to_string(number)); }

    platform::OpenResult Open(const std::string& path, platform::Sharing sharing) override {
        FakeDevice* known = nullptr;
        {
            std::lock_guard lock(m_Mutex);
            const auto place = m_Devices.find(path);
            if (place == m_Devices.end()) return {nullptr, kFakeNoSuchFile};
            known = &place->second;
        }
        const FakeDevice::Locked device = known->Lock();
        ++device->attempts;
        if (device->gone) return {nullptr, kFakeNoSuchFile};
        if (device->errors.open != 0) return {nullptr, device->errors.open};
        if (sharing == platform::Sharing::Exclusive && device->openNow > 0) return {nullptr, kFakeBusy};
        ++device->opens;
        ++device->openNow;
        device->openedAs = sharing;
        return {std::make_unique<FakeFile>(*known, device->plugs), 0};
    }

  private:
    std::mutex m_Mutex;  // guards the map; a device has its own lock
    std::map<std::string, FakeDevice> m_Devices;
};

}  // namespace quillet::test
