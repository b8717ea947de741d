// SPDX-License-Identifier: MIT
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "device_io.h"
#include "linux/descriptors.h"
#include "platform/event.h"
#include "platform/linux/linux_device_access.h"
#include "platform/linux/unique_fd.h"
#include "platform/thread.h"
#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;
using Outcome = WriteResult::Outcome;

constexpr uint32_t kReadSize = 4095;

// A scanner's end of a serial line, and the port open at the other.
class SerialDevice : public testing::Test {
  protected:
    SerialDevice() : m_Scanner(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_TRUE(grantpt(m_Scanner.Get()) == 0 && unlockpt(m_Scanner.Get()) == 0);
        char name[64] = {};
        EXPECT_EQ(ptsname_r(m_Scanner.Get(), name, sizeof name), 0);
        m_Path = name;
        OpenPort();
    }

    uint32_t TryOpen(const std::string& path, std::unique_ptr<DeviceFile>* file = nullptr) {
        OpenResult result = m_Access.Open(path, Sharing::Exclusive);
        EXPECT_EQ(result.file != nullptr, result.error == 0);
        if (file != nullptr) *file = std::move(result.file);
        return result.error;
    }

    void OpenPort() {
        ASSERT_EQ(TryOpen(m_Path, &m_Port), 0U);
        EXPECT_EQ(m_Port->SetSerialTimeouts({kQuietMs}), 0U);
        m_Reader = m_Port->NewReader();
    }

