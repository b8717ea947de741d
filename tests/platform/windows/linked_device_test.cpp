// A serial port and a HID device, each with a scanner at its other end.
#include <windows.h>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "device_io.h"
#include "platform/device_side.h"
#include "platform/thread.h"
#include "platform/windows/windows_device_access.h"
#include "support/process.h"
#include "transport/port_discovery.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;
using Outcome = WriteResult::Outcome;

enum class Link { Serial, Hid };

constexpr uint32_t kReportSize = 64;
constexpr uint32_t kQuietMs = 25;

// One report of a HID device; four of them hold every byte value.
std::string Message(int number) {
    std::string bytes(1, '\x04');
    for (int i = 0; i < 63; ++i) bytes.push_back(static_cast<char>(number * 63 + i));
    return bytes;
}

class LinkedDevice : public testing::Test {
  protected:
    explicit LinkedDevice(Link link) : m_Link(link) {}

    void SetUp() override {
        if (std::getenv("QUILLET_TEST_TERMINALS") == nullptr) {
            GTEST_SKIP() << "no terminals and no HID bus here: run by tests/wine/with-prefix";
        }
        m_Registration = std::make_unique<DeviceRegistration>(
            DeviceRegistration::UserDirectory(), IsHid() ? std::string("hid") : "port" + std::to_string(m_Number));
        Plug();
        Open();
    }

    bool IsHid() const { return m_Link == Link::Hid; }
    void Plug() {
        const std::string port = std::to_string(m_Number);
        m_Scanner = IsHid() ? DeviceEnd::NewReportSocket(m_Registration->SocketPath()) : DeviceEnd::NewTerminal();
        m_Registration->Publish((IsHid() ? "class=hid" : "class=serial\nport=COM" + port) +
                                "\ninstance=ROOT\\QUILLET\\" + port + "\npath=" + m_Scanner->HostPath() + "\n");
    }
    void Unplug() {
        m_Registration->Withdraw();
        m_Scanner.reset();
    }
    std::vector<PortDescriptor> Found() const { return IsHid() ? DiscoveredHidScanners() : FindSerialPort(m_Number); }
    OpenResult TryOpen() const {
        return WindowsDeviceAccess().Open(m_Path, IsHid() ? Sharing::Shared : Sharing::Exclusive);
    }
    void Open() {
        const auto found = Found();
        ASSERT_EQ(found.size(), 1U);
        m_Path = found[0].DevicePath;
        OpenResult opened = TryOpen();
        ASSERT_NE(opened.file, nullptr) << opened.error;
        m_Device = std::move(opened.file);
        ASSERT_EQ(IsHid() ? 0U : m_Device->SetSerialTimeouts({kQuietMs}), 0U);
        m_Reader = m_Device->NewReader();
    }
    void Close() {
        m_Reader.reset();
        m_Device.reset();
    }

    void Scan(const std::string& bytes) { EXPECT_EQ(m_Scanner->Send(bytes, m_Never), DeviceEnd::Sent::All); }
    // As many bytes, or what has come in time.
    std::string ReceivedByScanner(size_t size) {
        std::string all;
        for (std::string piece; all.size() < size; all += piece) {
            piece.clear();
            if (m_Scanner->Receive(piece, 20000, m_Never) == DeviceEnd::Received::TimedOut) break;
        }
        return all;
    }
    ReadOutcome Read(uint32_t size) { return ReadFrom(*m_Reader, m_Stop, size); }
    ReadOutcome Read() { return Read(IsHid() ? kReportSize : 4095); }
    // What runs beside a read or a write.
    template <typename Action>
    Thread Soon(Action action) {
        return StartThread("soon", [action] {
            std::this_thread::sleep_for(50ms);
            action();
        });
    }

    const Link m_Link;
    // Other processes that run these cases have other numbers.
    const uint32_t m_Number = 140 + test::ProcessId() / 4 % 50;
    std::unique_ptr<DeviceRegistration> m_Registration;
    std::unique_ptr<DeviceEnd> m_Scanner;
    std::string m_Path;
    StopSignal m_Stop, m_Never;
    std::unique_ptr<DeviceFile> m_Device;
    std::unique_ptr<DeviceReader> m_Reader;
};

