// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "platform/device_tree.h"
#include "support/process.h"
#include "support/windows/device_keys.h"
#include "transport/port_discovery.h"

namespace quillet::test {
namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

// Part of every instance ID here; the machine may have devices of its own.
constexpr const char* kMark = "QLT";

std::string LineOf(const PortDescriptor& port) {
    std::ostringstream line;
    line << port.portName << ", " << port.devicePath << ", " << port.description << ", " << port.manufacturer << ", "
         << port.portSerial << ", " << port.instanceId << ", " << std::hex << port.vendorId
         << (port.vendorIdFound ? "" : "?") << ":" << port.productId << (port.productIdFound ? "" : "?") << " link "
         << port.linkType;
    return line.str();
}

Lines MarkedLines(const std::vector<PortDescriptor>& ports) {
    Lines lines;
    for (const PortDescriptor& port : ports) {
        if (ToLower(port.instanceId + port.devicePath).find(ToLower(kMark)) != std::string::npos) {
            lines.push_back(LineOf(port));
        }
    }
    return lines;
}

class Discovery : public testing::Test {
  protected:
    void SetUp() override {
        if (!IsUnderWine()) GTEST_SKIP() << "on Windows the keys of devices are the system's alone to write";
    }
    DeviceKeys m_Registry;
};

TEST_F(Discovery, ReadsSerialPortsFromTheRegistry) {
    const std::string longText(700, 'x');
    m_Registry.Write({
        {"Usb\\Vid_18d1&Pid_0009\\qLt1", kPortsClass, "Scanner", "Maker", {Text("PortName", "COM231")}, {}},
        {"ACPI\\PNP0501\\QLT3", kPortsClass, "Port", "", {Number("PortNumber", 233)}, {}},
        {"PCI\\VEN_8086&DEV_9D27\\3&QLT4&0",
         kPortsClass,
         "",
         "",
         {Text("PortName", "COM1", REG_EXPAND_SZ), Text("PortNumber", "COM234")},
         {}},
        {"ACPI\\PNP0400\\QLT8", kPortsClass, "", "", {Text("PortName", "LPT7"), Number("PortNumber", 7)}, {}},
        {"QLTBUS\\PORT\\5", kPortsClass, "", "", {Number("PortName", 235)}, {}},
        {"QLTBUS\\PORT\\6", kPortsClass, "", "", {Text("PortName", "C1", REG_BINARY)}, {}},
        {"QLTBUS\\PORT\\7", kPortsClass, "", "", {}, {}},
        {"QLTBUS\\MODEM\\9", kModemClass, "Modem", "", {Text("PortName", "Line A")}, {kModemInterface}},
        {"QLTBUS\\PORT\\10", kPortsClass, "First", "", {Text("PortName", "COM236")}, {kComPortInterface}},
        {"QLTBUS\\OTHER\\12", kHidClass, "", "", {Text("PortName", "COM237")}, {kComPortInterface}},
        {"QLTBUS\\OTHER\\13", kHidClass, "", "", {Text("PortName", "COM238")}, {kModemInterface}},
        {"QLTBUS\\PORT\\14", kPortsClass, longText + "d", longText + "m", {Text("PortName", longText + "n")}, {}},
    });
    EXPECT_THAT(
        MarkedLines(ListSerialPorts()),
        UnorderedElementsAre("COM231, \\\\.\\COM231, Scanner, Maker, 231, USB\\VID_18D1&PID_0009\\QLT1, 18d1:9 link 2",
                             "COM233, \\\\.\\COM233, Port, , QLT3, ACPI\\PNP0501\\QLT3, 0?:0? link 1",
                             "COM234, \\\\.\\COM234, , , 234, PCI\\VEN_8086&DEV_9D27\\3&QLT4&0, 8086:9d27 link 1",
                             "COM235, \\\\.\\COM235, , , 5, QLTBUS\\PORT\\5, 0?:0? link 1",
                             "Line A, Line A, Modem, , 9, QLTBUS\\MODEM\\9, 0?:0? link 1",
                             "COM236, \\\\.\\COM236, First, , 10, QLTBUS\\PORT\\10, 0?:0? link 1",
                             "COM237, \\\\.\\COM237, , , 12, QLTBUS\\OTHER\\12, 0?:0? link 1",
                             "COM238, \\\\.\\COM238, , , 13, QLTBUS\\OTHER\\13, 0?:0? link 1",
                             longText + "n, " + longText + "n, " + longText + "d, " + longText +
                                 "m, 14, QLTBUS\\PORT\\14, 0?:0? link 1"));
    m_Registry.Delete();
    EXPECT_THAT(MarkedLines(ListSerialPorts()), IsEmpty());
}

TEST_F(Discovery, ReadsHidDevicesFromTheRegistry) {
    const std::string longText(700, 'x');
    m_Registry.Write({{"HID\\VID_18D1&PID_010B\\qlt&1", kHidClass, "Scanner", "Maker", {}, {kHidInterface}},
                      {"HID\\Vid_18d1&Pid_010c\\qlt2", kHidClass, longText, longText, {}, {kHidInterface}},
                      {"HID\\VID_18D1&PID_010B\\qlt3", kHidClass, "No interface", "", {}, {}},
                      {"HID\\VID_18D1&PID_010B\\qlt4", kHidClass, "Another interface", "", {}, {kComPortInterface}}});
    const std::string scanner = ", \\\\?\\" + InterfaceName("hid\\vid_18d1&pid_010b\\qlt&1", kHidInterface) +
                                ", Scanner, Maker, QLT&1, , 18d1:10b link 3";
    const std::string other = ", \\\\?\\" + InterfaceName("hid\\vid_18d1&pid_010c\\qlt2", kHidInterface) + ", " +
                              longText + ", " + longText + ", QLT2, , 18d1:10c link 3";
    EXPECT_THAT(MarkedLines(ListHidDevices()), UnorderedElementsAre(scanner, other));
    EXPECT_THAT(MarkedLines(DiscoveredHidScanners()), ElementsAre(scanner));
    m_Registry.Delete();
    EXPECT_THAT(MarkedLines(ListHidDevices()), IsEmpty());
}

TEST(DiscoveryOfParents, TheParentHasAnIdOfItsOwn) {
    if (IsUnderWine()) GTEST_SKIP() << "Wine doesn't tell the parent of a device";
    const auto set = TheDeviceTree().OpenSet(DeviceClass::HidInterface);
    ASSERT_NE(set, nullptr);
    if (!set->SelectDevice(0)) GTEST_SKIP() << "the machine has no HID device";
    EXPECT_NE(set->ParentId(), "");
    EXPECT_NE(set->ParentId(), set->DeviceId());
}

}  // namespace
}  // namespace quillet::test
