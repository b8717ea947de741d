// SPDX-License-Identifier: MIT
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet::test {
namespace {

using namespace std::string_literals;
using Kind = FakeRead::Kind;

// Whatever ended the thread, the link is a shell until it is reset, and then works again.
TEST(ReadThread, EndsAsItsReadEndsOrItsOwnerAnswers) {
    const std::string failed = "LLCritical\t:Error: RunReadThread: ";
    const std::string ended = "LLCritical\t:Error: read thread ended by an ";
    const Recorder::Blocks first = {{kGoodRead, "A\0\r"s}};
    const Recorder::Blocks both = {{kGoodRead, "A\0\r"s}, {kGoodRead, ""}};
    const Recorder::Blocks andFailure = {{kGoodRead, "A\0\r"s}, {kGoodRead, ""}, {kFailedRead, ""}};
    const struct {
        FakeRead third;
        std::function<int32_t()> answer;
        Recorder::Blocks blocks;
        std::string line;
    } cases[] = {
        {{Kind::FailedAtOnce, "", 5}, {}, both, failed + "Error while reading data (Code:5)"},
        {{Kind::FailedPending, "", 31}, {}, andFailure, failed + "Error while waiting for data (Code:31)"},
        {{Kind::WaitFailed, "", 6}, {}, both, failed + "Error waiting on event (Code:6)"},
        {{}, [] { return kEndReading; }, first, "LLInfo\t\t:Auto disable is true so will exit read thread"},
        {{}, []() -> int32_t { throw QuilletError("told", 3); }, first, failed + "told"},
        {{}, []() -> int32_t { throw std::runtime_error("other"); }, first, ended + "exception: other"},
        {{}, []() -> int32_t { throw 1; }, first, ended + "unknown exception"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.line);
        LinkFixture fixture;
        LogReader log;
        FakeDevice& device = fixture.access.Port(3);
        device->Deliver("A\0\r"s);
        device->reads.push_back({Kind::DoneAtOnce, "", 0});
        device->reads.push_back(row.third);
        fixture.owner.answer = row.answer;
        const auto link = fixture.Serial(3);
        link->EnableDevice();
        fixture.owner.AwaitBlocks(row.blocks.size());
        ASSERT_TRUE(row.answer || Eventually([&] { return device->reads.empty(); }));
        link->EnableDevice();
        EXPECT_TRUE(link->IsEnabled());
        EXPECT_EQ(device->opens, 1);
        link->DisableDevice();
        EXPECT_EQ(fixture.owner.AwaitBlocks(0), row.blocks);
        EXPECT_EQ(device->reads.size(), row.answer ? 2u : 0u);
        EXPECT_EQ(device->openNow, 0);

        fixture.owner.answer = nullptr;
        device->reads.clear();
        device->Deliver("again");
        link->EnableDevice();
        EXPECT_EQ(fixture.owner.AwaitBlocks(row.blocks.size() + 1).back().second, "again");
        const Lines lines = log.Take();
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Ascii): A<NUL><CR>"));
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Hex): 41 00 0D"));
        EXPECT_FALSE(HasLine(lines, "LLInfo\t\t:    - Port[COM3]Read(Hex): "));
        EXPECT_TRUE(HasLine(lines, row.line));
    }
}

TEST_F(LinkTest, LogsItsWritesAndTheBytesOfShortOnes) {
    FakeDevice& device = access.Port(3);
    const auto link = Serial(3);
    LogReader log;
    link->WriteString("no device is open");
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | WrittenBytes: 0"));
    link->EnableDevice();
    link->WriteString("");
    EXPECT_TRUE(device->writes.empty());
    for (const size_t size : {size_t{127}, size_t{128}}) {
        const std::string bytes(size, 'x');
        link->WriteString(bytes);
        EXPECT_EQ(device->writes.back(), bytes);
        const Lines lines = log.Take();
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    | Length: " + std::to_string(size)));
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    | WrittenBytes: " + std::to_string(size)));
        EXPECT_EQ(HasLine(lines, "LLInfo\t\t:    | Data(Ascii): " + bytes), size < 128);
    }
    device->writeResult = {platform::WriteResult::Outcome::FailedAtOnce, 0, 5};
    EXPECT_NO_THROW(link->WriteString("abc"));
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | WrittenBytes: 3"));
}

