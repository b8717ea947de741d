// SPDX-License-Identifier: MIT
#include "transport/port_discovery.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "foundation/format.h"
#include "foundation/text.h"
#include "platform/device_tree.h"

namespace quillet {
namespace {

using platform::DeviceClass;
using platform::DeviceProperty;
using platform::DeviceSet;
using platform::InterfaceStep;
using platform::KeyValue;
using platform::QuickLook;

// A port that stands in several classes is taken from the first.
constexpr std::array kSerialClasses = {DeviceClass::Ports, DeviceClass::Modem, DeviceClass::ComPortInterface,
                                       DeviceClass::ModemInterface};

constexpr std::string_view kUsbPrefix = "USB\\";

std::string ComName(uint32_t number) {
    return Format("COM%d", number);
}

std::string ReadPortName(DeviceSet& set) {
    for (const char* valueName : {"PortName", "PortNumber"}) {
        KeyValue value = set.ReadKeyValue(valueName);
        if (value.kind == KeyValue::Kind::Number) return ComName(value.number);
        if (value.kind == KeyValue::Kind::Text && !value.text.empty()) return std::move(value.text);
    }
    return {};
}

std::string ReadPortSerial(DeviceSet& set, const PortDescriptor& port) {
    std::string serial = ExtractPortSerial(port.instanceId);
    if (serial.empty()) serial = ExtractPortSerial(ToUpperAscii(set.ParentId()));
    if (serial.empty() && port.portName.size() > 3) serial = port.portName.substr(3);
    return serial;
}

PortDescriptor DescribePort(DeviceSet& set, std::string name) {
    PortDescriptor port;
    port.devicePath = name.starts_with("COM") ? "\\\\.\\" + name : name;
    port.portName = std::move(name);
    port.description = set.ReadProperty(DeviceProperty::Description);
    port.manufacturer = set.ReadProperty(DeviceProperty::Manufacturer);
    port.instanceId = ToUpperAscii(set.DeviceId());
    port.linkType = port.instanceId.starts_with(kUsbPrefix) ? LinkVirtualSerial : LinkSerial;
    port.portSerial = ReadPortSerial(set, port);
    ParseUsbId(port.instanceId, port);
    return port;
}

bool HasPort(const std::vector<PortDescriptor>& ports, const std::string& name) {
    return std::any_of(ports.begin(), ports.end(), [&](const PortDescriptor& port) { return port.portName == name; });
}

// All ports, or the one of a name. A name costs one look and everything else about a port several, so the
// question comes before them.
std::vector<PortDescriptor> GatherPorts(const std::string* onlyName) {
    std::vector<PortDescriptor> ports;
    for (const DeviceClass deviceClass : kSerialClasses) {
        const auto set = platform::TheDeviceTree().OpenSet(deviceClass);
        if (set == nullptr) break;
        for (size_t index = 0; set->SelectDevice(index); ++index) {
            std::string name = ReadPortName(*set);
            // Parallel ports share the class of the serial ones.
            if (name.empty() || name.find("LPT") != std::string::npos || HasPort(ports, name)) continue;
            if (onlyName != nullptr && name != *onlyName) continue;
            ports.push_back(DescribePort(*set, std::move(name)));
            if (onlyName != nullptr) return ports;
        }
    }
    return ports;
}

bool SameHid(const PortDescriptor& left, const PortDescriptor& right) {
    return left.devicePath == right.devicePath && left.vendorId == right.vendorId && left.productId == right.productId;
}

bool HasUsbId(const PortDescriptor& port, UsbId id) {
    return port.vendorId == id.vendor && port.productId == id.product;
}

bool IsHidScannerId(const std::string& instanceId) {
    PortDescriptor port;
    ParseUsbId(ToUpperAscii(instanceId), port);
    return HasUsbId(port, kHidDeviceId);
}

void AddHid(DeviceSet& set, const UsbId* only, std::vector<PortDescriptor>& ports) {
    PortDescriptor port;
    std::string id;
    if (!set.InterfacePath(port.devicePath) || !set.InterfaceDeviceId(id)) return;
    id = ToUpperAscii(std::move(id));
    ParseUsbId(id, port);
    if (only != nullptr && !HasUsbId(port, *only)) return;
    const auto same = [&](const PortDescriptor& other) { return SameHid(port, other); };
    if (std::any_of(ports.begin(), ports.end(), same)) return;
    port.linkType = LinkUsbHid;
    port.manufacturer = set.ReadProperty(DeviceProperty::Manufacturer);
    port.description = set.ReadProperty(DeviceProperty::Description);
    port.portSerial = id.substr(id.rfind('\\') + 1);  // the whole id if it has no backslash
    ports.push_back(std::move(port));
}

// All HID interfaces, or those of one identity. A till has dozens, and the question is asked ten times a second, so the
// texts of the others aren't read.
//
// Devices and interfaces are walked side by side with one index. Where a device has several interfaces the
// two lists shift against each other, which the comparison of paths makes good.
std::vector<PortDescriptor> GatherHids(const UsbId* only) {
    std::vector<PortDescriptor> ports;
    const auto set = platform::TheDeviceTree().OpenSet(DeviceClass::HidInterface);
    if (set == nullptr) return ports;
    for (size_t index = 0; set->SelectDevice(index); ++index) {
        const InterfaceStep step = set->SelectInterface(index);
        if (step == InterfaceStep::End) break;
        if (step == InterfaceStep::Selected) AddHid(*set, only, ports);
    }
    return ports;
}

int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

struct TagNumber {
    bool found;
    uint16_t number;
};

// The up to four hexadecimal digits behind the first of the two tags that the id has.
TagNumber NumberBehind(std::string_view id, const std::array<std::string_view, 2>& tags) {
    size_t at = id.find(tags[0]);
    if (at == std::string_view::npos) at = id.find(tags[1]);
    if (at == std::string_view::npos) return {false, 0};
    unsigned number = 0;
    for (const char character : id.substr(at + tags[0].size(), 4)) {  // both tags have the same size
        const int digit = HexDigit(character);
        if (digit < 0) break;
        number = number * 16 + static_cast<unsigned>(digit);
    }
    return {true, static_cast<uint16_t>(number)};
}

std::string ExtractUsbPortSerial(const std::string& id) {
    const size_t plus = id.rfind('+');
    if (plus == std::string::npos) return {};
    const size_t end = id.find('\\', plus);
    return end == std::string::npos ? std::string{} : id.substr(plus + 1, end - plus - 1);
}

}  // namespace

// An ordinary USB id has no "+" and gives nothing, whatever serial number it ends in: the digits of the
// port's name then stand for the port.
std::string ExtractPortSerial(const std::string& instanceId) {
    if (instanceId.starts_with(kUsbPrefix)) return ExtractUsbPortSerial(instanceId);
    const size_t begin = instanceId.rfind('\\') + 1;
    size_t end = instanceId.size();
    const size_t underscore = instanceId.find('_', begin);
    if (underscore != std::string::npos && underscore + 3 == end) end = underscore;
    const std::string serial = instanceId.substr(begin, end - begin);
    return serial.find('&') == std::string::npos ? serial : std::string{};
}

void ParseUsbId(const std::string& instanceId, PortDescriptor& port) {
    const TagNumber vendor = NumberBehind(instanceId, {"VID_", "VEN_"});
    const TagNumber product = NumberBehind(instanceId, {"PID_", "DEV_"});
    port.vendorIdFound = vendor.found;
    port.vendorId = vendor.number;
    port.productIdFound = product.found;
    port.productId = product.number;
}

std::vector<PortDescriptor> ListSerialPorts() {
    return GatherPorts(nullptr);
}

std::vector<PortDescriptor> FindSerialPort(uint32_t number) {
    const std::string name = ComName(number);
    return GatherPorts(&name);
}

std::vector<PortDescriptor> ListHidDevices() {
    return GatherHids(nullptr);
}

std::vector<PortDescriptor> FilterByUsbId(std::vector<PortDescriptor> ports, UsbId id) {
    std::erase_if(ports, [=](const PortDescriptor& port) { return !HasUsbId(port, id); });
    return ports;
}

std::vector<PortDescriptor> DiscoveredHidScanners() {
    return GatherHids(&kHidDeviceId);
}

bool IsSerialPortPresent(uint32_t number, bool before) {
    switch (platform::TheDeviceTree().LookFor(DeviceClass::Ports, ComName(number)).outcome) {
        case QuickLook::Outcome::Found: return true;
        case QuickLook::Outcome::Failed: return before;
        case QuickLook::Outcome::NotFound: break;
    }
    return !FindSerialPort(number).empty();
}

bool IsHidScannerPresent(std::string& path, bool before) {
    const QuickLook look = platform::TheDeviceTree().LookFor(DeviceClass::HidInterface, path);
    if (look.outcome == QuickLook::Outcome::Failed) return before;
    if (look.outcome == QuickLook::Outcome::Found && IsHidScannerId(look.deviceId)) return true;
    std::vector<PortDescriptor> found = DiscoveredHidScanners();
    if (found.empty()) return false;
    path = std::move(found.front().devicePath);
    return true;
}

DiscoveredLists DiscoveredPorts() {
    DiscoveredLists lists;
    lists.serial = FilterByUsbId(ListSerialPorts(), kVirtualSerialPortId);
    lists.usb = DiscoveredHidScanners();
    return lists;
}

}  // namespace quillet
