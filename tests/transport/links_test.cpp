// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <string>
#include <typeinfo>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet {
namespace {

using test::FakeDevice;
using test::HasLine;
using test::HidDevice;
using test::Lines;
using test::LinkFixture;

TEST(SerialLink, SendsItsSettingsToThePort) {
    struct Case {
        std::string params;
        uint32_t baudRate;
        uint8_t byteSize, parity, stopBits;
        std::string text;
    };
    const Case cases[] = {
        {"", 9600, 8, 0, 0, "COM3,9600,n,8,1,n"},
        {"baudrate=115200.9,bytesize=7,parity=2,stopbits=2", 115200, 7, 2, 2, "COM3,115200,e,7,2,n"},
        {"parity=1,stopbits=1", 9600, 8, 1, 1, "COM3,9600,o,8,1.5,n"},
        {"parity=9,stopbits=-1", 9600, 8, 9, 255, "COM3,9600,9,8,-1,n"},
        {"baudrate=1e300,bytesize=-0.9", 2147483647, 0, 0, 0, "COM3,2147483647,n,0,1,n"},
    };
    for (const Case& row : cases) {
        LinkFixture fixture;
        FakeDevice& device = fixture.access.Port(3);
        platform::SerialSettings before;
        before.softwareFlowOut = before.softwareFlowIn = before.discardNulls = before.dsrSensitivity = true;
        before.ctsOutputFlow = before.dsrOutputFlow = true;
        before.dtrControl = before.rtsControl = 2;
        device.UseSettings(before);
        const auto link = fixture.Serial(3, row.params);
        EXPECT_EQ(link->GetLinkText(), row.text);
        link->EnableDevice();
        const platform::SerialSettings after = device.Settings();
        EXPECT_EQ(after.baudRate, row.baudRate);
        EXPECT_EQ(after.byteSize, row.byteSize);
        EXPECT_EQ(after.parity, row.parity);
        EXPECT_EQ(after.stopBits, row.stopBits);
        EXPECT_FALSE(after.softwareFlowOut || after.softwareFlowIn || after.discardNulls || after.dsrSensitivity ||
                     after.ctsOutputFlow || after.dsrOutputFlow);
        EXPECT_EQ(after.dtrControl + after.rtsControl, 0);
        EXPECT_EQ(device.Timeouts().readIntervalMs, 25u);
        EXPECT_EQ(device.OpenedAs(), platform::Sharing::Exclusive);
        EXPECT_GE(fixture.clock.SleptMs(), 25u);
    }
}

TEST(SerialLink, LogsItsSettingsToTheTab) {
    LinkFixture fixture;
    fixture.access.Port(3);
    const auto link = fixture.Serial(3, "stopbits=1,parity=7");
    test::LogReader log;
    link->EnableDevice();
    const Lines lines = log.Take();
    for (const char* line : {"TargetName: \\\\.\\COM3", "================= Serial Cfg\t=================\t\t",
                             "BaudRate\t\t\t9600", "ByteSize\t\t\t8", "Parity\t\t\t7", "StopBits\t\t\t1.5",
                             "fOutxCtsFlow     0", "fOutxDsrFlow     0", "fRtsControl      DISABLE",
                             "fDtrControl      DISABLE", "================= Serial Cfg\tEnd =================\t\t"}) {
        EXPECT_TRUE(HasLine(lines, std::string("LLInfo\t\t:    | ") + line)) << line;
    }
}

TEST(SerialLink, ClosesAfterEachFailureOnTheWay) {
    struct Case {
        uint32_t open, get, set, timeouts;
        std::string text;
    };
    const Case cases[] = {
        {16, 0, 0, 0, "Unable to open COM port (Code:16)."},
        {0, 5, 0, 0, "Unable to retrieve COM port settings (Code:5)."},
        {0, 0, 22, 0, "Unable to update COM port settings (Code:22)."},
        {0, 0, 0, 6, "Unable to set timeouts on the COM port (Code:6)."},
    };
    LinkFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Serial(3);
    for (const Case& row : cases) {
        device.FailOpens(row.open);
        device.FailSettings(row.get, row.set, row.timeouts);
        try {
            link->EnableDevice();
            ADD_FAILURE() << row.text;
        } catch (const SerialLinkError& error) {
            EXPECT_EQ(error.what(), row.text);
            EXPECT_EQ(error.Code(), 0u);
        }
        EXPECT_FALSE(link->IsEnabled());
        EXPECT_EQ(device.OpenNow(), 0) << row.text;
    }
    device.FailSettings(0, 0, 0);
    link->EnableDevice();
    EXPECT_EQ(device.OpenNow(), 1);

    FakeDevice& other = fixture.access.Port(4);
    const auto nonsense = fixture.Serial(4, "baudrate=fast");
    test::LogReader log;
    EXPECT_THROW(nonsense->EnableDevice(), StringError);
    EXPECT_TRUE(HasLine(log.Take(), "LLInfo\t\t:    | Retrieved COM Port settings"));
    other.FailSettings(25, 0, 0);
    EXPECT_THROW(nonsense->EnableDevice(), SerialLinkError);  // the port is asked before the numbers are read
    EXPECT_EQ(other.OpenNow(), 0);
}

TEST(SerialLink, TakesItsKindFromDiscovery) {
    LinkFixture fixture;
    const auto unknown = fixture.Serial(3);
    EXPECT_FALSE(unknown->IsVirtualPort());
    EXPECT_EQ(unknown->Port().devicePath, "\\\\.\\COM3");
    EXPECT_FALSE(unknown->IsDevicePresent());
    fixture.tree.Plug(test::VirtualPortDevice(3));
    EXPECT_TRUE(unknown->IsDevicePresent());
    EXPECT_TRUE(fixture.Serial(3)->IsVirtualPort());
    CommandPacket packet(0x40, "\x0B\x01");
    FakeDevice& device = fixture.access.Port(3);
    unknown->EnableDevice();
    unknown->WritePacket(packet);
    EXPECT_EQ(device.Writes(), std::vector<std::string>{std::string("\x05\x40\x04\x00\x0B\x01\xAA", 7)});
}

TEST(UsbLink, MovesBlocksOf64Bytes) {
    LinkFixture fixture;
    fixture.tree.Plug(HidDevice("keyboard", "VID_1&PID_2"));
    fixture.tree.Plug(HidDevice("first"));
    fixture.tree.Plug(HidDevice("second"));
    FakeDevice& device = fixture.access.Device("first");
    const auto link = fixture.Usb();
    link->EnableDevice();
    EXPECT_EQ(device.OpenedAs(), platform::Sharing::Shared);
    EXPECT_TRUE(test::Eventually([&] { return device.LastReadSize() == 64; }));

    CommandPacket fits(0x40, std::string(57, 'p')), tooLong(0x40, std::string(58, 'p'));
    test::LogReader log;
    link->WritePacket(tooLong);
    EXPECT_TRUE(HasLine(log.Take(), "LLCritical\t:Error: a USB block has no room for a command of this size: 63"));
    link->WritePacket(fits);
    ASSERT_EQ(device.Writes().size(), 1u);
    EXPECT_EQ(device.Writes()[0].size(), 64u);
    EXPECT_EQ(device.Writes()[0].substr(0, 4), "\x04\x3E\x3C\x40");

    EXPECT_TRUE(link->IsDevicePresent());
    fixture.tree.Unplug(HidDevice("first").id);
    EXPECT_TRUE(link->IsDevicePresent());  // the other one counts too
    fixture.tree.Unplug(HidDevice("second").id);
    EXPECT_FALSE(link->IsDevicePresent());
}

TEST(UsbLink, OpensThePathOfItsConstructionOnly) {
    LinkFixture fixture;
    const auto link = fixture.Usb();
    fixture.tree.Plug(HidDevice("late"));
    fixture.access.Device("late");
    try {
        link->EnableDevice();
        ADD_FAILURE() << "opened a device that it didn't know";
    } catch (const HidLinkError& error) {
        EXPECT_STREQ(error.what(), "Unable to open USB device (Code:2).");
    }
    EXPECT_FALSE(link->IsEnabled());
    EXPECT_NO_THROW(fixture.Usb()->EnableDevice());
}

}  // namespace
}  // namespace quillet
