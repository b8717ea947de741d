// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "transport/comm_arbiter.h"
#include "transport/link_fixture.h"

namespace quillet {
namespace {

using test::Eventually;
using test::FakeDevice;
using test::LinkFixture;
using test::SerialKey;
using test::SerialPortDevice;
using States = std::vector<uint32_t>;

TEST(PowerReporting, ReportsChangesAlone) {
    LinkFixture fixture;
    const auto link = fixture.Serial(3);
    link->SetPowerCallbacks(&test::Recorder::OnPower, nullptr);
    link->StartPowerReporting();
    const uint64_t before = fixture.tree.Looks();
    ASSERT_TRUE(Eventually([&] { return fixture.tree.Looks() > before + 12; }));  // some passes
    EXPECT_TRUE(fixture.owner.AwaitStates(0).empty()) << "an absent device is no news at the start";
    fixture.tree.Plug(SerialPortDevice(3));
    fixture.owner.AwaitStates(1);
    fixture.tree.Unplug(SerialPortDevice(3).id);
    fixture.owner.AwaitStates(2);
    EXPECT_EQ(fixture.owner.AwaitStates(2), (States{PowerOnline, PowerOffOffline}));

    // A reset forgets the state, so that it is reported once more; the waiting link keeps its thread.
    link->SetReadyToReConnect(true);
    link->StopPowerReporting();
    link->Reset();
    EXPECT_EQ(fixture.owner.AwaitStates(3).size(), 3u);
    link->SetReadyToReConnect(false);
    link->Reset();
    fixture.tree.Plug(SerialPortDevice(3));
    const uint64_t ended = fixture.tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(fixture.tree.Looks(), ended) << "polled after its end";
}

TEST(PowerReporting, EndsInTheMiddleOfItsPause) {
    LinkFixture fixture;
    platform::ReplaceClock(nullptr);  // pauses of 100 ms
    const auto link = fixture.Serial(3);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 40; ++round) {
        const uint64_t before = fixture.tree.Looks();
        link->StartPowerReporting();
        // Sometimes in its first pause, sometimes before it has run at all.
        const uint64_t onePass = round % 4 == 0 ? 0 : 4;
        ASSERT_TRUE(Eventually([&] { return fixture.tree.Looks() >= before + onePass; }));
        if (round % 2 == 0) link->StopPowerReporting();
        link->StartPowerReporting();  // nothing, as long as the last thread wasn't joined
        link->Reset();                // hangs if an order to end got lost
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500)) << "whole pauses would be 3 s";

    uint64_t before = fixture.tree.Looks();
    const auto polling = std::chrono::steady_clock::now();
    link->StartPowerReporting();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint64_t looks = fixture.tree.Looks() - before;
    const auto pauses = (std::chrono::steady_clock::now() - polling) / std::chrono::milliseconds(100);
    EXPECT_LT(looks, static_cast<uint64_t>(40 + 4 * pauses)) << "polls without a pause";
    link->EndThreads();
    link->StartPowerReporting();
    before = fixture.tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(fixture.tree.Looks(), before) << "a link at its end started a thread";
}

// A read thread that ended is no loss: the owner is asked to open the link again, at once and then once a second.
TEST(PowerReporting, AsksToReopenAndReportsNothing) {
    static std::vector<bool> asked;
    asked.clear();
    LinkFixture fixture;
    FakeDevice& device = fixture.access.Port(3);  // not listed, or gone before the first pass: never reported
    const auto link = fixture.Serial(3);
    link->SetPowerCallbacks(&test::Recorder::OnPower, [](void*, bool repeated) { asked.push_back(repeated); });
    link->EnableDevice();
    device.Read({test::FakeRead::Kind::FailedPending, "", 12});
    ASSERT_TRUE(Eventually([&] { return link->HasLostReader(); }));
    const int64_t start = fixture.clock.NowNs();
    const uint64_t looks = fixture.tree.Looks();
    link->StartPowerReporting();
    ASSERT_TRUE(Eventually([&] { return fixture.tree.Looks() > looks + 120; }));
    link->WriteString("x");  // not ended as one to a device that has gone
    const auto seconds = static_cast<size_t>((fixture.clock.NowNs() - start) / 1'000'000'000);
    link->Reset();
    EXPECT_GE(asked.size(), 2u);
    EXPECT_LE(asked.size(), seconds + 1);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), false), 1);
    EXPECT_TRUE(fixture.owner.AwaitStates(0).empty());
    EXPECT_EQ(device.Writes().size(), 1u);

    // Not where somebody asked for the end.
    asked.clear();
    fixture.owner.answer = [] { return kEndReading; };
    device.Deliver("auto disable");
    link->EnableDevice();
    ASSERT_EQ(fixture.owner.AwaitBlocks(2).size(), 2u);
    link->StartPowerReporting();
    ASSERT_TRUE(Eventually([&, before = fixture.tree.Looks()] { return fixture.tree.Looks() > before + 8; }));
    link->Reset();
    EXPECT_TRUE(asked.empty());
}

TEST(PowerReporting, EndsAWriteWhenItsDeviceIsGone) {
    LinkFixture fixture;
    CCommArbiter arbiter;
    HeldLink links[5];  // by port
    for (const uint32_t port : {3u, 4u}) {
        fixture.tree.Plug(SerialPortDevice(port));
        fixture.access.Port(port);
        links[port].Set(arbiter.AddDevice({.key = SerialKey(port), .owner = &fixture.owner}));
        arbiter.StartPowerReporting(SerialKey(port), &test::Recorder::OnPower);
    }
    fixture.owner.AwaitStates(2);  // a device that goes before it was seen isn't missed
    FakeDevice &stalled = fixture.access.Port(3), &other = fixture.access.Port(4);
    stalled.StallWrites(true);
    std::thread writer([&] {
        std::string bytes = "never taken";
        arbiter.WriteData(links[3], SerialKey(3), bytes);
    });
    ASSERT_TRUE(Eventually([&] { return stalled.WriteIsStalled(); }));
    fixture.tree.Unplug(SerialPortDevice(3).id);
    std::string bytes = "waits for the lock";
    arbiter.WriteData(links[4], SerialKey(4), bytes);
    writer.join();
    EXPECT_EQ(other.Writes().size(), 1u);

    // Back again, the link writes as before.
    stalled.StallWrites(false);
    fixture.tree.Plug(SerialPortDevice(3));
    EXPECT_TRUE(Eventually([&] {
        arbiter.WriteData(links[3], SerialKey(3), bytes);
        return !stalled.Writes().empty();
    }));
    arbiter.RemoveAll();
}

}  // namespace
}  // namespace quillet
