// SPDX-License-Identifier: MIT
#include "platform/linux/kernel_devices.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "platform/linux/small_file.h"

namespace quillet::platform {
namespace {

// The numbers of a kind of tty: <prefix>0 is the port COM<firstPort>, and so on for kTtysOfAKind of them.
struct TtyKind {
    std::string_view prefix;
    uint32_t firstPort;
    bool hasPhantoms;  // nodes without hardware, of type 0
};

constexpr uint32_t kTtysOfAKind = 32;
constexpr std::array<TtyKind, 3> kTtyKinds = {{{"ttyS", 1, true}, {"ttyUSB", 33, false}, {"ttyACM", 65, false}}};
constexpr std::string_view kPortPrefix = "COM";

// A USB device lies this many folders above a tty's "device" at most: ttyACM one, ttyUSB two.
constexpr int kUsbLevels = 3;

// A number as the kernel writes it: digits alone, no zero in front.
std::optional<uint32_t> PlainNumber(std::string_view digits) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole && (digits.size() == 1 || digits.front() != '0') ? std::optional(value) : std::nullopt;
}

std::optional<uint32_t> NumberBehind(std::string_view prefix, std::string_view text) {
    return text.starts_with(prefix) ? PlainNumber(text.substr(prefix.size())) : std::nullopt;
}

struct NumberedTty {
    uint32_t port;
    const TtyKind* kind;
    std::string name;
};

std::optional<NumberedTty> ReadTtyName(std::string_view name) {
    for (const TtyKind& kind : kTtyKinds) {
        const auto number = NumberBehind(kind.prefix, name);
        if (number && *number < kTtysOfAKind) return NumberedTty{kind.firstPort + *number, &kind, std::string(name)};
    }
    return std::nullopt;
}

// Texts of a device become parts of an instance ID, whose parts a backslash separates.
std::string AsIdPart(std::string text) {
    for (char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || c == '\\') c = '_';
    }
    return text;
}

