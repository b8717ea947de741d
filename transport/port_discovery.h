// SPDX-License-Identifier: MIT
// Which ports and HID devices the machine has, and which of them are scanners of this family. Every call asks
// the system afresh, opens no device, logs nothing and raises nothing; any thread may call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillet {

enum LinkType : uint32_t {
    LinkNone = 0,
    LinkSerial = 1,         // a serial port
    LinkVirtualSerial = 2,  // a serial port that lives on USB
    LinkUsbHid = 3
};

// One discovered device.
struct PortDescriptor {
    std::string portName;    // such as COM3; empty for HID devices
    std::string devicePath;  // what opens the device
    std::string description;
    std::string manufacturer;
    // Serial: the value for the connection string's "serialport". HID: the last part of the instance ID.
    std::string portSerial;
    std::string instanceId;  // upper case; empty for HID devices
    uint32_t linkType = LinkNone;
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    bool vendorIdFound = false;  // the instance ID has a vendor tag, whether or not its digits are good
    bool productIdFound = false;
};

struct UsbId {
    uint16_t vendor;
    uint16_t product;
};

// The identity of the scanners.
inline constexpr UsbId kVirtualSerialPortId{.vendor = 0x18D1, .product = 0x0009};
inline constexpr UsbId kHidDeviceId{.vendor = 0x18D1, .product = 0x010B};

struct DiscoveredLists {
    std::vector<PortDescriptor> serial;
    std::vector<PortDescriptor> usb;
};

// Every serial port, and every HID interface, without a filter.
std::vector<PortDescriptor> ListSerialPorts();
std::vector<PortDescriptor> ListHidDevices();
// Those whose vendor and product both match, in order.
std::vector<PortDescriptor> FilterByUsbId(std::vector<PortDescriptor> ports, UsbId id);
// The scanners: as virtual serial ports, and as HID devices.
DiscoveredLists DiscoveredPorts();
// The HID half of it, for whoever asks often.
std::vector<PortDescriptor> DiscoveredHidScanners();
// The ports named COM<number>.
std::vector<PortDescriptor> FindSerialPort(uint32_t number);

// Whether FindSerialPort or DiscoveredHidScanners would give any, for links that ask ten times a second: the one device
// is looked at first, and all of them only where it isn't found. `before` is the last answer, given again where the
// system has no descriptor or no memory for a look. `path` is that of the scanner to look at first, and becomes that of
// the one that was found.
bool IsSerialPortPresent(uint32_t number, bool before);
bool IsHidScannerPresent(std::string& path, bool before);

// Parts of an instance ID, given in upper case.
std::string ExtractPortSerial(const std::string& instanceId);
void ParseUsbId(const std::string& instanceId, PortDescriptor& port);

}  // namespace quillet
