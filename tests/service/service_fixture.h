// SPDX-License-Identifier: MIT
// A service on devices of the test's own.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "service/property.h"
#include "service/scanner.h"
#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "support/reply_frame.h"
#include "transport/comm_arbiter.h"

namespace quillet::test {

// Opens what tests look at.
class TestScanner : public CScanner {
  public:
    using CScanner::DeviceEnable;
    using CScanner::m_EventQueue;
    using CScanner::m_LinkType;
    using CScanner::m_Parameters;
    using CScanner::m_ResultCode;
    using CScanner::m_StatisticsText;
    using CScanner::m_Status;
    using CScanner::ProcessDataEvent;

    int32_t Number(int32_t property) {
        int32_t value = -1;
        GetPropertyNumber(property, &value);
        return value;
    }
    std::string Text(int32_t property) {
        uint8_t buffer[256];
        int32_t length = 0;
        GetPropertyString(property, {buffer, sizeof buffer, &length});
        return std::string(buffer, buffer + length);
    }
    // The steps of opening; the first result that isn't 0.
    ResultCode OpenClaimEnable(const std::string& connection) {
        if (const ResultCode opened = Open(connection)) return opened;
        if (const ResultCode claimed = ClaimDevice(1000)) return claimed;
        return SetPropertyNumber(PropDeviceEnabled, 1);
    }
    int32_t Receive(std::string block) { return ProcessDataEvent(block, kGoodRead); }
};

class ServiceTest : public ::testing::Test {
  protected:
    static constexpr uint32_t kPort = 7;
    static std::string Connection() { return "protocol=virtual serial port,serialport=" + std::to_string(kPort); }
    void OpenSerial() {
        PlugSerial();
        ASSERT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);
    }
    FakeDevice& Device() { return m_Access.Port(kPort); }
    void UnplugSerial() {
        m_Tree.Unplug(VirtualPortDevice(kPort).id);
        Device()->Unplug();
    }
    void PlugSerial() {
        Device()->Plug();
        m_Tree.Plug(VirtualPortDevice(kPort));
    }
    bool ReachesState(DeviceState state) {
        return Eventually([&] { return m_Scanner.Number(PropState) == static_cast<int32_t>(state); });
    }
    // False if the power thread doesn't look that often from now on.
    bool AwaitLooks(uint64_t count) {
        return Eventually([this, enough = m_Tree.Looks() + count] { return m_Tree.Looks() > enough; });
    }

    FastClock m_Clock{20};
    FakeDeviceTree m_Tree;
    FakeDeviceAccess m_Access;
    TestScanner m_Scanner;
};

}  // namespace quillet::test
