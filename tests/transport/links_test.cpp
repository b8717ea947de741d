// SPDX-License-Identifier: MIT
// Links, the arbiter that keeps them, and their power reporting.
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "support/log_reader.h"
#include "transport/comm_arbiter.h"
#include "transport/hid_link.h"
#include "transport/serial_link.h"

namespace quillet::test {
namespace {

using namespace std::string_literals;
using ::testing::Contains;
using ::testing::Not;
using Kind = FakeRead::Kind;
using Lines = std::vector<std::string>;

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

constexpr LinkKey kUsbKey{DeviceUsb, LinkUsbHid, 0};
constexpr LinkKey SerialKey(uint32_t port) {
    return {DeviceUsb, LinkSerial, port};
}

// What every test of a link needs around it.
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
        EXPECT_THAT(lines, Not(Contains("LLInfo\t\t:    - Port[COM3]Read(Hex): ")));
        EXPECT_THAT(lines, Contains(row.line));
    }
}

TEST_F(LinkTest, LogsItsWritesAndTheBytesOfShortOnes) {
    FakeDevice& device = access.Port(3);
    const auto link = Serial(3);
    LogReader log;
    link->WriteString("no device is open");
    EXPECT_THAT(log.Take(), Contains("LLInfo\t\t:    | WrittenBytes: 0"));
    link->EnableDevice();
    link->WriteString("");
    EXPECT_TRUE(device->writes.empty());
    for (const size_t size : {size_t{127}, size_t{128}}) {
        const std::string bytes(size, 'x');
        link->WriteString(bytes);
        EXPECT_EQ(device->writes.back(), bytes);
        const Lines lines = log.Take();
        EXPECT_THAT(lines, Contains("LLInfo\t\t:    | Length: " + std::to_string(size)));
        EXPECT_THAT(lines, Contains("LLInfo\t\t:    | WrittenBytes: " + std::to_string(size)));
        EXPECT_THAT(lines, Contains("LLInfo\t\t:    | Data(Ascii): " + bytes).Times(size < 128 ? 1 : 0));
    }
    device->writeResult = {platform::WriteResult::Outcome::FailedAtOnce, 0, 5};
    EXPECT_NO_THROW(link->WriteString("abc"));
    EXPECT_THAT(log.Take(), Contains("LLInfo\t\t:    | WrittenBytes: 3"));
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
    EXPECT_THAT(lines, Contains("LLInfo\t\t:    | Parity\t\t\t7"));
    EXPECT_THAT(lines, Contains("LLInfo\t\t:    | StopBits\t\t\t1.5"));
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
    tree.Unplug(HidDevice("first").id);
    EXPECT_TRUE(link->IsDevicePresent()) << "the other one counts too";
}

TEST_F(LinkTest, AUsbLinkTellsOfFailedReadsAlone) {
    tree.Plug(HidDevice("scanner"));
    FakeDevice& device = access.Device("scanner");
    LogReader log;
    const auto link = Usb();
    link->EnableDevice();
    device->Deliver("one");
    device->Deliver("two");
    device->reads.push_back({Kind::FailedPending, "", 31});
    owner.AwaitBlocks(3);
    link->DisableDevice();
    const std::string told =
        "LLInfo\t\t:Error: RunReadThread: failed while waiting for data; will attempt to reconnect";
    EXPECT_THAT(log.Take(), Contains(told).Times(1));
}

using CommArbiterTest = LinkTest;

TEST_F(CommArbiterTest, PassesTheErrorOfAnOpeningOn) {
    FakeDevice& device = access.Port(4);
    const struct {
        LinkKey key;
        const char* params;
        FakeErrors errors;
        const char* text;
    } cases[] = {
        {SerialKey(3), "", {}, "Unable to open COM port (Code:2)."},
        {SerialKey(4), "", {.open = 16}, "Unable to open COM port (Code:16)."},
        // The port is asked before the numbers are read.
        {SerialKey(4), "baudrate=fast", {.getSettings = 5}, "Unable to retrieve COM port settings (Code:5)."},
        {SerialKey(4), "", {.setSettings = 22}, "Unable to update COM port settings (Code:22)."},
        {SerialKey(4), "", {.setTimeouts = 6}, "Unable to set timeouts on the COM port (Code:6)."},
        {kUsbKey, "", {}, "Unable to open USB device (Code:2)."},
        {{DeviceUsb, 4, 0}, "", {}, "Unable to open USB device (Code:2)."},
        {{DeviceBluetooth, LinkUsbHid, 0}, "", {}, "RemoveSerialDevice faild because invalid number :255"},
    };
    for (const auto& row : cases) {
        device->errors = row.errors;
        try {
            Add(row.key, row.params);
            ADD_FAILURE() << row.text;
        } catch (const QuilletError& error) {
            EXPECT_EQ(typeid(error), typeid(QuilletError));
            EXPECT_STREQ(error.what(), row.text);
            EXPECT_EQ(error.Code(), 0u);
        }
        EXPECT_EQ(arbiter.FindLink(row.key), nullptr) << row.text;
        EXPECT_EQ(device->openNow, 0) << row.text;
    }
    device->errors = {};
    LogReader log;
    EXPECT_THROW(Add(SerialKey(4), "parity=even"), StringError);
    EXPECT_THAT(log.Take(), Contains("LLInfo\t\t:    | Retrieved COM Port settings"));
    EXPECT_EQ(arbiter.FindLink(SerialKey(4)), nullptr);
    EXPECT_NE(Add(SerialKey(4), "parity=2"), nullptr);
}

