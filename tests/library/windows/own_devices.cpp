// SPDX-License-Identifier: MIT
#include "library/own_devices.h"

namespace quillet::test {

// The one registry is all processes'; devices of different tests differ by their port.
std::string DevicesDirectory() {
    return {};
}

// Cases with devices run one after the other.
int OwnPort() {
    return 100;
}

}  // namespace quillet::test
