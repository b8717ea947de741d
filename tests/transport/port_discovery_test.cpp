// SPDX-License-Identifier: MIT
#include "transport/port_discovery.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/fake_device_tree.h"

namespace quillet::test {
namespace {

using platform::DeviceClass;
using platform::InterfaceStep;
using platform::KeyValue;

std::vector<std::string> Names(const std::vector<PortDescriptor>& ports) {
    std::vector<std::string> names;
    for (const PortDescriptor& port : ports) names.push_back(port.portName);
    return names;
}

std::vector<std::string> Paths(const std::vector<PortDescriptor>& ports) {
    std::vector<std::string> paths;
    for (const PortDescriptor& port : ports) paths.push_back(port.devicePath);
    return paths;
}

TEST(PortDiscovery, NamesAPortByItsKey) {
    const KeyValue none;
    const struct {
        KeyValue portName, portNumber;
        const char* name;  // empty for a device that is no port
        const char* path;
    } cases[] = {
        {TextValue("COM3"), NumberValue(7), "COM3", "\\\\.\\COM3"},
        {none, NumberValue(7), "COM7", "\\\\.\\COM7"},
        {TextValue(""), TextValue("COM8"), "COM8", "\\\\.\\COM8"},
        {TextValue("MODEM A"), none, "MODEM A", "MODEM A"},
        {TextValue("LPT1"), none, "", ""},
        {TextValue("XLPT"), none, "", ""},
        {none, none, "", ""},
    };
    for (const auto& row : cases) {
        FakeDeviceTree tree;
        FakeTreeDevice device;
        device.portName = row.portName;
        device.portNumber = row.portNumber;
        tree.Plug(device);
        const auto ports = ListSerialPorts();
        ASSERT_EQ(ports.size(), *row.name == 0 ? 0u : 1u) << row.portName.text;
        if (ports.empty()) continue;
        EXPECT_EQ(ports[0].portName, row.name);
        EXPECT_EQ(ports[0].devicePath, row.path);
    }
}

TEST(PortDiscovery, ReadsAPortOutOfItsInstanceId) {
    const struct {
        std::string id, parentId, serial;
        uint32_t linkType;
        uint16_t vendor, product;
    } cases[] = {
        {"usb\\vid_18d1&pid_0009\\5&1", "USB\\ROOT_HUB\\1", "12", LinkVirtualSerial, 0x18D1, 0x0009},
        {"ACPI\\PNP0501\\1", "", "1", LinkSerial, 0, 0},
        {"PCI\\VEN_8086&DEV_1C3D\\3&11&0", "", "12", LinkSerial, 0x8086, 0x1C3D},
        // The parent answers where the port's own id can't.
        {"X\\VID_0403&PID_6001\\3&1", "Y\\Z\\7", "7", LinkSerial, 0x0403, 0x6001},
        {"X\\VID_12", "", "VID", LinkSerial, 0x12, 0},
        {"X\\VID_G&PID_1ZFF\\A", "", "A", LinkSerial, 0, 1},
    };
    for (const auto& row : cases) {
        FakeDeviceTree tree;
        FakeTreeDevice device = SerialPortDevice(12);
        device.id = row.id;
        device.parentId = row.parentId;
        tree.Plug(device);
        const auto ports = ListSerialPorts();
        ASSERT_EQ(ports.size(), 1u);
        EXPECT_EQ(ports[0].portSerial, row.serial) << row.id;
        EXPECT_EQ(ports[0].linkType, row.linkType) << row.id;
        EXPECT_EQ(ports[0].vendorId, row.vendor) << row.id;
        EXPECT_EQ(ports[0].productId, row.product) << row.id;
    }
}

TEST(PortDiscovery, CutsTheSerialOutOfAnId) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"PLAIN", "PLAIN"},
        {"A\\B\\", ""},
        {"A&B\\C_D\\SN_00", "SN"},
        {"A\\B\\SN_000", "SN_000"},  // not three characters before the end
        {"A\\B\\S_N_00", "S_N_00"},  // only the first one counts
        {"A\\B\\3&1", ""},
        {"A\\B\\SN_&0", "SN"},  // behind the end that counts
        {"USB\\A+B+SERIAL\\1", "SERIAL"},
        {"USB\\A\\B+SERIAL", ""},
        {"USB\\A\\SERIAL", ""},
        {"FTDIBUS\\A+B+SERIAL\\0000", "0000"},
    };
    for (const auto& [id, serial] : cases) EXPECT_EQ(ExtractPortSerial(id), serial) << id;
}

