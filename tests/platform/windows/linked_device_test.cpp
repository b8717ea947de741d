// SPDX-License-Identifier: MIT
// A serial port with a scanner at its other end.
#include <windows.h>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "device_io.h"
#include "platform/thread.h"
#include "platform/windows/windows_device_access.h"
#include "support/process.h"
#include "support/virtual_scanner.h"
#include "transport/port_discovery.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kReadSize = 4095;
constexpr uint32_t kQuietMs = 25;

class SerialPort : public testing::Test {
  protected:
    void SetUp() override {
        if (std::getenv("QUILLET_TEST_SCANNER") == nullptr) {
            GTEST_SKIP() << "no virtual scanner here: run by tests/wine/with-prefix";
        }
        // Other processes that run these cases have other numbers.
        const int number = static_cast<int>(140 + test::ProcessId() / 4 % 50);
        m_Scanner.emplace(test::ScannerOptions{test::ScannerLink::Serial, number, "1"});
        const auto found = FindSerialPort(static_cast<uint32_t>(number));
        ASSERT_EQ(found.size(), 1U);
        OpenResult opened = WindowsDeviceAccess().Open(found[0].devicePath, Sharing::Exclusive);
        ASSERT_NE(opened.file, nullptr) << opened.error;
        m_Device = std::move(opened.file);
        m_Reader = m_Device->NewReader();
    }

    ReadOutcome Read(uint32_t size) { return ReadFrom(*m_Reader, m_Stop, size); }

    std::optional<test::VirtualScanner> m_Scanner;
    StopSignal m_Stop;
    std::unique_ptr<DeviceFile> m_Device;
    std::unique_ptr<DeviceReader> m_Reader;
};

TEST_F(SerialPort, ABurstEndsWhenTheLineIsQuiet) {
    constexpr auto kLongQuiet = 1500ms;  // more than a busy machine is away for
    m_Device->SetSerialTimeouts({static_cast<uint32_t>(kLongQuiet.count())});
    const auto start = std::chrono::steady_clock::now();
    Thread scanner = StartThread("scanner", [&] {
        std::this_thread::sleep_for(kLongQuiet + 100ms);  // the first byte is waited for without a limit
        for (const char* piece : {"ab", "c", "def"}) {
            m_Scanner->Plain(piece);
            std::this_thread::sleep_for(10ms);
        }
    });
    EXPECT_EQ(Read(kReadSize).bytes, "abcdef");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * kLongQuiet + 100ms);
    scanner.Join();
    m_Device->SetSerialTimeouts({kQuietMs});
    m_Scanner->Plain("123456789");
    EXPECT_EQ(Read(4).bytes, "1234") << "a full buffer ends the read";
    EXPECT_EQ(Read(kReadSize).bytes, "56789");
}

TEST_F(SerialPort, KeepsTheSettings) {
    SerialSettings settings;
    ASSERT_EQ(m_Device->GetSerialSettings(settings), 0U);
    for (const uint32_t speed : {9600U, 115200U}) {
        settings.baudRate = speed;
        settings.byteSize = 8;
        settings.stopBits = speed == 9600 ? 0 : 2;
        ASSERT_EQ(m_Device->SetSerialSettings(settings), 0U);
        SerialSettings found;
        ASSERT_EQ(m_Device->GetSerialSettings(found), 0U);
        EXPECT_EQ(found.baudRate, speed);
        EXPECT_EQ(found.byteSize, 8);
        EXPECT_EQ(found.stopBits, settings.stopBits);
    }
    settings.byteSize = 99;
    EXPECT_NE(m_Device->SetSerialSettings(settings), 0U);
}

// A port of the machine itself, with anything or nothing at its other end.
class RealPort : public testing::Test {
  protected:
    // What Wine can't show, and why.
    void NeedsWindows(const char* whyNotWine) {
        if (test::IsUnderWine()) GTEST_SKIP() << whyNotWine;
        const char* name = std::getenv("QUILLET_TEST_PORT");
        if (name == nullptr) GTEST_SKIP() << "QUILLET_TEST_PORT names no port, such as COM5";
        m_Path = std::string("\\\\.\\") + name;
        m_Device = WindowsDeviceAccess().Open(m_Path, Sharing::Exclusive).file;
        ASSERT_NE(m_Device, nullptr);
    }

    std::string m_Path;
    std::unique_ptr<DeviceFile> m_Device;
};

TEST_F(RealPort, IsForOneAtATime) {
    NeedsWindows("Wine opens a COM port as often as it is asked to");
    if (m_Device == nullptr) return;
    EXPECT_EQ(WindowsDeviceAccess().Open(m_Path, Sharing::Exclusive).error, DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(RealPort, TakesParityAndOddSpeeds) {
    NeedsWindows("under Wine a pseudo-terminal has neither parity nor odd speeds");
    if (m_Device == nullptr) return;
    SerialSettings settings;
    ASSERT_EQ(m_Device->GetSerialSettings(settings), 0U);
    settings.baudRate = 123457;
    settings.parity = 2;
    ASSERT_EQ(m_Device->SetSerialSettings(settings), 0U);
    SerialSettings found;
    ASSERT_EQ(m_Device->GetSerialSettings(found), 0U);
    EXPECT_EQ(found.baudRate, 123457U);
    EXPECT_EQ(found.parity, 2);
}

}  // namespace
}  // namespace quillet::platform
