// SPDX-License-Identifier: MIT
#include "platform/linux/hid_address.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <linux/hidraw.h>
#include <string_view>
#include <sys/ioctl.h>

namespace quillet::platform {
namespace {

constexpr std::string_view kPrefix = "hid:";
constexpr size_t kIdSize = 4;
constexpr std::array<std::string_view, 3> kKinds = {"phys", "uniq", "node"};  // in the order of HidAddress::Kind
constexpr size_t kPhysLimit = 256;                                            // the kernel's own texts are shorter

// Cuts the text up to the next colon off the front; without a colon, all of it.
std::string_view TakePart(std::string_view& rest) {
    const std::string_view part = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), part.size() + 1));
    return part;
}

// The kernel tells the numbers as signed ones of 16 bits.
bool IsNumber(const std::string& digits, int16_t number) noexcept {
    uint16_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return value == static_cast<uint16_t>(number);
}

}  // namespace

std::string PathOf(const HidAddress& address) {
    const std::string_view kind = kKinds[static_cast<size_t>(address.kind)];
    std::string path(kPrefix);
    path.append(address.vendor).append(":").append(address.product).append(":");
    return path.append(kind).append(":").append(address.place);
}

std::optional<HidAddress> ReadHidPath(const std::string& path) {
    std::string_view rest = path;
    if (!rest.starts_with(kPrefix)) return std::nullopt;
    rest.remove_prefix(kPrefix.size());
    HidAddress address;
    address.vendor = TakePart(rest);
    address.product = TakePart(rest);
    const auto kind = std::find(kKinds.begin(), kKinds.end(), TakePart(rest));
    if (address.vendor.size() != kIdSize || address.product.size() != kIdSize || kind == kKinds.end() || rest.empty()) {
        return std::nullopt;
    }
    address.kind = static_cast<HidAddress::Kind>(kind - kKinds.begin());
    address.place = rest;
    return address;
}

bool IsAtAddress(int fd, const HidAddress& address) noexcept {
    hidraw_devinfo info{};
    if (::ioctl(fd, HIDIOCGRAWINFO, &info) >= 0 &&
        !(IsNumber(address.vendor, info.vendor) && IsNumber(address.product, info.product))) {
        return false;
    }
    std::array<char, kPhysLimit> phys{};
    if (address.kind != HidAddress::Kind::Phys || ::ioctl(fd, HIDIOCGRAWPHYS(kPhysLimit - 1), phys.data()) < 0) {
        return true;
    }
    return address.place == phys.data();
}

}  // namespace quillet::platform
