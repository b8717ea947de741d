// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "service/service_fixture.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

using ConnectionTest = ServiceTest;

ptrdiff_t CountLines(const std::vector<std::string>& lines, const std::string& part) {
    return std::count_if(lines.begin(), lines.end(), [&](const auto& line) { return line.find(part) != line.npos; });
}

const std::string kFramesOff("\x04\xEE\x04\x00\x00\x09", 6);

TEST_F(ConnectionTest, TheChoiceFollowsWhatIsPluggedIn) {
    EXPECT_EQ(m_Scanner.Open(""), ResultNoHardware);
    EXPECT_EQ(m_Scanner.GetOpenResult(), ResultNoHardware);
    EXPECT_EQ(m_Scanner.Open("protocol=serial port,serialport=77,module=xy"), ResultSuccess);  // needn't exist yet
    EXPECT_EQ(m_Scanner.Text(PropDeviceName), "Tovra_xy");
    EXPECT_EQ(m_Scanner.Text(PropDeviceDescription), "Tovra_xy Scanner.");

    m_Tree.Plug(VirtualPortDevice(7));
    EXPECT_EQ(m_Scanner.Open("SerialPort=3,BaudRate=115200"), ResultSuccess);
    EXPECT_EQ(m_Scanner.m_LinkType, static_cast<uint32_t>(LinkVirtualSerial));
    EXPECT_EQ(m_Scanner.m_Parameters.GetString("serialport", ""), "7");  // the discovered one
    EXPECT_EQ(m_Scanner.m_Parameters.GetString("baudrate", ""), "115200");
    for (const char* absent : {"protocol=virtual serial port,serialport=8", "protocol=virtual serial port"}) {
        EXPECT_EQ(m_Scanner.Open(absent), ResultNoHardware) << absent;
    }
    EXPECT_THROW(m_Scanner.Open("protocol=serial port,serialport=seven"), StringError);
    EXPECT_EQ(m_Scanner.Number(PropState), StateClosed);

    m_Tree.Plug(HidDevice("usb-1"));
    EXPECT_EQ(m_Scanner.Open(""), ResultSuccess);
    EXPECT_EQ(m_Scanner.m_LinkType, static_cast<uint32_t>(LinkUsbHid));
    EXPECT_EQ(m_Scanner.m_Status.Value(), StatusOpened | StatusBinaryNone);
}

TEST_F(ConnectionTest, AFailedEnablingLeavesNothingSet) {
    m_Tree.Plug(VirtualPortDevice(kPort));
    EXPECT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultNoHardware);  // nothing behind the path
    EXPECT_EQ(m_Scanner.Number(PropDeviceEnabled), 0);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 0);
    Device();
    EXPECT_THROW(m_Scanner.OpenClaimEnable(Connection() + ",parity=odd"), StringError);
    EXPECT_EQ(m_Scanner.Number(PropDeviceEnabled), 0);
    EXPECT_EQ(m_Scanner.m_EventQueue.GetEnabledEvents(), 0);
    EXPECT_EQ(Device()->openNow, 0);
    std::thread([&] { EXPECT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess); }).join();
    LogReader log;
    EXPECT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);  // over another thread's claim
    EXPECT_EQ(CountLines(log.Take(), "Failed to released mutex"), 0);

    EXPECT_EQ(m_Scanner.DeviceEnable(true), ResultSuccess);  // a repeat
    EXPECT_EQ(Device()->opens, 3);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDeviceEnabled, 0), ResultSuccess);
    EXPECT_EQ(m_Scanner.Number(PropState), StateOpen);
    EXPECT_EQ(m_Scanner.ReleaseDevice(), ResultSuccess);
    EXPECT_EQ(m_Scanner.ReleaseDevice(), ResultNotClaimed);
    EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
    EXPECT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);
}