    void Scan(std::string_view bytes) {
        ASSERT_EQ(write(m_Scanner.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    ReadOutcome Read(uint32_t size = kReadSize) { return ReadFrom(*m_Reader, m_Stop, size); }

    static constexpr uint32_t kQuietMs = 25;
    const test::TempTree m_Tree;
    UniqueFd m_Scanner;
    std::string m_Path;
    LinuxDeviceAccess m_Access{LinuxRoots{}};
    StopSignal m_Stop;
    std::unique_ptr<DeviceFile> m_Port;
    std::unique_ptr<DeviceReader> m_Reader;
};

TEST_F(SerialDevice, ABurstEndsWhenTheLineIsQuiet) {
    constexpr auto kLongQuiet = 1500ms;  // more than a busy machine is away for
    m_Port->SetSerialTimeouts({static_cast<uint32_t>(kLongQuiet.count())});
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
    m_Port->SetSerialTimeouts({kQuietMs});
    Scan("g");
    EXPECT_EQ(Read().bytes, "g");
    Scan("123456789");
    EXPECT_EQ(Read(4).bytes, "1234") << "a full buffer ends the read";
    EXPECT_EQ(Read(4).bytes, "5678");
    EXPECT_EQ(Read(4).bytes, "9");
}

TEST_F(SerialDevice, StopWinsOverDataAndEndsWaits) {
    Scan("x");
    m_Stop.Set();
    EXPECT_EQ(Read().wait, ReadWait::Stopped);
    m_Stop.Reset();
    EXPECT_EQ(Read().bytes, "x") << "what wasn't taken is still there";

    m_Port->SetSerialTimeouts({600000});
    for (const char* waiting : {"", "part of a burst"}) {
        Thread stopper = StartThread("stopper", [&] {
            Scan(waiting);
            std::this_thread::sleep_for(20ms);
            m_Stop.Set();
        });
        EXPECT_EQ(Read().wait, ReadWait::Stopped);
        stopper.Join();
        m_Stop.Reset();
    }
}

TEST_F(SerialDevice, AWriteThatNobodyTakesEndsWithTheStopSignal) {
    const std::string flood(1 << 20, 'x');
    Thread stopper = StartThread("stopper", [&] {
        std::this_thread::sleep_for(20ms);
        m_Stop.Set();
    });
    const WriteResult stopped = m_Port->Write(flood, m_Stop);
    stopper.Join();
    EXPECT_EQ(stopped.outcome, Outcome::FailedPending);
    EXPECT_EQ(stopped.error, static_cast<uint32_t>(ECANCELED));
    EXPECT_GT(stopped.count, 0U);
    EXPECT_LT(stopped.count, flood.size());
}

TEST_F(SerialDevice, AWriteUnderWayEndsWithTheDevice) {
    Thread writing = StartThread("writing", [&] {
        EXPECT_EQ(m_Port->Write(std::string(1 << 20, 'x'), m_Stop).outcome, Outcome::FailedPending);
    });
    // The read thread sees the loss at the same moment.
    Thread reading = StartThread("reading", [&] { EXPECT_FALSE(Read().finish.ok); });
    pollfd written{m_Scanner.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&written, 1, 20'000), 1);
    m_Scanner = UniqueFd();
    writing.Join();
    reading.Join();
}

TEST_F(SerialDevice, APulledPortIsClosedAtOnceAndTheHandleStaysDead) {
    ASSERT_EQ(CountDescriptorsTo(m_Path), 1U);
    Thread unplugger = StartThread("unplugger", [&] {
        std::this_thread::sleep_for(20ms);
        m_Scanner = UniqueFd();
    });
    const ReadOutcome lost = Read();
    unplugger.Join();
    EXPECT_EQ(lost.wait, ReadWait::Finished);
    EXPECT_FALSE(lost.finish.ok);
    EXPECT_NE(lost.finish.error, 0U);
    EXPECT_EQ(m_Reader->LastError(), lost.finish.error);
    EXPECT_EQ(CountDescriptorsTo(m_Path), 0U);
    EXPECT_EQ(CountDescriptorsTo(m_Path + " (deleted)"), 0U);

    constexpr uint32_t kDead = ENODEV;
    EXPECT_EQ(Read().start.state, IoState::Failed);
    EXPECT_EQ(Read().start.error, kDead);
    const WriteResult written = m_Port->Write("x", m_Stop);
    EXPECT_EQ(written.outcome, Outcome::FailedAtOnce);
    EXPECT_EQ(written.error, kDead);
    SerialSettings settings;
    EXPECT_EQ(m_Port->GetSerialSettings(settings), kDead);
    EXPECT_EQ(m_Port->SetSerialTimeouts({1}), kDead);
}

TEST_F(SerialDevice, ALossThatAWriterFindsClosesWithoutAReader) {
    m_Reader.reset();
    m_Scanner = UniqueFd();
    const WriteResult lost = m_Port->Write("x", m_Stop);
    EXPECT_EQ(lost.outcome, Outcome::FailedAtOnce);
    EXPECT_EQ(lost.error, static_cast<uint32_t>(EIO));
    EXPECT_EQ(CountDescriptorsTo(m_Path) + CountDescriptorsTo(m_Path + " (deleted)"), 0U);
    EXPECT_EQ(m_Port->Write("x", m_Stop).error, static_cast<uint32_t>(ENODEV));
}

TEST_F(SerialDevice, IsHeldByOneAndKeepsWaitingInput) {
    EXPECT_EQ(TryOpen(m_Path), static_cast<uint32_t>(EBUSY));
    const UniqueFd keepsLineUp(open(m_Path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(keepsLineUp.IsOpen());
    const pid_t child = fork();
    if (child == 0) {
        const bool refused = TryOpen(m_Path) == EBUSY;
        m_Reader.reset();
        m_Port.reset();  // must not free the parent's port
        _exit(refused && TryOpen(m_Path) == EBUSY ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);

    m_Reader.reset();
    m_Port.reset();
    Scan("waiting\r");
    OpenPort();
    EXPECT_EQ(Read().bytes, "waiting\r");
}

TEST_F(SerialDevice, TakesAnySpeedAndRefusesImpossibleLines) {
    SerialSettings settings;
    ASSERT_EQ(m_Port->GetSerialSettings(settings), 0U);
    EXPECT_EQ(settings.byteSize, 8);
    EXPECT_EQ(settings.parity, 0);
    for (const uint32_t speed : {300U, 9600U, 115200U, 123457U, 3000000U}) {
        for (const uint8_t stopBits : {uint8_t{0}, uint8_t{2}}) {
            settings.baudRate = speed;
            settings.stopBits = stopBits;
            settings.softwareFlowIn = stopBits != 0;
            ASSERT_EQ(m_Port->SetSerialSettings(settings), 0U);
            SerialSettings found;
            ASSERT_EQ(m_Port->GetSerialSettings(found), 0U);
            EXPECT_EQ(found.baudRate, speed);
            EXPECT_EQ(found.stopBits, stopBits);
            EXPECT_EQ(found.softwareFlowIn, stopBits != 0);
        }
    }
    const SerialSettings good = settings;
    const auto refused = [&](auto SerialSettings::*member, int value) {
        SerialSettings bad = good;
        bad.*member = static_cast<std::remove_reference_t<decltype(bad.*member)>>(value);
        return m_Port->SetSerialSettings(bad) == EINVAL;
    };
    EXPECT_TRUE(refused(&SerialSettings::baudRate, 0));
    EXPECT_TRUE(refused(&SerialSettings::byteSize, 4));
    EXPECT_TRUE(refused(&SerialSettings::byteSize, 9));
    EXPECT_TRUE(refused(&SerialSettings::parity, 5));
    EXPECT_TRUE(refused(&SerialSettings::stopBits, 1));
    EXPECT_TRUE(refused(&SerialSettings::stopBits, 3));
    EXPECT_FALSE(refused(&SerialSettings::byteSize, 5));
    EXPECT_FALSE(refused(&SerialSettings::parity, 4));
}

TEST_F(SerialDevice, OpensTerminalsAlone) {
    EXPECT_EQ(TryOpen(""), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(TryOpen("\\\\.\\COM200"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(TryOpen(m_Tree.Path("missing")), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(TryOpen(m_Tree.Write("file", "")), static_cast<uint32_t>(ENOTTY));
    EXPECT_EQ(TryOpen("/dev/null"), static_cast<uint32_t>(ENOTTY));
    ASSERT_EQ(mkfifo(m_Tree.Path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(TryOpen(m_Tree.Path("pipe")), static_cast<uint32_t>(ENOTTY));
    // A numbered port is the tty of the table.
    m_Reader.reset();
    m_Port.reset();
    m_Tree.Link("dev/ttyUSB2", m_Path);
    LinuxRoots roots;
    roots.dev = m_Tree.Path("dev");
    EXPECT_NE(LinuxDeviceAccess(roots).Open("\\\\.\\COM35", Sharing::Exclusive).file, nullptr);
}

}  // namespace
}  // namespace quillet::platform