TEST_F(LinkTest, ASerialLinkSendsItsSettingsToThePort) {
    const struct {
        std::string params;
        std::vector<uint32_t> line;
        std::string text;
    } cases[] = {
        {"", {9600, 8, 0, 0}, "COM3,9600,n,8,1,n"},
        {"baudrate=115200.9,bytesize=7,parity=2,stopbits=2", {115200, 7, 2, 2}, "COM3,115200,e,7,2,n"},
        {"parity=1,stopbits=1", {9600, 8, 1, 1}, "COM3,9600,o,8,1.5,n"},
        {"parity=9,stopbits=-1", {9600, 8, 9, 255}, "COM3,9600,9,8,-1,n"},
        {"baudrate=1e300,bytesize=-0.9", {2147483647, 0, 0, 0}, "COM3,2147483647,n,0,1,n"},
    };
    FakeDevice& device = access.Port(3);
    for (const auto& row : cases) {
        device->settings = {0, 0, 0, 0, true, true, 2, 2, true, true, true, true};
        const auto link = Serial(3, row.params);
        EXPECT_FALSE(link->IsVirtualPort());
        EXPECT_EQ(link->GetLinkText(), row.text);
        link->EnableDevice();
        const platform::SerialSettings sent = device->settings;
        EXPECT_EQ((std::vector<uint32_t>{sent.baudRate, sent.byteSize, sent.parity, sent.stopBits}), row.line);
        EXPECT_FALSE(sent.softwareFlowOut || sent.softwareFlowIn || sent.discardNulls || sent.dsrSensitivity ||
                     sent.ctsOutputFlow || sent.dsrOutputFlow);
        EXPECT_EQ(sent.dtrControl + sent.rtsControl, 0);
        EXPECT_EQ(device->timeouts.readIntervalMs, 25u);
        EXPECT_EQ(device->openedAs, platform::Sharing::Exclusive);
    }
    EXPECT_GE(clock.sleptMs, 25u * std::size(cases));

    tree.Plug(VirtualPortDevice(3));
    const auto link = Serial(3, "stopbits=1,parity=7");
    EXPECT_TRUE(link->IsVirtualPort());
    LogReader log;
    link->EnableDevice();
    const Lines lines = log.Take();
    for (const char* line : {"TargetName: \\\\.\\COM3", "================= Serial Cfg\t=================\t\t",
                             "BaudRate\t\t\t9600", "ByteSize\t\t\t8", "Parity\t\t\t7", "StopBits\t\t\t1.5",
                             "fOutxCtsFlow     0", "fOutxDsrFlow     0", "fRtsControl      DISABLE",
                             "fDtrControl      DISABLE", "================= Serial Cfg\tEnd =================\t\t"}) {
        EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:    | "s + line)) << line;
    }
}

TEST_F(LinkTest, AUsbLinkHasTheFirstScannerOfItsConstruction) {
    const auto tooEarly = Usb();
    for (const char* scanner : {"first", "second"}) {
        tree.Plug(HidDevice(scanner + " keyboard"s, "VID_1&PID_2"));
        tree.Plug(HidDevice(scanner));
    }
    FakeDevice& device = access.Device("first");
    EXPECT_THROW(tooEarly->EnableDevice(), HidLinkError);
    EXPECT_FALSE(tooEarly->IsEnabled());
    const auto link = Usb();
    link->EnableDevice();
    EXPECT_EQ(device->openedAs, platform::Sharing::Shared);
    EXPECT_TRUE(Eventually([&] { return device->lastReadSize == 64; }));

    EXPECT_TRUE(link->IsDevicePresent());
    tree.Unplug(HidDevice("first").id);
    EXPECT_TRUE(link->IsDevicePresent());  // the other one counts too
    tree.Unplug(HidDevice("second").id);
    EXPECT_FALSE(link->IsDevicePresent());
}

