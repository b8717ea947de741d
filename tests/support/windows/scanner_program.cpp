// SPDX-License-Identifier: MIT
// Registry keys of scanners; HID devices get theirs from the system. See tests/wine/scanner.
#include <mutex>

#include "platform/windows/windows_device_access.h"
#include "support/eventually.h"
#include "support/virtual_scanner.h"
#include "support/windows/device_keys.h"
#include "transport/port_discovery.h"

namespace quillet::test {
namespace {

constexpr const char* kInstanceRoots[] = {"USB\\VID_18D1&PID_0009\\", "ACPI\\PNP0501\\"};

// A test that was killed leaves its keys. The one that runs next, alone with its devices, is to find none.
void DeleteKeysOfOthers() {
    for (const std::string root : kInstanceRoots) {
        ::RegDeleteTreeA(HKEY_LOCAL_MACHINE, ("System\\CurrentControlSet\\Enum\\" + root).c_str());
    }
}

// Nothing tells when the driver has seen the device, nor when the name in the list leads to it.
bool IsHidScannerThere() {
    const auto found = DiscoveredHidScanners();
    return !found.empty() &&
           platform::WindowsDeviceAccess().Open(found[0].devicePath, platform::Sharing::Shared).file != nullptr;
}

}  // namespace

std::shared_ptr<void> ListedForHosts(const ScannerOptions& options) {
    static std::once_flag once;
    std::call_once(once, DeleteKeysOfOthers);
    if (options.link == ScannerLink::Usb) {
        EXPECT_TRUE(Eventually(IsHidScannerThere));
        return nullptr;
    }
    const bool isVirtual = options.link == ScannerLink::VirtualSerial;
    const std::string port = std::to_string(options.port);
    const std::string instance = kInstanceRoots[isVirtual ? 0 : 1] + (isVirtual ? options.serialNumber : port);
    auto keys = std::make_shared<DeviceKeys>();
    keys->Write(
        {{instance.c_str(), kPortsClass, "Virtual barcode scanner", "Quillet", {Text("PortName", "COM" + port)}, {}}});
    return keys;
}

}  // namespace quillet::test
