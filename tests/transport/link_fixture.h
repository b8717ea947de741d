// SPDX-License-Identifier: MIT
// What every test of a link needs around it.
#pragma once

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "transport/comm_arbiter.h"
#include "transport/hid_link.h"
#include "transport/serial_link.h"

namespace quillet::test {

using Lines = std::vector<std::string>;

inline bool HasLine(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// The owner of a link: keeps what the link's threads hand to it.
class Recorder {
  public:
    static int32_t OnData(void* owner, std::string& block, uint32_t status) {
        auto& self = *static_cast<Recorder*>(owner);
        std::lock_guard lock(self.m_Mutex);
        self.m_Blocks.emplace_back(status, block);
        return self.answer ? self.answer() : kKeepReading;
    }
    static void OnPower(void* owner, uint32_t state) {
        auto& self = *static_cast<Recorder*>(owner);
        std::lock_guard lock(self.m_Mutex);
        self.m_States.push_back(state);
    }

    using Blocks = std::vector<std::pair<uint32_t, std::string>>;
    // The blocks so far, with their status; waits for that many.
    Blocks AwaitBlocks(size_t count) const { return Await(m_Blocks, count); }
    std::vector<uint32_t> AwaitStates(size_t count) const { return Await(m_States, count); }

    std::function<int32_t()> answer;  // to a block; set before the link is enabled

  private:
    template <typename List>
    List Await(const List& list, size_t count) const {
        List copy;
        Eventually([&] {
            std::lock_guard lock(m_Mutex);
            copy = list;
            return copy.size() >= count;
        });
        return copy;
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
    LinkSetup Setup(const LinkKey& key, const std::string& params) {
        LinkSetup setup{.key = key, .owner = &owner, .dataCallback = &Recorder::OnData};
        setup.parameters.Parse(params);
        return setup;
    }
    std::unique_ptr<SerialLink> Serial(uint32_t port, const std::string& params = "") {
        return std::make_unique<SerialLink>(Setup(SerialKey(port), params));
    }
    std::unique_ptr<HidLink> Usb() { return std::make_unique<HidLink>(Setup(kUsbKey, "")); }

    // The same by the arbiter.
    std::shared_ptr<CComm> Add(const LinkKey& key, const std::string& params = "") {
        return arbiter.AddDevice(Setup(key, params));
    }
    template <typename Sent>
    bool Write(const std::shared_ptr<CComm>& link, const LinkKey& key, Sent& sent) {
        HeldLink held;
        held.Set(link);
        return arbiter.WriteData(held, key, sent);
    }

    FastClock clock{20};
    FakeDeviceTree tree;
    FakeDeviceAccess access;
    Recorder owner;
    CCommArbiter arbiter;
};

class LinkTest : public ::testing::Test, protected LinkFixture {};

}  // namespace quillet::test
