// SPDX-License-Identifier: MIT
#include "transport/comm_arbiter.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet::test {
namespace {

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
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | Retrieved COM Port settings"));
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
    EXPECT_TRUE(HasLine(log.Take(), "LLCritical\t:Error: a USB block has no room for a command of this size: 63"));

    serial->writeResult = {platform::WriteResult::Outcome::FailedPending, 0, 5};
    EXPECT_TRUE(Write(serialLink, SerialKey(3), bytes));
    const Lines lines = log.Take();
    EXPECT_TRUE(HasLine(lines, "LLCritical\t:Error: WriteDataError writing data (Code:5)."));
    EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:try lock!!!!!!!!!!!!!!"));
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

}  // namespace
}  // namespace quillet::test
