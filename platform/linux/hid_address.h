// SPDX-License-Identifier: MIT
// Where the kernel has a HID device: what stands for it from plug to plug, while its node gets a new number.
#pragma once

#include <optional>
#include <string>

namespace quillet::platform {

// Written as a path, "hid:<vendor>:<product>:<kind>:<place>", such as hid:18D1:010B:phys:usb-0000:00:14.0-3/input0.
struct HidAddress {
    enum class Kind {
        Phys,  // the place on the bus
        Uniq,  // the device's own serial number or address
        Node   // the name of its node, where nothing better tells
    };
    std::string vendor;  // four digits, upper case; product too
    std::string product;
    Kind kind = Kind::Node;
    std::string place;
};

std::string PathOf(const HidAddress& address);
// Nothing for a text that is no such path.
std::optional<HidAddress> ReadHidPath(const std::string& path);

// Asks an open hidraw node for its identity and, for Phys, its place: its number may have been given to another device
// between the look and the open. True also where the node doesn't answer.
bool IsAtAddress(int fd, const HidAddress& address) noexcept;

}  // namespace quillet::platform
