// SPDX-License-Identifier: MIT
// What a link is named by.
#pragma once

#include <cstdint>

#include "transport/port_discovery.h"

namespace quillet {

enum DeviceType : uint32_t {
    DeviceUnknown = 0,
    DeviceSerial = 1,
    DevicePosUsb = 2,
    DeviceUsb = 3,
    DeviceBluetooth = 4
};

inline constexpr int32_t kNoLinkNumber = 255;

struct LinkKey {
    uint32_t deviceType = DeviceUnknown;
    uint32_t linkType = LinkNone;
    uint32_t port = 0;  // of a kind of link that has port numbers

    // Under which the link is listed; kNoLinkNumber if the key stands for no link.
    int32_t Number() const;
};

}  // namespace quillet