class EachLink : public LinkedDevice, public testing::WithParamInterface<Link> {
  protected:
    EachLink() : LinkedDevice(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Windows, EachLink, testing::Values(Link::Serial, Link::Hid),
                         [](const auto& link) { return link.param == Link::Hid ? "Hid" : "Serial"; });

TEST_P(EachLink, BytesPassBothWaysInOrder) {
    constexpr int kMessages = 20;
    std::string all;
    for (int i = 0; i < kMessages; ++i) all += Message(i);
    Thread scanner = StartThread("scanner", [this] {
        for (int i = 0; i < kMessages; ++i) Scan(Message(i));
    });
    std::string read;
    while (read.size() < all.size()) {
        const ReadOutcome piece = Read();
        ASSERT_TRUE(piece.finish.ok);
        EXPECT_TRUE(!IsHid() || piece.bytes.size() == kReportSize);
        read += piece.bytes;
    }
    scanner.Join();
    EXPECT_EQ(read, all);
    for (int i = 0; i < kMessages; ++i) {
        const WriteResult written = m_Device->Write(Message(i), m_Stop);
        EXPECT_EQ(written.outcome, Outcome::Written) << written.error;
        EXPECT_EQ(written.count, kReportSize);
    }
    EXPECT_EQ(ReceivedByScanner(all.size()), all);
}

TEST_P(EachLink, APulledDeviceFailsUntilItIsBackAndOpenedAgain) {
    size_t handles = 0;
    constexpr int kPlugs = 12;
    for (int plug = 0; plug < kPlugs; ++plug) {
        if (plug == 2) handles = test::HandleCount();  // the first may load what stays
        Thread unplugging = Soon([this] { Unplug(); });
        const ReadOutcome lost = Read();
        unplugging.Join();
        EXPECT_EQ(lost.wait, ReadWait::Finished);
        EXPECT_FALSE(lost.finish.ok);
        EXPECT_TRUE(lost.finish.gone) << lost.finish.error;
        EXPECT_NE(m_Device->Write(Message(0), m_Stop).outcome, Outcome::Written);
        EXPECT_NE(TryOpen().error, 0U);
        EXPECT_TRUE(Found().empty());
        Close();
        Plug();
        ASSERT_NO_FATAL_FAILURE(Open());
        Scan(Message(plug));
        EXPECT_EQ(Read().bytes, Message(plug));
    }
    EXPECT_LE(test::HandleCount(), handles + test::kLazyHandles);
}

TEST_P(EachLink, StopEndsAReadAndTheDeviceGoesOn) {
    Thread stopping = Soon([this] { m_Stop.Set(); });
    EXPECT_EQ(Read().wait, ReadWait::Stopped);
    stopping.Join();
    m_Stop.Reset();
    m_Reader = m_Device->NewReader();
    Scan(Message(1));
    EXPECT_EQ(Read().bytes, Message(1));
}

class HidDevice : public LinkedDevice {
  protected:
    HidDevice() : LinkedDevice(Link::Hid) {}
};

TEST_F(HidDevice, AReadThatIsTooSmallIsNoLoss) {
    const ReadOutcome refused = Read(kReportSize / 2);
    EXPECT_EQ(refused.start.state, IoState::Failed);
    EXPECT_FALSE(refused.start.gone) << refused.start.error;
}

class SerialPort : public LinkedDevice {
  protected:
    SerialPort() : LinkedDevice(Link::Serial) {}
};

TEST_F(SerialPort, ABurstEndsWhenTheLineIsQuiet) {
    constexpr auto kLongQuiet = 400ms;
    m_Device->SetSerialTimeouts({static_cast<uint32_t>(kLongQuiet.count())});
    const auto start = std::chrono::steady_clock::now();
    Thread scanner = StartThread("scanner", [&] {
        std::this_thread::sleep_for(kLongQuiet + 100ms);  // the first byte is waited for without a limit
        for (const char* piece : {"ab", "c", "def"}) {
            Scan(piece);
            std::this_thread::sleep_for(10ms);
        }
    });
    EXPECT_EQ(Read().bytes, "abcdef");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * kLongQuiet + 100ms);
    scanner.Join();
    m_Device->SetSerialTimeouts({kQuietMs});
    Scan("123456789");
    EXPECT_EQ(Read(4).bytes, "1234") << "a full buffer ends the read";
    EXPECT_EQ(Read().bytes, "56789");
}

TEST_F(SerialPort, AWriteThatNobodyTakesEndsWithTheStopSignal) {
    Thread stopping = Soon([this] { m_Stop.Set(); });
    const WriteResult stopped = m_Device->Write(std::string(1 << 20, 'x'), m_Stop);
    stopping.Join();
    EXPECT_EQ(stopped.outcome, Outcome::FailedPending);
    EXPECT_EQ(stopped.error, DWORD{ERROR_OPERATION_ABORTED});
}

TEST_F(SerialPort, IsForOneAtATime) {
    if (test::IsUnderWine()) GTEST_SKIP() << "Wine opens a COM port as often as it is asked to";
    EXPECT_EQ(TryOpen().error, DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(SerialPort, TakesParityAndOddSpeeds) {
    if (test::IsUnderWine()) GTEST_SKIP() << "under Wine a pseudo-terminal has neither parity nor odd speeds";
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

}  // namespace
}  // namespace quillet::platform
