// SPDX-License-Identifier: MIT
// Devices whose every answer a test decides.
#pragma once

#include <algorithm>
#include <cstddef>
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
#include "support/eventually.h"

namespace quillet::test {

inline constexpr uint32_t kFakeNoSuchFile = 2;
inline constexpr uint32_t kFakeBusy = 16;
inline constexpr uint32_t kFakeGone = 19;
inline constexpr uint32_t kFakeCanceled = 125;

// How one read ends. Reads use these up in order; without one a read stays pending.
struct FakeRead {
    enum class Kind { DoneAtOnce, FailedAtOnce, Finished, FailedPending, WaitFailed };
    Kind kind = Kind::Finished;
    std::string data;
    uint32_t error = 0;
};

// One device. A test scripts it and looks at it from any thread, also while a link has it open.
class FakeDevice {
  public:
    void Read(FakeRead read) {
        std::lock_guard lock(m_Mutex);
        m_Reads.push_back(std::move(read));
    }
    // A pending read finishes with this.
    void Deliver(std::string data) { Read({FakeRead::Kind::Finished, std::move(data), 0}); }
    // Every open and read fails from now on, and what wasn't read is lost.
    void Unplug() {
        std::lock_guard lock(m_Mutex);
        m_Gone = true;
        m_Reads.clear();
    }
    // Can be opened again; a handle from before stays dead.
    void Plug() {
        std::lock_guard lock(m_Mutex);
        m_Gone = false;
        ++m_Plugs;
    }
    // Opens fail with this code; 0 lets them succeed again.
    void FailOpens(uint32_t error) { Set(m_OpenError, error); }
    // Writes end like this from now on; the count is the bytes' own number.
    void EndWrites(platform::WriteResult::Outcome outcome, uint32_t error = 0) {
        std::lock_guard lock(m_Mutex);
        m_WriteOutcome = outcome;
        m_WriteError = error;
    }
    // Writes go on until they are told to end, or until this is taken back.
    void StallWrites(bool stall) { Set(m_Stalled, stall); }
    // Codes of the three operations of a serial port, 0 for success.
    void FailSettings(uint32_t getError, uint32_t setError, uint32_t timeoutsError) {
        std::lock_guard lock(m_Mutex);
        m_GetError = getError;
        m_SetError = setError;
        m_TimeoutsError = timeoutsError;
    }
    void UseSettings(const platform::SerialSettings& settings) { Set(m_Settings, settings); }

    platform::SerialSettings Settings() const { return Get(m_Settings); }
    platform::SerialTimeouts Timeouts() const { return Get(m_Timeouts); }
    platform::Sharing OpenedAs() const { return Get(m_OpenedAs); }
    int Opens() const { return Get(m_Opens); }
    int OpenNow() const { return Get(m_OpenNow); }
    bool WriteIsStalled() const { return Get(m_StalledNow); }
    uint32_t LastReadSize() const { return Get(m_LastReadSize); }
    std::vector<std::string> Writes() const { return Get(m_Writes); }
    // False if that many writes don't come.
    bool AwaitWrites(size_t count) const {
        return Eventually([&] { return Get(m_Writes).size() >= count; });
    }
    bool ReadsUsedUp() const {
        std::lock_guard lock(m_Mutex);
        return m_Reads.empty();
    }

  private:
    friend class FakeDeviceAccess;
    friend class FakeFile;
    friend class FakeReader;

    template <typename T>
    void Set(T& word, const T& value) {
        std::lock_guard lock(m_Mutex);
        word = value;
    }
    template <typename T>
    T Get(const T& word) const {
        std::lock_guard lock(m_Mutex);
        return word;
    }
    // With the lock held.
    bool Dead(int plugs) const { return m_Gone || plugs != m_Plugs; }

    mutable std::mutex m_Mutex;  // guards everything below
    std::deque<FakeRead> m_Reads;
    bool m_Gone = false;
    int m_Plugs = 0;
    uint32_t m_OpenError = 0;
    int m_Opens = 0;
    int m_OpenNow = 0;
    platform::Sharing m_OpenedAs = platform::Sharing::Exclusive;
    uint32_t m_LastReadSize = 0;
    std::vector<std::string> m_Writes;
    platform::WriteResult::Outcome m_WriteOutcome = platform::WriteResult::Outcome::Written;
    uint32_t m_WriteError = 0;
    bool m_Stalled = false;
    bool m_StalledNow = false;
    uint32_t m_GetError = 0;
    uint32_t m_SetError = 0;
    uint32_t m_TimeoutsError = 0;
    platform::SerialSettings m_Settings;
    platform::SerialTimeouts m_Timeouts;
};

class FakeReader : public platform::DeviceReader {
  public:
    FakeReader(FakeDevice& device, int plugs) : m_Device(device), m_Plugs(plugs) {}

