// SPDX-License-Identifier: MIT
#include "transport/comm_arbiter.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet {
namespace {

using test::Eventually;
using test::FakeDevice;
using test::HasLine;
using test::kUsbKey;
using test::Lines;
using test::LinkFixture;
using test::Recorder;
using test::SerialKey;

// An arbiter of its own, and shorter calls.
struct ArbiterFixture : LinkFixture {
    std::shared_ptr<CComm> Add(const LinkKey& key, const std::string& params = "", Recorder* recorder = nullptr) {
        return arbiter.AddDevice({.key = key,
                                  .parameters = test::Parsed(params),
                                  .owner = recorder != nullptr ? recorder : &owner,
                                  .dataCallback = &Recorder::OnData});
    }
    template <typename Sent>
    bool Write(const std::shared_ptr<CComm>& link, const LinkKey& key, Sent& sent) {
        HeldLink held;
        held.Set(link);
        return arbiter.WriteData(held, key, sent);
    }

    CCommArbiter arbiter;
};

TEST(CommArbiter, MovesALinkThroughItsPlaces) {
    ArbiterFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Add(SerialKey(3));
    EXPECT_EQ(fixture.arbiter.FindLink({DeviceUsb, LinkVirtualSerial, 3}), link);

    // Who comes second gets the first one's link, callback included.
    Recorder second;
    EXPECT_EQ(fixture.Add(SerialKey(3), "", &second), link);
    EXPECT_EQ(device.Opens(), 1);
    device.Deliver("code");
    EXPECT_EQ(fixture.owner.AwaitBlocks(1).size(), 1u);
    EXPECT_TRUE(second.AwaitBlocks(0).empty());

    fixture.arbiter.RemoveDevice(SerialKey(3));
    EXPECT_EQ(fixture.arbiter.FindLink(SerialKey(3)), nullptr);
    EXPECT_EQ(device.OpenNow(), 0);
    CommandPacket packet(0x40, "x");
    EXPECT_FALSE(fixture.Write(link, SerialKey(3), packet)) << "it is still held, and not listed";
}

TEST(CommArbiter, PassesTheErrorOfAnOpeningOn) {
    ArbiterFixture fixture;
    fixture.access.Port(4);
    const std::pair<LinkKey, const char*> cases[] = {
        {SerialKey(3), "Unable to open COM port (Code:2)."},
        {kUsbKey, "Unable to open USB device (Code:2)."},
        {{DeviceUsb, 4, 0}, "Unable to open USB device (Code:2)."},
        {{DeviceBluetooth, LinkUsbHid, 0}, "RemoveSerialDevice faild because invalid number :255"},
    };
    for (const auto& [key, text] : cases) {
        try {
            fixture.Add(key);
            ADD_FAILURE() << text;
        } catch (const QuilletError& error) {
            EXPECT_EQ(typeid(error), typeid(QuilletError));
            EXPECT_STREQ(error.what(), text);
        }
        EXPECT_EQ(fixture.arbiter.FindLink(key), nullptr);
    }
    EXPECT_THROW(fixture.Add(SerialKey(4), "parity=even"), StringError);
    EXPECT_EQ(fixture.arbiter.FindLink(SerialKey(4)), nullptr);
    EXPECT_NE(fixture.Add(SerialKey(4), "parity=2"), nullptr);
}

TEST(CommArbiter, SaysWhatItDoesNotFind) {
    ArbiterFixture fixture;
    const std::shared_ptr<CComm> gone;
    CommandPacket packet(0x40, "x");
    std::string bytes = "x";
    const std::string notFound = "LLError\t\t:No Find ComDevice...";
    const struct {
        const char* line;
        std::function<void(uint32_t port)> call;
    } cases[] = {
        {":No Find ComDevice...  ", [&](uint32_t port) { fixture.arbiter.RemoveDevice(SerialKey(port)); }},
        {":No Find ComDevice...  WriteData Failed!",
         [&](uint32_t port) { EXPECT_FALSE(fixture.Write(gone, SerialKey(port), packet)); }},
        {":No Find ComDevice...  WriteData Failed!",
         [&](uint32_t port) { EXPECT_FALSE(fixture.Write(gone, SerialKey(port), bytes)); }},
        {":Warning: No Find ComDevice...",
         [&](uint32_t port) { fixture.arbiter.setReadyToReConnect(SerialKey(port), true); }},
        {":No Find ComDevice... ",
         [&](uint32_t port) { fixture.arbiter.StartPowerReporting(SerialKey(port), nullptr); }},
        {":No Find ComDevice... ", [&](uint32_t port) { fixture.arbiter.StopPowerReporting(SerialKey(port)); }},
    };
    test::LogReader log;
    for (const auto& row : cases) {
        row.call(3);
        const Lines below = log.Take();
        EXPECT_TRUE(HasLine(below, std::string("LLWarnings\t") + row.line)) << row.line;
        EXPECT_TRUE(HasLine(below, notFound)) << row.line;
        row.call(133);
        const Lines above = log.Take();
        EXPECT_TRUE(HasLine(above, std::string("LLWarnings\t") + row.line)) << row.line;
        EXPECT_FALSE(HasLine(above, notFound)) << row.line;
    }
}

TEST(CommArbiter, WritesBlocksOverUsbAndBytesOverSerial) {
    ArbiterFixture fixture;
    fixture.tree.Plug(test::HidDevice("scanner"));
    FakeDevice &usb = fixture.access.Device("scanner"), &serial = fixture.access.Port(3);
    const auto usbLink = fixture.Add(kUsbKey), serialLink = fixture.Add(SerialKey(3));

    const std::string longest(62, 'b');
    std::string bytes = longest;
    fixture.Write(serialLink, SerialKey(3), bytes);
    EXPECT_EQ(serial.Writes(), std::vector{longest});
    EXPECT_EQ(bytes, longest);
    fixture.Write(usbLink, kUsbKey, bytes);
    EXPECT_EQ(usb.Writes(), std::vector{"\x04\x3E" + longest});
    EXPECT_EQ(bytes, "\x04\x3E" + longest);

    test::LogReader log;
    std::string tooLong(63, 'b');
    EXPECT_TRUE(fixture.Write(usbLink, kUsbKey, tooLong));
    EXPECT_EQ(usb.Writes().size(), 1u);
    EXPECT_TRUE(HasLine(log.Take(), "LLCritical\t:Error: a USB block has no room for a command of this size: 63"));

    serial.EndWrites(platform::WriteResult::Outcome::FailedPending, 5);
    EXPECT_TRUE(fixture.Write(serialLink, SerialKey(3), bytes));
    const Lines lines = log.Take();
    EXPECT_TRUE(HasLine(lines, "LLCritical\t:Error: WriteDataError writing data (Code:5)."));
    EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:try lock!!!!!!!!!!!!!!"));
}

TEST(CommArbiter, ListsLinksUpToItsLimit) {
    ArbiterFixture fixture;
    for (uint32_t port = 1; port <= 131; ++port) {
        fixture.access.Port(port);
        ASSERT_NE(fixture.Add(SerialKey(port)), nullptr);
    }
    FakeDevice& beyond = fixture.access.Port(200);
    const auto unfound = fixture.Add(SerialKey(200));
    CommandPacket packet(0x40, "x");
    EXPECT_EQ(fixture.arbiter.FindLink(SerialKey(200)), nullptr) << "listed, never found";
    EXPECT_FALSE(fixture.Write(unfound, SerialKey(200), packet));
    EXPECT_TRUE(beyond.Writes().empty());
    EXPECT_EQ(fixture.Add(SerialKey(1)), nullptr) << "the limit is looked at before the list";
    EXPECT_EQ(fixture.arbiter.FindLink(kUsbKey), fixture.arbiter.FindLink(SerialKey(131))) << "one key";

    Recorder other;
    fixture.arbiter.RemoveDevice(SerialKey(1));
    EXPECT_NE(fixture.Add(SerialKey(1), "", &other), nullptr);
    fixture.arbiter.RemoveLinksOf(&fixture.owner);
    EXPECT_EQ(beyond.OpenNow(), 0);
    EXPECT_EQ(fixture.arbiter.FindLink(SerialKey(2)), nullptr);
    EXPECT_NE(fixture.arbiter.FindLink(SerialKey(1)), nullptr) << "another's link went too";
}

TEST(CommArbiter, RemovesAllInSpiteOfAStalledWrite) {
    ArbiterFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Add(SerialKey(3));
    fixture.Add(SerialKey(3));
    device.StallWrites(true);
    std::thread writer([&] {
        CommandPacket packet(0x40, "x");
        EXPECT_TRUE(fixture.Write(link, SerialKey(3), packet));
    });
    ASSERT_TRUE(Eventually([&] { return device.WriteIsStalled(); }));
    fixture.arbiter.RemoveAll();
    writer.join();
    EXPECT_EQ(device.OpenNow(), 0);
    EXPECT_EQ(fixture.arbiter.FindLink(SerialKey(3)), nullptr);
}

}  // namespace
}  // namespace quillet