TEST_F(ConnectionTest, ALossShowsAsUnknownPowerAndWithoutPowerNotifyNotAtAll) {
    OpenSerial();
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropPowerNotify, 0), ResultIllegal);  // not while enabled
    ASSERT_TRUE(Eventually([&] { return m_Scanner.Number(PropPowerState) == PowerOnline; }));
    UnplugSerial();
    ASSERT_TRUE(ReachesState(StateOpen));
    ASSERT_TRUE(AwaitLooks(40));  // well after the second report
    EXPECT_EQ(m_Scanner.Number(PropPowerState), PowerUnknown);
    EXPECT_EQ(m_Scanner.Number(PropClaimed), 1);
    PlugSerial();
    EXPECT_TRUE(ReachesState(StateEnabled));

    ASSERT_EQ(m_Scanner.Open(Connection()), ResultSuccess);
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropPowerNotify, 0), ResultSuccess);
    ASSERT_EQ(m_Scanner.ClaimDevice(1000), ResultSuccess);
    ASSERT_EQ(m_Scanner.SetPropertyNumber(PropDeviceEnabled, 1), ResultSuccess);
    UnplugSerial();
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    EXPECT_EQ(m_Scanner.Number(PropState), StateEnabled);
}

// A scanner that goes and comes between two polls, that the system doesn't list, or whose reads fail for want of
// memory: its link is opened again, and nobody is told.
TEST_F(ConnectionTest, ALinkWithoutAReaderIsReopenedInSilence) {
    for (const bool listed : {true, false}) {
        if (listed) m_Tree.Plug(VirtualPortDevice(kPort));
        Device();
        ASSERT_EQ(m_Scanner.OpenClaimEnable("protocol=serial port,serialport=" + std::to_string(kPort)), 0);
        const int power = listed ? static_cast<int>(PowerOnline) : m_Scanner.Number(PropPowerState);
        ASSERT_TRUE(Eventually([&] { return m_Scanner.Number(PropPowerState) == power; }));
        LogReader log;
        const int64_t start = m_Clock.NowNs();
        const int opens = Device()->opens;
        const int attempts = Device()->attempts;
        const size_t writes = Device()->writes.size();
        Device()->errors.open = 13;
        Device()->reads.push_back({FakeRead::Kind::FailedPending, "", 12});
        ASSERT_TRUE(AwaitLooks(120));  // the attempts of some seconds
        CommandPacket packet(0x40, "x");
        EXPECT_EQ(m_Scanner.SendPacket(packet), ResultSuccess);
        Device()->errors.open = 0;
        ASSERT_TRUE(Eventually([&] { return Device()->openNow == 1 && Device()->writes.size() > writes; }));
        EXPECT_EQ(Device()->writes.back(), kFramesOff);
        EXPECT_EQ(m_Scanner.Number(PropState), StateEnabled);
        EXPECT_EQ(m_Scanner.Number(PropPowerState), power);
        const std::vector<std::string> lines = log.Take();
        EXPECT_EQ(CountLines(lines, "LLInfo\t\t:EnableDevice"), 2) << "the first attempt's, and the one's that worked";
        EXPECT_EQ(CountLines(lines, "| Opened COM Port"), 1);
        EXPECT_EQ(CountLines(lines, "status: 2001") + CountLines(lines, "status: 2004"), 0);
        EXPECT_EQ(Device()->opens, opens + 1);
        EXPECT_GE(Device()->attempts, attempts + 3);
        EXPECT_LE(Device()->attempts - attempts, (m_Clock.NowNs() - start) / 1'000'000'000 + 1) << "once a second";
        EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
        m_Tree.Unplug(VirtualPortDevice(kPort).id);
    }
}

// Closing ends what a device doesn't take: a setting under way, an exchange, and its own packet. Within the limit a
// slow device still gets all of it.
TEST_F(ConnectionTest, AClosingEndsTheWritesOfItsHandle) {
    PlugSerial();
    const auto close = [this] {
        const auto limit = m_Scanner.LimitWrites();
        EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
    };
    const auto stalls = [this] { return Eventually([&] { return Device()->stalledNow; }); };
    for (const bool exchange : {false, true}) {
        ASSERT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);
        Device()->stalled = true;
        std::thread sender([&] {
            CommandPacket packet(0x40, "x");
            const auto send = [&] { return m_Scanner.SendPacket(packet); };
            const auto ask = [&] { return m_Scanner.ExchangeBytes("x", platform::kNoLimitMs).result; };
            EXPECT_EQ(exchange ? ask() : send(), exchange ? ResultTimeout : ResultSuccess);
        });
        EXPECT_TRUE(stalls());
        const int64_t start = m_Clock.NowNs();
        close();
        EXPECT_GE(m_Clock.NowNs() - start, 2'000'000'000);
        sender.join();
        EXPECT_EQ(Device()->openNow, 0);
        Device()->stalled = false;
    }
    ASSERT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);
    const size_t written = Device()->writes.size();
    Device()->stalled = true;
    std::thread slow([&] {
        EXPECT_TRUE(stalls());
        Device()->stalled = false;
    });
    close();
    slow.join();
    EXPECT_EQ(Device()->writes.size(), written + 1);
}

