// SPDX-License-Identifier: MIT
// A HID scanner in a process of its own: what the benchmarks of a barcode's road are measured against.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace quillet::bench {

inline constexpr size_t kReportSize = 64;

// A report as the scanner sends it: a piece of a barcode, and whether more follows.
inline bool IsLastReport(const uint8_t* report) {
    return report[63] == 0;
}

// Runs in this program's child, which the last of its arguments names. Sends what is asked for to whoever has connected
// last. Exit status for main.
int RunDevice(const std::string& socketPath, int orders);

// The child, registered as a scanner that every host of this process finds. One a process.
class DeviceProcess {
  public:
    // Gives this process devices of its own. Throws std::system_error.
    explicit DeviceProcess(const char* program);
    ~DeviceProcess();
    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    // Connects like a host that opens the device. A descriptor of the caller's; reads wait.
    int Connect() const;
    // Has so many barcodes sent, each of so many reports, as fast as the connection takes them.
    void Order(uint32_t barcodes, uint32_t reports) const;

  private:
    std::string m_Directory;
    std::string m_SocketPath;
    int m_Orders = -1;
    pid_t m_Child = -1;
};

}  // namespace quillet::bench