using PowerReportingTest = LinkTest;

TEST_F(PowerReportingTest, ReportsChangesAlone) {
    const auto link = Serial(3);
    link->SetPowerCallbacks(&Recorder::OnPower, nullptr);
    link->StartPowerReporting();
    const uint64_t before = tree.Looks();
    ASSERT_TRUE(Eventually([&] { return tree.Looks() > before + 12; }));  // some passes
    EXPECT_TRUE(owner.AwaitStates(0).empty()) << "an absent device is no news at the start";
    tree.Plug(SerialPortDevice(3));
    owner.AwaitStates(1);
    tree.Unplug(SerialPortDevice(3).id);
    owner.AwaitStates(2);
    EXPECT_EQ(owner.AwaitStates(2), (std::vector<uint32_t>{PowerOnline, PowerOffOffline}));

    // A reset forgets the state, so that it is reported once more; the waiting link keeps its thread.
    link->SetReadyToReConnect(true);
    link->StopPowerReporting();
    link->Reset();
    EXPECT_EQ(owner.AwaitStates(3).size(), 3u);
    link->SetReadyToReConnect(false);
    link->Reset();
    tree.Plug(SerialPortDevice(3));
    const uint64_t ended = tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(tree.Looks(), ended) << "polled after its end";
}

TEST_F(PowerReportingTest, EndsInTheMiddleOfItsPause) {
    platform::ReplaceClock(nullptr);  // pauses of 100 ms
    const auto link = Serial(3);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 40; ++round) {
        const uint64_t before = tree.Looks();
        link->StartPowerReporting();
        // Sometimes in its first pause, sometimes before it has run at all.
        const uint64_t onePass = round % 4 == 0 ? 0 : 4;
        ASSERT_TRUE(Eventually([&] { return tree.Looks() >= before + onePass; }));
        if (round % 2 == 0) link->StopPowerReporting();
        link->StartPowerReporting();  // nothing, as long as the last thread wasn't joined
        link->Reset();                // hangs if an order to end got lost
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500)) << "whole pauses would be 3 s";

    uint64_t before = tree.Looks();
    const auto polling = std::chrono::steady_clock::now();
    link->StartPowerReporting();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint64_t looks = tree.Looks() - before;
    const auto pauses = (std::chrono::steady_clock::now() - polling) / std::chrono::milliseconds(100);
    EXPECT_LT(looks, static_cast<uint64_t>(40 + 4 * pauses)) << "polls without a pause";
    link->EndThreads();
    link->StartPowerReporting();
    before = tree.Looks();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(tree.Looks(), before) << "a link at its end started a thread";
}

TEST_F(PowerReportingTest, EndsAWriteWhenItsDeviceIsGone) {
    HeldLink links[5];  // by port
    for (const uint32_t port : {3u, 4u}) {
        tree.Plug(SerialPortDevice(port));
        access.Port(port);
        links[port].Set(arbiter.AddDevice({.key = SerialKey(port), .owner = &owner}));
        arbiter.StartPowerReporting(SerialKey(port), &Recorder::OnPower);
    }
    owner.AwaitStates(2);  // a device that goes before it was seen isn't missed
    FakeDevice &stalled = access.Port(3), &other = access.Port(4);
    stalled->stalled = true;
    std::thread writer([&] {
        std::string bytes = "never taken";
        arbiter.WriteData(links[3], SerialKey(3), bytes);
    });
    ASSERT_TRUE(Eventually([&] { return stalled->stalledNow; }));
    tree.Unplug(SerialPortDevice(3).id);
    std::string bytes = "waits for the lock";
    arbiter.WriteData(links[4], SerialKey(4), bytes);
    writer.join();
    EXPECT_EQ(other->writes.size(), 1u);

    // Back again, the link writes as before.
    stalled->stalled = false;
    tree.Plug(SerialPortDevice(3));
    EXPECT_TRUE(Eventually([&] {
        arbiter.WriteData(links[3], SerialKey(3), bytes);
        return !stalled->writes.empty();
    }));
    arbiter.RemoveAll();
}

}  // namespace
}  // namespace quillet::test