    platform::IoStart Start(uint8_t* buffer, uint32_t size) override {
        std::lock_guard lock(m_Device.m_Mutex);
        m_Device.m_LastReadSize = size;
        m_Buffer = buffer;
        m_Size = size;
        if (m_Device.Dead(m_Plugs)) return {platform::IoState::Failed, 0, kFakeGone};
        if (m_Device.m_Reads.empty()) return {platform::IoState::Pending};
        const FakeRead& next = m_Device.m_Reads.front();
        const bool atOnce = next.kind == FakeRead::Kind::DoneAtOnce || next.kind == FakeRead::Kind::FailedAtOnce;
        if (!atOnce) return {platform::IoState::Pending};
        const FakeRead read = TakeNext();
        if (read.kind == FakeRead::Kind::FailedAtOnce) return {platform::IoState::Failed, 0, read.error};
        return {platform::IoState::Done, CopyOut(read.data)};
    }
    platform::ReadWait Wait(const platform::StopSignal& stop) override {
        for (;; stop.Wait(1)) {
            if (stop.IsSet()) return platform::ReadWait::Stopped;
            std::lock_guard lock(m_Device.m_Mutex);
            if (m_Device.Dead(m_Plugs)) return platform::ReadWait::Finished;
            if (m_Device.m_Reads.empty()) continue;
            if (m_Device.m_Reads.front().kind != FakeRead::Kind::WaitFailed) return platform::ReadWait::Finished;
            m_Error = TakeNext().error;
            return platform::ReadWait::Failed;
        }
    }
    platform::IoFinish Finish() override {
        std::lock_guard lock(m_Device.m_Mutex);
        const bool dead = m_Device.Dead(m_Plugs);
        const FakeRead read = dead ? FakeRead{FakeRead::Kind::FailedPending, {}, kFakeGone} : TakeNext();
        m_Error = read.error;
        if (read.kind == FakeRead::Kind::FailedPending) return {false, 0, read.error};
        return {true, CopyOut(read.data), 0};
    }
    uint32_t LastError() const override { return m_Error; }

  private:
    FakeRead TakeNext() {
        FakeRead read = std::move(m_Device.m_Reads.front());
        m_Device.m_Reads.pop_front();
        return read;
    }
    uint32_t CopyOut(const std::string& data) {
        const size_t count = std::min<size_t>(data.size(), m_Size);
        std::copy_n(data.begin(), count, m_Buffer);
        return static_cast<uint32_t>(count);
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
    ~FakeFile() override {
        std::lock_guard lock(m_Device.m_Mutex);
        --m_Device.m_OpenNow;
    }

    uint32_t GetSerialSettings(platform::SerialSettings& settings) override {
        std::lock_guard lock(m_Device.m_Mutex);
        settings = m_Device.m_Settings;
        return m_Device.m_GetError;
    }
    uint32_t SetSerialSettings(const platform::SerialSettings& settings) override {
        std::lock_guard lock(m_Device.m_Mutex);
        if (m_Device.m_SetError == 0) m_Device.m_Settings = settings;
        return m_Device.m_SetError;
    }
    uint32_t SetSerialTimeouts(const platform::SerialTimeouts& timeouts) override {
        std::lock_guard lock(m_Device.m_Mutex);
        m_Device.m_Timeouts = timeouts;
        return m_Device.m_TimeoutsError;
    }
    std::unique_ptr<platform::DeviceReader> NewReader() override {
        return std::make_unique<FakeReader>(m_Device, m_Plugs);
    }
    platform::WriteResult Write(std::string_view bytes, const platform::WriteEnd& end) override {
        using Outcome = platform::WriteResult::Outcome;
        for (;; end.stop.Wait(1)) {
            const bool ended = end.stop.IsSet() || (end.limit != nullptr && end.limit->LeftMs() == 0);
            std::lock_guard lock(m_Device.m_Mutex);
            m_Device.m_StalledNow = m_Device.m_Stalled && !ended;
            if (m_Device.m_StalledNow) continue;
            if (m_Device.m_Stalled) return {Outcome::FailedPending, 0, kFakeCanceled};
            if (m_Device.Dead(m_Plugs)) return {Outcome::FailedAtOnce, 0, kFakeGone};
            if (m_Device.m_WriteOutcome == Outcome::Written) m_Device.m_Writes.emplace_back(bytes);
            return {m_Device.m_WriteOutcome, static_cast<uint32_t>(bytes.size()), m_Device.m_WriteError};
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
        FakeDevice* device = nullptr;
        {
            std::lock_guard lock(m_Mutex);
            const auto place = m_Devices.find(path);
            if (place == m_Devices.end()) return {nullptr, kFakeNoSuchFile};
            device = &place->second;
        }
        std::lock_guard lock(device->m_Mutex);
        if (device->m_Gone) return {nullptr, kFakeNoSuchFile};
        if (device->m_OpenError != 0) return {nullptr, device->m_OpenError};
        if (sharing == platform::Sharing::Exclusive && device->m_OpenNow > 0) return {nullptr, kFakeBusy};
        ++device->m_Opens;
        ++device->m_OpenNow;
        device->m_OpenedAs = sharing;
        return {std::make_unique<FakeFile>(*device, device->m_Plugs), 0};
    }

  private:
    std::mutex m_Mutex;  // guards the map; a device has its own lock
    std::map<std::string, FakeDevice> m_Devices;
};

}  // namespace quillet::test