std::string UpperAscii(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

// The folder of the USB device that a tty belongs to, relative to the class folder; empty if it isn't on USB.
std::string UsbFolder(int classFolder, const std::string& tty, std::string& vendor) {
    std::string folder = tty + "/device";
    for (int level = 0; level < kUsbLevels; ++level) {
        folder += "/..";
        vendor = ReadAttribute(classFolder, folder + "/idVendor");
        if (!vendor.empty()) return folder + "/";
    }
    return {};
}

// A USB device without a serial number is told by its place on the bus, which is the same after every restart.
std::string UsbSerial(int classFolder, const std::string& usb, const std::string& bus) {
    const std::string serial = ReadAttribute(classFolder, usb + "serial");
    return serial.empty() ? bus + "-" + ReadAttribute(classFolder, usb + "devpath") : serial;
}

void DescribeUsbPort(int classFolder, const std::string& usb, const std::string& vendor, FoundDevice& device) {
    const std::string bus = ReadAttribute(classFolder, usb + "busnum");
    const std::string product = ReadAttribute(classFolder, usb + "idProduct");
    device.instanceId = "USB\\VID_" + UpperAscii(vendor) + "&PID_" + UpperAscii(product) + "\\" +
                        AsIdPart(UsbSerial(classFolder, usb, bus));
    device.parentId = "USB\\ROOT_HUB\\" + bus;
    device.description = ReadAttribute(classFolder, usb + "product");
    device.manufacturer = ReadAttribute(classFolder, usb + "manufacturer");
}

FoundDevice DescribePort(const LinuxRoots& roots, int classFolder, const NumberedTty& tty) {
    FoundDevice device;
    const std::string number = std::to_string(tty.port);
    device.portName = std::string(kPortPrefix) + number;
    device.node = roots.dev + "/" + tty.name;
    std::string vendor;
    const std::string usb = UsbFolder(classFolder, tty.name, vendor);
    if (usb.empty()) {
        device.instanceId = "ACPI\\PNP0501\\" + number;
    } else {
        DescribeUsbPort(classFolder, usb, vendor, device);
    }
    return device;
}

bool IsPhantom(int classFolder, const NumberedTty& tty) {
    return tty.kind->hasPhantoms && ReadAttribute(classFolder, tty.name + "/type") == "0";
}

// A value out of the KEY=value lines of a uevent file.
std::string UeventValue(std::string_view uevent, std::string_view key) {
    while (!uevent.empty()) {
        const std::string_view line = uevent.substr(0, uevent.find('\n'));
        if (line.starts_with(key) && line.substr(key.size()).starts_with('=')) {
            return std::string(line.substr(key.size() + 1));
        }
        uevent.remove_prefix(std::min(uevent.size(), line.size() + 1));
    }
    return {};
}

// What a hidraw device's uevent file tells.
struct HidNode {
    std::string name;  // such as hidraw3
    bool isBluetooth = false;
    std::string vendor;  // four digits, upper case; product too
    std::string product;
    std::string phys;
    std::string uniq;
    std::string description;

    bool HasIdentity(const std::string& itsVendor, const std::string& itsProduct) const {
        return vendor == itsVendor && product == itsProduct;
    }
};

// HID_ID is <bus>:<vendor>:<product> in 4, 8 and 8 digits; the last 4 of vendor and product count.
bool ReadHidId(const std::string& hidId, HidNode& node) {
    constexpr size_t kSize = 22;
    if (hidId.size() != kSize || hidId[4] != ':' || hidId[13] != ':') return false;
    node.isBluetooth = hidId.starts_with("0005");
    node.vendor = UpperAscii(hidId.substr(9, 4));
    node.product = UpperAscii(hidId.substr(18, 4));
    return true;
}

// Nothing for a device that tells no identity, as one that is just going away.
std::optional<HidNode> ReadHidNode(int classFolder, std::string name) {
    const std::string uevent = ReadAttribute(classFolder, name + "/device/uevent");
    HidNode node;
    if (!ReadHidId(UeventValue(uevent, "HID_ID"), node)) return std::nullopt;
    node.name = std::move(name);
    node.phys = UeventValue(uevent, "HID_PHYS");
    node.uniq = UeventValue(uevent, "HID_UNIQ");
    node.description = UeventValue(uevent, "HID_NAME");
    return node;
}

// Their names, in the order of their numbers.
std::vector<std::string> HidrawNames(Directory& folder) {
    std::vector<std::pair<uint32_t, std::string>> found;
    while (const dirent* entry = folder.IsOpen() ? folder.Next() : nullptr) {
        if (const auto number = NumberBehind("hidraw", entry->d_name)) found.emplace_back(*number, entry->d_name);
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names(found.size());
    std::transform(found.begin(), found.end(), names.begin(), [](auto& node) { return std::move(node.second); });
    return names;
}

// Not over Bluetooth, where HID_PHYS is the adapter's address, the same for every device.
bool TellsItsPlace(const HidNode& node, const std::vector<HidNode>& all) {
    const auto isThere = [&](const HidNode& other) {
        return other.phys == node.phys && other.HasIdentity(node.vendor, node.product);
    };
    return !node.isBluetooth && !node.phys.empty() && std::count_if(all.begin(), all.end(), isThere) == 1;
}

HidAddress AddressOf(const HidNode& node, const std::vector<HidNode>& all) {
    if (TellsItsPlace(node, all)) return {node.vendor, node.product, HidAddress::Kind::Phys, node.phys};
    if (!node.uniq.empty()) return {node.vendor, node.product, HidAddress::Kind::Uniq, node.uniq};
    return {node.vendor, node.product, HidAddress::Kind::Node, node.name};
}

// Only what the address names is compared, whichever kind the device would get by now.
bool IsAt(const HidNode& node, const HidAddress& address) {
    if (!node.HasIdentity(address.vendor, address.product)) return false;
    switch (address.kind) {
        case HidAddress::Kind::Phys: return node.phys == address.place;
        case HidAddress::Kind::Uniq: return node.uniq == address.place;
        default: return node.name == address.place;
    }
}

std::string InstanceIdOf(const HidNode& node) {
    return "HID\\VID_" + node.vendor + "&PID_" + node.product + "\\" +
           AsIdPart(node.uniq.empty() ? node.name : node.uniq);
}

std::string HidClassFolder(const LinuxRoots& roots) {
    return roots.sys + "/class/hidraw";
}

}  // namespace

FoundDevices FindKernelPorts(const LinuxRoots& roots) {
    Directory folder = Directory::Open(roots.sys + "/class/tty");
    std::vector<NumberedTty> ttys;
    while (const dirent* entry = folder.IsOpen() ? folder.Next() : nullptr) {
        auto tty = ReadTtyName(entry->d_name);
        if (tty && !IsPhantom(folder.Fd(), *tty)) ttys.push_back(std::move(*tty));
    }
    std::sort(ttys.begin(), ttys.end(), [](const NumberedTty& a, const NumberedTty& b) { return a.port < b.port; });
    FoundDevices devices;
    for (const NumberedTty& tty : ttys) devices.push_back(DescribePort(roots, folder.Fd(), tty));
    return devices;
}

bool IsKernelPortListed(const LinuxRoots& roots, const std::string& portName) {
    const std::string tty = TtyOfPortName(portName);
    const auto found = ReadTtyName(tty);
    const std::string folder = roots.sys + "/class/tty/";
    struct stat ignored {};
    if (!found) return false;
    if (::lstat((folder + tty).c_str(), &ignored) != 0) {
        ThrowIfExhausted();
        return false;
    }
    return !found->kind->hasPhantoms || ReadAttribute(AT_FDCWD, folder + tty + "/type") != "0";
}

FoundDevices FindKernelHidDevices(const LinuxRoots& roots) {
    Directory folder = Directory::Open(HidClassFolder(roots));
    std::vector<HidNode> nodes;
    for (std::string& name : HidrawNames(folder)) {
        if (auto node = ReadHidNode(folder.Fd(), std::move(name))) nodes.push_back(std::move(*node));
    }
    FoundDevices devices;
    for (const HidNode& node : nodes) {
        FoundDevice device;
        device.node = roots.dev + "/" + node.name;
        device.interfacePath = PathOf(AddressOf(node, nodes));
        device.instanceId = InstanceIdOf(node);
        device.description = node.description;
        device.manufacturer = ReadAttribute(folder.Fd(), node.name + "/device/../../manufacturer");
        devices.push_back(std::move(device));
    }
    return devices;
}

std::string KernelHidNodeAt(const LinuxRoots& roots, const HidAddress& address) {
    Directory folder = Directory::Open(HidClassFolder(roots));
    for (std::string& name : HidrawNames(folder)) {
        const auto node = ReadHidNode(folder.Fd(), std::move(name));
        if (node && IsAt(*node, address)) return roots.dev + "/" + node->name;
    }
    return {};
}

std::string KernelHidInstanceId(const LinuxRoots& roots, const std::string& name) {
    auto node = ReadHidNode(AT_FDCWD, HidClassFolder(roots) + "/" + name);
    if (!node) return {};
    node->name = name;
    return InstanceIdOf(*node);
}

std::string TtyOfPortName(const std::string& portName) {
    const auto port = NumberBehind(kPortPrefix, portName);
    for (const TtyKind& kind : kTtyKinds) {
        if (port && *port >= kind.firstPort && *port < kind.firstPort + kTtysOfAKind) {
            return std::string(kind.prefix) + std::to_string(*port - kind.firstPort);
        }
    }
    return {};
}

}  // namespace quillet::platform