TEST(PortDiscovery, TakesAPortFromTheFirstClassThatNamesIt) {
    FakeDeviceTree tree;
    FakeTreeDevice second = SerialPortDevice(3, DeviceClass::ComPortInterface);
    second.description = "second";
    FakeTreeDevice first = SerialPortDevice(3);
    first.description = "first";
    first.manufacturer = "maker";
    tree.Plug(second);
    tree.Plug(SerialPortDevice(5, DeviceClass::ModemInterface));
    tree.Plug(SerialPortDevice(4, DeviceClass::Modem));
    tree.Plug(first);
    const auto ports = ListSerialPorts();
    EXPECT_EQ(Names(ports), (std::vector<std::string>{"COM3", "COM4", "COM5"}));
    EXPECT_EQ(ports[0].description, "first");
    EXPECT_EQ(ports[0].manufacturer, "maker");
    ASSERT_EQ(FindSerialPort(3).size(), 1u);
    EXPECT_EQ(FindSerialPort(3)[0].description, "first");
    EXPECT_EQ(FindSerialPort(5).size(), 1u);
    EXPECT_TRUE(FindSerialPort(33).empty());

    tree.FailClass(DeviceClass::ComPortInterface);  // the classes behind it aren't tried either
    EXPECT_EQ(Names(ListSerialPorts()), (std::vector<std::string>{"COM3", "COM4"}));
}

TEST(PortDiscovery, WalksHidDevicesAndInterfacesSideBySide) {
    FakeDeviceTree tree;
    FakeTreeDevice skipped = HidDevice("skipped"), pathless = HidDevice("pathless"), idless = HidDevice("idless"),
                   sameAgain = HidDevice("one"), otherIds = HidDevice("one", "VID_1&PID_2");
    skipped.interfaceStep = InterfaceStep::Failed;
    pathless.interfacePath.reset();
    idless.interfaceDeviceId.reset();
    FakeTreeDevice last = HidDevice("last");
    last.interfaceStep = InterfaceStep::End;
    for (const FakeTreeDevice& device : {skipped, pathless, idless, HidDevice("one"), sameAgain, otherIds,
                                         HidDevice("two"), last, HidDevice("never")}) {
        tree.Plug(device);
    }

    const auto ports = ListHidDevices();
    EXPECT_EQ(Paths(ports), (std::vector<std::string>{"one", "one", "two"}));
    EXPECT_EQ(ports[2].portSerial, "TWO");  // of the upper-case id
    EXPECT_EQ(ports[2].linkType, LinkUsbHid);
    EXPECT_EQ(ports[2].portName + ports[2].instanceId, "");

    tree.FailClass(DeviceClass::HidInterface);
    EXPECT_TRUE(ListHidDevices().empty());
}

TEST(PortDiscovery, KnowsScannersByBothIds) {
    FakeDeviceTree tree;
    EXPECT_TRUE(DiscoveredPorts().serial.empty() && DiscoveredPorts().usb.empty());
    tree.Plug(SerialPortDevice(1));
    tree.Plug(VirtualPortDevice(2));
    FakeTreeDevice hidIdOnSerial = VirtualPortDevice(3);
    hidIdOnSerial.id = "USB\\VID_18D1&PID_010B\\1";
    tree.Plug(hidIdOnSerial);
    tree.Plug(HidDevice("keyboard", "VID_18D1&PID_0009"));
    tree.Plug(HidDevice("foreign", "VID_18D2&PID_010B"));
    tree.Plug(HidDevice("scanner"));
    const DiscoveredLists lists = DiscoveredPorts();
    EXPECT_EQ(Names(lists.serial), std::vector<std::string>{"COM2"});
    EXPECT_EQ(lists.serial[0].portSerial, "2");
    EXPECT_EQ(Paths(lists.usb), std::vector<std::string>{"scanner"});
}

TEST(PortDiscovery, AsksForTheOneDeviceBeforeAllOfThem) {
    using platform::QuickLook;
    struct QuickTree : FakeDeviceTree {
        QuickLook LookFor(DeviceClass, const std::string& device) override {
            asked = device;
            return look;
        }
        QuickLook look;
        std::string asked;
    } tree;
    std::string path = "first";
    for (const bool before : {false, true}) {
        tree.look = {QuickLook::Outcome::Failed, {}};
        EXPECT_EQ(IsSerialPortPresent(3, before), before);
        EXPECT_EQ(tree.asked, "COM3");
        EXPECT_EQ(IsHidScannerPresent(path, before), before);
        EXPECT_EQ(tree.asked, "first");
        tree.look = {QuickLook::Outcome::Found, "HID\\Vid_18d1&Pid_010b\\1"};
        EXPECT_TRUE(IsSerialPortPresent(3, before) && IsHidScannerPresent(path, before));
    }
    EXPECT_EQ(tree.Looks(), 0u);

    tree.look.deviceId = "HID\\VID_18D1&PID_0009\\1";  // another device has the path by now
    EXPECT_FALSE(IsHidScannerPresent(path, true));
    tree.Plug(HidDevice("second"));
    EXPECT_TRUE(IsHidScannerPresent(path, false));
    EXPECT_EQ(path, "second");
    tree.look = {};
    EXPECT_FALSE(IsSerialPortPresent(3, true));
    tree.Plug(SerialPortDevice(3));
    EXPECT_TRUE(IsSerialPortPresent(3, false));
}

}  // namespace
}  // namespace quillet::test
