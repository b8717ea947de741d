#include "library/devices_directory.h"

#include "platform/device_side.h"

namespace quillet::tests {

// The one registry is all processes'; devices of different tests differ by their port.
std::string DevicesDirectory() {
    return platform::DeviceRegistration::UserDirectory();
}

}  // namespace quillet::tests
