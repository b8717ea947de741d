// SPDX-License-Identifier: MIT
// What every test of a link needs around it.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "transport/comm.h"
#include "transport/hid_link.h"
#include "transport/serial_link.h"

namespace quillet::test {

using Lines = std::vector<std::string>;

inline bool HasLine(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

inline ParameterList Parsed(const std::string& text) {
    ParameterList params;
    params.Parse(text);
    return params;
}

// The owner of a link: keeps what the link's threads hand to it.
class Recorder {
  public:
    static int32_t OnData(void* owner, std::string& block, uint32_t status) {
        auto& self = *static_cast<Recorder*>(owner);
        {
            std::lock_guard lock(self.m_Mutex);
            self.m_Blocks.emplace_back(status, block);
        }
        return self.answer ? self.answer() : kKeepReading;
    }
    static void OnPower(void* owner, uint32_t state) {
        auto& self = *static_cast<Recorder*>(owner);
        {
            std::lock_guard lock(self.m_Mutex);
            self.m_States.push_back(state);
        }
        if (self.onPower) self.onPower(state);
    }

    using Blocks = std::vector<std::pair<uint32_t, std::string>>;
    // The blocks so far, with their status; waits for that many.
    Blocks AwaitBlocks(size_t count) const { return Await(m_Blocks, count); }
    std::vector<uint32_t> AwaitStates(size_t count) const { return Await(m_States, count); }

    // Set before the link is enabled.
    std::function<int32_t()> answer;
    std::function<void(uint32_t)> onPower;

  private:
    template <typename List>
    List Await(const List& list, size_t count) const {
        const auto copy = [&] {
            std::lock_guard lock(m_Mutex);
            return list;
        };
        Eventually([&] { return copy().size() >= count; });
        return copy();
    }

    mutable std::mutex m_Mutex;  // guards the two lists
    Blocks m_Blocks;
    std::vector<uint32_t> m_States;
};

inline constexpr LinkKey kUsbKey{DeviceUsb, LinkUsbHid, 0};
inline constexpr LinkKey SerialKey(uint32_t port) {
    return {DeviceUsb, LinkSerial, port};
}

struct LinkFixture {
    std::unique_ptr<SerialLink> Serial(uint32_t port, const std::string& params = "",
                                       DataCallback callback = &Recorder::OnData) {
        return std::make_unique<SerialLink>(
            LinkSetup{.key = SerialKey(port), .parameters = Parsed(params), .owner = &owner, .dataCallback = callback});
    }
    std::unique_ptr<HidLink> Usb(uint32_t deviceType = DeviceUsb, DataCallback callback = &Recorder::OnData) {
        return std::make_unique<HidLink>(
            LinkSetup{.key = {deviceType, LinkUsbHid}, .owner = &owner, .dataCallback = callback});
    }

    FastClock clock{20};
    FakeDeviceTree tree;
    FakeDeviceAccess access;
    Recorder owner;
};

}  // namespace quillet::test