TEST_F(ConnectionTest, ResultsBelongToTheirCaller) {
    PlugSerial();
    std::atomic<bool> ended{false};
    std::thread disturbing([&] {
        while (!ended) m_Scanner.SetPropertyNumber(5, 0);  // stores 106
    });
    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(m_Scanner.Open(Connection()), ResultSuccess);
        EXPECT_EQ(m_Scanner.ClaimDevice(1000), ResultSuccess);
        EXPECT_EQ(m_Scanner.ReleaseDevice(), ResultSuccess);
        EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
    }
    ended = true;
    disturbing.join();
}

TEST_F(ConnectionTest, ClosingWaitsForNoAnswer) {
    OpenSerial();
    const size_t written = Device()->writes.size();
    std::thread asking([&] { EXPECT_EQ(m_Scanner.ExchangeBytes("x", 3'600'000).result, ResultTimeout); });
    EXPECT_TRUE(Eventually([&] { return Device()->writes.size() > written; }));
    const int64_t start = m_Clock.NowNs();
    EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
    asking.join();
    EXPECT_LT(m_Clock.NowNs() - start, 1'800'000'000'000);
}

// Pulled between the opening of the link and the look that follows it: the report disables the device again.
TEST_F(ConnectionTest, AUsbScannerThatVanishesWhileItIsEnabledLeavesTheStateOpen) {
    FakeDevice& usb = m_Access.Device("usb-1");
    m_Tree.Plug(HidDevice("usb-1"));
    ASSERT_EQ(m_Scanner.Open("protocol=usb"), ResultSuccess);
    ASSERT_EQ(m_Scanner.ClaimDevice(1000), ResultSuccess);
    usb->stalled = true;  // holds the enabling right before that look
    std::thread puller([&] {
        EXPECT_TRUE(Eventually([&] { return usb->stalledNow; }));
        m_Tree.Unplug(HidDevice("usb-1").id);
        usb->stalled = false;
    });
    EXPECT_EQ(m_Scanner.SetPropertyNumber(PropDeviceEnabled, 1), ResultSuccess);
    puller.join();
    EXPECT_EQ(m_Scanner.Number(PropState), StateOpen);
    m_Tree.Plug(HidDevice("usb-1"));
    EXPECT_TRUE(ReachesState(StateEnabled));
    EXPECT_EQ(m_Scanner.CloseService(), ResultSuccess);
    EXPECT_EQ(usb->openNow, 0);
}

// Closing, releasing and disabling join the power thread while it may be asking for the lock that they hold.
TEST_F(ConnectionTest, ClosingMeetsThePowerThreadAtEveryMoment) {
    PlugSerial();
    std::atomic<bool> ended{false};
    std::thread pulling([&] {
        while (!ended) {
            UnplugSerial();
            std::this_thread::sleep_for(std::chrono::milliseconds(7));
            PlugSerial();
            std::this_thread::sleep_for(std::chrono::milliseconds(11));
        }
    });
    for (int round = 0; round < 150; ++round) {
        m_Scanner.OpenClaimEnable(Connection());
        std::this_thread::sleep_for(std::chrono::microseconds(700 * (round % 23)));
        switch (round % 4) {
            case 0: m_Scanner.SetPropertyNumber(PropDeviceEnabled, 0); break;
            case 1: m_Scanner.ReleaseDevice(); break;
            case 2: m_Scanner.CloseService(); break;
            default: break;  // opened again as it is
        }
    }
    ended = true;
    pulling.join();
    m_Scanner.CloseService();
    EXPECT_EQ(Device()->openNow, 0);
    EXPECT_EQ(m_Scanner.OpenClaimEnable(Connection()), ResultSuccess);
}

}  // namespace
}  // namespace quillet::test
