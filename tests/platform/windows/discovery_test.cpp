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

namespace quillet {
namespace {

using namespace platform;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

// Part of every instance ID here; the machine may have devices of its own.
constexpr const char* kMark = "QLT";

std::string Ids(const PortDescriptor& port) {
    std::ostringstream line;
    line << std::hex << port.vendorId << (port.vendorIdFound ? "" : "?") << ":" << port.productId
         << (port.productIdFound ? "" : "?") << " link " << port.linkType;
    return line.str();
}

std::string LineOf(const PortDescriptor& port) {
    return port.portName + ", " + port.devicePath + ", " + port.description + ", " + port.manufacturer + ", " +
           port.portSerial + ", " + port.instanceId + ", " + Ids(port);
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
        if (!test::IsUnderWine()) GTEST_SKIP() << "on Windows the keys of devices are the system's alone to write";
    }
    DeviceKeys m_Registry;
};

struct SerialRow {
    const char* what;
    std::vector<RegistryDevice> devices;
    Lines expected;
};

std::vector<SerialRow> SerialRows() {
    const std::string longText(700, 'x');
    return {
        {"a scanner's virtual port",
         {{"USB\\VID_18D1&PID_0009\\QLT0001", kPortsClass, "Scanner", "Maker", {Text("PortName", "COM231")}, {}}},
         {"COM231, \\\\.\\COM231, Scanner, Maker, 231, USB\\VID_18D1&PID_0009\\QLT0001, 18d1:9 link 2"}},
        {"an instance ID in mixed case",
         {{"Usb\\Vid_18d1&Pid_0009\\qLt0002", kPortsClass, "", "", {Text("PortName", "COM232")}, {}}},
         {"COM232, \\\\.\\COM232, , , 232, USB\\VID_18D1&PID_0009\\QLT0002, 18d1:9 link 2"}},
        {"a number alone",
         {{"ACPI\\PNP0501\\QLT3", kPortsClass, "Port", "", {Number("PortNumber", 233)}, {}}},
         {"COM233, \\\\.\\COM233, Port, , QLT3, ACPI\\PNP0501\\QLT3, 0?:0? link 1"}},
        {"values of other types than usual, and tags of a PCI card",
         {{"PCI\\VEN_8086&DEV_9D27\\3&QLT4&0",
           kPortsClass,
           "",
           "",
           {Text("PortName", "COM1", REG_EXPAND_SZ), Text("PortNumber", "COM234")},
           {}},
          {"QLTBUS\\PORT\\5", kPortsClass, "", "", {Number("PortName", 235)}, {}},
          {"QLTBUS\\PORT\\6", kPortsClass, "", "", {Text("PortName", "C1", REG_BINARY)}, {}},
          {"QLTBUS\\PORT\\7", kPortsClass, "", "", {}, {}}},
         {"COM234, \\\\.\\COM234, , , 234, PCI\\VEN_8086&DEV_9D27\\3&QLT4&0, 8086:9d27 link 1",
          "COM235, \\\\.\\COM235, , , 5, QLTBUS\\PORT\\5, 0?:0? link 1"}},
        {"a parallel port", {{"ACPI\\PNP0400\\QLT8", kPortsClass, "", "", {Text("PortName", "LPT1")}, {}}}, {}},
        {"a modem by its own name",
         {{"QLTBUS\\MODEM\\9", kModemClass, "Modem", "", {Text("PortName", "Line A")}, {kModemInterface}}},
         {"Line A, Line A, Modem, , 9, QLTBUS\\MODEM\\9, 0?:0? link 1"}},
        {"a port in two classes, and the name of one in another class",
         {{"QLTBUS\\PORT\\10", kPortsClass, "First", "", {Text("PortName", "COM236")}, {kComPortInterface}},
          {"QLTBUS\\MODEM\\11", kModemClass, "Second", "", {Text("PortName", "COM236")}, {}}},
         {"COM236, \\\\.\\COM236, First, , 10, QLTBUS\\PORT\\10, 0?:0? link 1"}},
        {"ports by their interfaces alone",
         {{"QLTBUS\\OTHER\\12", kHidClass, "", "", {Text("PortName", "COM237")}, {kComPortInterface}},
          {"QLTBUS\\OTHER\\13", kHidClass, "", "", {Text("PortName", "COM238")}, {kModemInterface}}},
         {"COM237, \\\\.\\COM237, , , 12, QLTBUS\\OTHER\\12, 0?:0? link 1",
          "COM238, \\\\.\\COM238, , , 13, QLTBUS\\OTHER\\13, 0?:0? link 1"}},
        {"texts longer than the first buffer",
         {{"QLTBUS\\PORT\\14", kPortsClass, longText + "d", longText + "m", {Text("PortName", longText + "n")}, {}}},
         {longText + "n, " + longText + "n, " + longText + "d, " + longText + "m, 14, QLTBUS\\PORT\\14, 0?:0? link 1"}},
    };
}

TEST_F(Discovery, ReadsSerialPortsFromTheRegistry) {
    for (const SerialRow& row : SerialRows()) {
        SCOPED_TRACE(row.what);
        m_Registry.Write(row.devices);
        EXPECT_THAT(MarkedLines(ListSerialPorts()), ElementsAreArray(row.expected));
        m_Registry.Delete();
        EXPECT_THAT(MarkedLines(ListSerialPorts()), IsEmpty());
    }
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
    EXPECT_THAT(MarkedLines(ListHidDevices()), testing::UnorderedElementsAre(scanner, other));
    EXPECT_THAT(MarkedLines(DiscoveredHidScanners()), ElementsAre(scanner));
    m_Registry.Delete();
    EXPECT_THAT(MarkedLines(ListHidDevices()), IsEmpty());
}

// What discovery passes over must still be told apart at the seam.
TEST_F(Discovery, TheSeamGivesEveryNameAndNoneForWhatIsMissing) {
    m_Registry.Write(
        {{"ACPI\\PNP0400\\QLT8", kPortsClass, "", "", {Text("PortName", "LPT7"), Number("PortNumber", 7)}, {}},
         {"ACPI\\PNP0501\\QLT9", kPortsClass, "", "", {Text("PortName", "COM239")}, {}}});
    EXPECT_TRUE(FindSerialPort(7).empty());
    EXPECT_EQ(FindSerialPort(239).size(), 1U);
    EXPECT_TRUE(FindSerialPort(23).empty());
    const auto set = TheDeviceTree().OpenSet(DeviceClass::Ports);
    ASSERT_NE(set, nullptr);
    size_t index = 0;
    while (set->SelectDevice(index) && set->DeviceId() != "ACPI\\PNP0400\\QLT8") ++index;
    ASSERT_TRUE(set->SelectDevice(index));
    EXPECT_EQ(set->ReadKeyValue("PortName").text, "LPT7");
    EXPECT_EQ(set->ReadKeyValue("PortNumber").kind, KeyValue::Kind::Number);
    EXPECT_EQ(set->ReadKeyValue("PortNumber").number, 7U);
    EXPECT_EQ(set->ReadKeyValue("Missing").kind, KeyValue::Kind::None);
    EXPECT_EQ(set->ReadProperty(DeviceProperty::Manufacturer), "");
    EXPECT_EQ(set->SelectInterface(0), InterfaceStep::End);
}

TEST(DiscoveryOfParents, TheParentHasAnIdOfItsOwn) {
    if (test::IsUnderWine()) GTEST_SKIP() << "Wine doesn't tell the parent of a device";
    const auto set = TheDeviceTree().OpenSet(DeviceClass::HidInterface);
    ASSERT_NE(set, nullptr);
    if (!set->SelectDevice(0)) GTEST_SKIP() << "the machine has no HID device";
    EXPECT_NE(set->ParentId(), "");
    EXPECT_NE(set->ParentId(), set->DeviceId());
}

}  // namespace
}  // namespace quillet
