// SPDX-License-Identifier: MIT
// A serial port with a scanner at its other end.
#include <windows.h>
#include <cstdlib>
#include <optional>

#include "device_test.h"
#include "platform/windows/windows_device_access.h"
#include "support/process.h"
#include "support/virtual_scanner.h"
#include "transport/port_discovery.h"

namespace quillet::test {
using namespace platform;
namespace {

struct Port {
    static constexpr bool kIsSerial = true;

    OpenResult Plug() const { return WindowsDeviceAccess().Open(path, Sharing::Exclusive); }
    void Send(const std::string& bytes) { scanner->Plain(bytes); }

    std::string path;
    std::optional<VirtualScanner> scanner;
};

class SerialPort : public DeviceTest<Port> {
  protected:
    void SetUp() override {
        if (std::getenv("QUILLET_TEST_SCANNER") == nullptr) {
            GTEST_SKIP() << "no virtual scanner here: run by tests/wine/with-prefix";
        }
        // Other processes that run these cases have other numbers.
        const int number = static_cast<int>(140 + ProcessId() / 4 % 50);
        m_FarEnd.scanner.emplace(ScannerOptions{ScannerLink::Serial, number, "1"});
        const auto found = FindSerialPort(static_cast<uint32_t>(number));
        ASSERT_EQ(found.size(), 1U);
        m_FarEnd.path = found[0].devicePath;
        Plug();
    }
};

TEST_F(SerialPort, ABurstEndsWhenTheLineIsQuiet) {
    ExpectThatABurstEndsWhenTheLineIsQuiet();
}

TEST_F(SerialPort, KeepsTheSettings) {
    SerialSettings settings;
    ASSERT_EQ(m_Device->GetSerialSettings(settings), 0U);
    EXPECT_EQ(settings.byteSize, 8);
    for (const uint32_t speed : {9600U, 115200U}) {
        settings.baudRate = speed;
        settings.stopBits = speed == 9600 ? 0 : 2;
        ExpectThatItKeeps(settings);
    }
    settings.byteSize = 99;
    EXPECT_NE(m_Device->SetSerialSettings(settings), 0U);
}

// A port of the machine itself, with anything or nothing at its other end.
class RealPort : public DeviceTest<Port> {
  protected:
    void SetUp() override {
        if (IsUnderWine()) GTEST_SKIP() << "Wine shares a COM port, and has neither parity nor odd speeds";
        const char* name = std::getenv("QUILLET_TEST_PORT");
        if (name == nullptr) GTEST_SKIP() << "QUILLET_TEST_PORT names no port, such as COM5";
        m_FarEnd.path = std::string("\\\\.\\") + name;
        Plug();
    }
};

TEST_F(RealPort, IsForOneAtATimeAndTakesParityAndOddSpeeds) {
    EXPECT_EQ(m_FarEnd.Plug().error, DWORD{ERROR_ACCESS_DENIED});
    SerialSettings settings;
    ASSERT_EQ(m_Device->GetSerialSettings(settings), 0U);
    settings.baudRate = 123457;
    settings.parity = 2;
    ExpectThatItKeeps(settings);
}

}  // namespace
}  // namespace quillet::test
