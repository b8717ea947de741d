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

inline constexpr bool IsSerial(uint32_t linkType) {
    return linkType == LinkSerial || linkType == LinkVirtualSerial;
}

struct LinkKey {
    uint32_t deviceType = DeviceUnknown;
    uint32_t linkType = LinkNone;
    uint32_t port = 0;  // of a serial link

    // Under which the link is listed: the port of a serial link; one number for every USB link of a device type;
    // kNoLinkNumber if the key stands for no link.
    int32_t Number() const {
        if (IsSerial(linkType)) return static_cast<int32_t>(port);
        return deviceType < DeviceBluetooth ? static_cast<int32_t>(deviceType) + 128 : kNoLinkNumber;
    }
};

}  // namespace quillet
