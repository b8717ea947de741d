#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "transport/comm_arbiter.h"
#include "transport/link_bench.h"

namespace quillet {
namespace {

using test::Eventually;
using test::FakeDevice;
using test::LinkBench;
using test::SerialPortDevice;
using States = std::vector<uint32_t>;

TEST(PowerReporting, ReportsChangesAlone) {
    LinkBench bench;
    const auto link = bench.Serial(3);
    link->SetPowerCallback(&test::Recorder::OnPower);
    link->StartPowerReporting();
    const uint64_t before = bench.tree.Looks();
    ASSERT_TRUE(Eventually([&] { return bench.tree.Looks() > before + 12; }));  // some passes
    EXPECT_TRUE(bench.owner.AwaitStates(0).empty()) << "an absent device is no news at the start";
    bench.tree.Plug(SerialPortDevice(3));
    bench.owner.AwaitStates(1);
    bench.tree.Unplug(SerialPortDevice(3).id);
    bench.owner.AwaitStates(2);
    EXPECT_EQ(bench.owner.AwaitStates(2), (States{PowerOnline, PowerOffOffline}));

    // A reset forgets the state, so that it is reported once more; the waiting link keeps its thread.
    link->SetReadyToReConnect(true);
    link->StopPowerReporting();
    link->Reset();
    EXPECT_EQ(bench.owner.AwaitStates(3).size(), 3u);
    link->SetReadyToReConnect(false);
    link->Reset();
    bench.tree.Plug(SerialPortDevice(3));
    const uint64_t ended = bench.tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(bench.tree.Looks(), ended) << "polled after its end";
}

TEST(PowerReporting, EndsInTheMiddleOfItsPause) {
    LinkBench bench;
    platform::ReplaceClock(nullptr);  // pauses of 100 ms
    const auto link = bench.Serial(3);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 40; ++round) {
        const uint64_t before = bench.tree.Looks();
        link->StartPowerReporting();
        // Sometimes in its first pause, sometimes before it has run at all.
        const uint64_t onePass = round % 4 == 0 ? 0 : 4;
        ASSERT_TRUE(Eventually([&] { return bench.tree.Looks() >= before + onePass; }));
        if (round % 2 == 0) link->StopPowerReporting();
        link->StartPowerReporting();  // nothing, as long as the last thread wasn't joined
        link->Reset();                // hangs if an order to end got lost
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500)) << "whole pauses would be 3 s";

    uint64_t before = bench.tree.Looks();
    const auto polling = std::chrono::steady_clock::now();
    link->StartPowerReporting();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint64_t looks = bench.tree.Looks() - before;
    const auto pauses = (std::chrono::steady_clock::now() - polling) / std::chrono::milliseconds(100);
    EXPECT_LT(looks, static_cast<uint64_t>(40 + 4 * pauses)) << "polls without a pause";
    link->EndThreads();
    link->StartPowerReporting();
    before = bench.tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(bench.tree.Looks(), before) << "a link at its end started a thread";
}

TEST(PowerReporting, TellsALossThatNoPassHasSeen) {
    LinkBench bench;
    FakeDevice& device = bench.access.Port(3);
    bench.tree.Plug(SerialPortDevice(3));
    const auto link = bench.Serial(3);
    link->SetPowerCallback(&test::Recorder::OnPower);
    link->EnableDevice();
    bench.tree.Unplug(SerialPortDevice(3).id);
    link->StartPowerReporting();  // gone between the opening and the first pass
    EXPECT_EQ(bench.owner.AwaitStates(1), States{PowerOffOffline});

    bench.tree.Plug(SerialPortDevice(3));
    EXPECT_EQ(bench.owner.AwaitStates(2).back(), PowerOnline);
    device.Unplug();  // and back between two passes: only the read has noticed
    device.Plug();
    EXPECT_EQ(bench.owner.AwaitStates(3).back(), PowerOffOffline);
    link->SetReadyToReConnect(true);
    link->Reset();
    link->SetReadyToReConnect(false);
    EXPECT_TRUE(Eventually([&] { return bench.owner.AwaitStates(0).back() == PowerOnline; }));
    const size_t reports = bench.owner.AwaitStates(0).size();

    device.Read({test::FakeRead::Kind::FailedPending, "", 31});  // no loss by itself
    link->EnableDevice();
    EXPECT_EQ(bench.owner.AwaitBlocks(2).size(), 2u);
    const uint64_t before = bench.tree.Looks();
    ASSERT_TRUE(Eventually([&] { return bench.tree.Looks() > before + 4; }));
    EXPECT_EQ(bench.owner.AwaitStates(0).size(), reports);
}

TEST(PowerReporting, LeavesAPortAloneThatTheSystemDoesNotList) {
    LinkBench bench;
    FakeDevice& device = bench.access.Port(3);
    const auto link = bench.Serial(3);
    link->SetPowerCallback(&test::Recorder::OnPower);
    link->EnableDevice();
    link->StartPowerReporting();
    const auto somePasses = [&] {
        return Eventually([&, before = bench.tree.Looks()] { return bench.tree.Looks() > before + 20; });
    };
    ASSERT_TRUE(somePasses());
    EXPECT_TRUE(bench.owner.AwaitStates(0).empty());
    link->WriteString("x");  // not ended as one to a device that is gone
    EXPECT_EQ(device.Writes().size(), 1u);

    device.Unplug();  // noticed by the read
    EXPECT_EQ(bench.owner.AwaitStates(1), States{PowerOffOffline});
}

TEST(PowerReporting, GoesOnAfterAFailedReport) {
    LinkBench bench;
    bench.tree.Plug(SerialPortDevice(3));
    bench.owner.onPower = [&](uint32_t) {
        if (bench.owner.AwaitStates(0).size() < 3) throw std::runtime_error("no memory");
    };
    const auto link = bench.Serial(3);
    link->SetPowerCallback(&test::Recorder::OnPower);
    link->StartPowerReporting();
    EXPECT_EQ(bench.owner.AwaitStates(3), (States{PowerOnline, PowerOnline, PowerOnline}));
}

TEST(PowerReporting, EndsAWriteWhenItsDeviceIsGone) {
    LinkBench bench;
    CCommArbiter arbiter;
    for (const uint32_t port : {3u, 4u}) {
        bench.tree.Plug(SerialPortDevice(port));
        bench.access.Port(port);
        arbiter.AddDevice(DeviceUsb, LinkSerial, port, "", {}, &bench.owner, nullptr);
        arbiter.StartPowerReporting(DeviceUsb, LinkSerial, port, nullptr);
    }
    FakeDevice &stalled = bench.access.Port(3), &other = bench.access.Port(4);
    stalled.StallWrites(true);
    std::thread writer([&] {
        std::string bytes = "never taken";
        arbiter.WriteData(DeviceUsb, LinkSerial, 3, bytes);
    });
    ASSERT_TRUE(Eventually([&] { return stalled.WriteIsStalled(); }));
    bench.tree.Unplug(SerialPortDevice(3).id);
    std::string bytes = "waits for the lock";
    arbiter.WriteData(DeviceUsb, LinkSerial, 4, bytes);
    writer.join();
    EXPECT_EQ(other.Writes().size(), 1u);

    // Back again, the link writes as before.
    stalled.StallWrites(false);
    bench.tree.Plug(SerialPortDevice(3));
    EXPECT_TRUE(Eventually([&] {
        arbiter.WriteData(DeviceUsb, LinkSerial, 3, bytes);
        return !stalled.Writes().empty();
    }));
    arbiter.RemoveAll();
}

}  // namespace
}  // namespace quillet