TEST_F(CommArbiterTest, SaysWhatItDoesNotFind) {
    CommandPacket packet(0x40, "x");
    std::string bytes = "x";
    LogReader log;
    for (const uint32_t port : {3u, 133u}) {
        const LinkKey key = SerialKey(port);
        arbiter.RemoveDevice(key);
        EXPECT_FALSE(Write(nullptr, key, packet));
        EXPECT_FALSE(Write(nullptr, key, bytes));
        arbiter.setReadyToReConnect(key, true);
        arbiter.StartPowerReporting(key, nullptr);
        arbiter.StopPowerReporting(key);
        Lines complaints = log.Take();
        std::erase_if(complaints,
                      [](const auto& line) { return !line.starts_with("LLError") && !line.starts_with("LLWarn"); });
        Lines expected;
        for (const char* warning : {":No Find ComDevice...  ", ":No Find ComDevice...  WriteData Failed!",
                                    ":No Find ComDevice...  WriteData Failed!", ":Warning: No Find ComDevice...",
                                    ":No Find ComDevice... ", ":No Find ComDevice... "}) {
            if (port == 3) expected.emplace_back("LLError\t\t:No Find ComDevice...");
            expected.push_back(std::string("LLWarnings\t") + warning);
        }
        EXPECT_EQ(complaints, expected);
    }
}

TEST_F(CommArbiterTest, WritesBlocksOverUsbAndBytesOverSerial) {
    tree.Plug(HidDevice("scanner"));
    FakeDevice &usb = access.Device("scanner"), &serial = access.Port(3);
    const auto usbLink = Add(kUsbKey), serialLink = Add(SerialKey(3));

    const std::string longest(62, 'b');
    std::string bytes = longest;
    Write(serialLink, SerialKey(3), bytes);
    EXPECT_EQ(serial->writes, std::vector{longest});
    EXPECT_EQ(bytes, longest);
    Write(usbLink, kUsbKey, bytes);
    EXPECT_EQ(usb->writes, std::vector{"\x04\x3E" + longest});
    EXPECT_EQ(bytes, "\x04\x3E" + longest);

    LogReader log;
    std::string tooLong(63, 'b');
    EXPECT_TRUE(Write(usbLink, kUsbKey, tooLong));
    EXPECT_EQ(usb->writes.size(), 1u);
    EXPECT_THAT(log.Take(), Contains("LLCritical\t:Error: a USB block has no room for a command of this size: 63"));

    serial->writeResult = {platform::WriteResult::Outcome::FailedPending, 0, 5};
    EXPECT_TRUE(Write(serialLink, SerialKey(3), bytes));
    EXPECT_THAT(log.Take(), Contains("LLCritical\t:Error: WriteDataError writing data (Code:5)."));
}

TEST_F(CommArbiterTest, ListsLinksUpToItsLimit) {
    for (uint32_t port = 1; port <= 131; ++port) {
        access.Port(port);
        ASSERT_NE(Add(SerialKey(port)), nullptr);
    }
    FakeDevice& beyond = access.Port(200);
    const auto unfound = Add(SerialKey(200));
    CommandPacket packet(0x40, "x");
    EXPECT_EQ(arbiter.FindLink(SerialKey(200)), nullptr) << "listed, never found";
    EXPECT_FALSE(Write(unfound, SerialKey(200), packet));
    EXPECT_TRUE(beyond->writes.empty());
    EXPECT_EQ(Add(SerialKey(1)), nullptr) << "the limit is looked at before the list";
    EXPECT_EQ(arbiter.FindLink(kUsbKey), arbiter.FindLink(SerialKey(131))) << "one key";

    EXPECT_EQ(arbiter.FindLink({DeviceUsb, LinkVirtualSerial, 2}), arbiter.FindLink(SerialKey(2)));

    Recorder other;
    const auto first = arbiter.FindLink(SerialKey(1));
    arbiter.RemoveDevice(SerialKey(1));
    EXPECT_EQ(access.Port(1)->openNow, 0);
    EXPECT_FALSE(Write(first, SerialKey(1), packet)) << "it is still held, and not listed";
    EXPECT_NE(arbiter.AddDevice({.key = SerialKey(1), .owner = &other}), nullptr);
    arbiter.RemoveLinksOf(&owner);
    EXPECT_EQ(beyond->openNow, 0);
    EXPECT_EQ(arbiter.FindLink(SerialKey(2)), nullptr);
    EXPECT_NE(arbiter.FindLink(SerialKey(1)), nullptr) << "another's link went too";
    arbiter.RemoveLinksOf(&other);
}

TEST_F(CommArbiterTest, RemovesAllInSpiteOfAStalledWrite) {
    FakeDevice& device = access.Port(3);
    const auto link = Add(SerialKey(3));
    EXPECT_EQ(Add(SerialKey(3)), link);
    EXPECT_EQ(device->opens, 1);
    device->stalled = true;
    std::thread writer([&] {
        CommandPacket packet(0x40, "x");
        EXPECT_TRUE(Write(link, SerialKey(3), packet));
    });
    ASSERT_TRUE(Eventually([&] { return device->stalledNow; }));
    arbiter.RemoveAll();
    writer.join();
    EXPECT_EQ(device->openNow, 0);
    EXPECT_EQ(arbiter.FindLink(SerialKey(3)), nullptr);
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
