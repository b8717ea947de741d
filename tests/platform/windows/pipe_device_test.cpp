// SPDX-License-Identifier: MIT
// Named pipes as devices: they show every way that a request can end, without a driver.
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "device_io.h"
#include "platform/windows/unique_handle.h"
#include "platform/windows/windows_device_access.h"
#include "support/eventually.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;
using Outcome = WriteResult::Outcome;

constexpr uint32_t kReadSize = 64;
constexpr DWORD kQuota = 4096;

class PipeDevice : public testing::Test {
  protected:
    PipeDevice() {
        static int number = 0;
        m_Path = "\\\\.\\pipe\\quillet-test-" + std::to_string(test::ProcessId()) + "-" + std::to_string(++number);
        Plug();
    }

    void Plug() {
        m_Reader.reset();
        m_Device.reset();
        m_Scanner.Reset();  // the name is for one pipe at a time
        m_Scanner = UniqueHandle(::CreateNamedPipeA(
            m_Path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE, 1, kQuota, kQuota, 0, nullptr));
        ASSERT_TRUE(m_Scanner.IsOpen());
        OpenResult opened = m_Access.Open(m_Path, Sharing::Shared);
        ASSERT_NE(opened.file, nullptr) << opened.error;
        m_Device = std::move(opened.file);
        m_Reader = m_Device->NewReader();
    }

    void Scan(const std::string& bytes) {
        DWORD count = 0;
        ASSERT_TRUE(::WriteFile(m_Scanner.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
    }
    std::string ReceivedByScanner(size_t size) {
        std::string bytes;
        std::string piece(kQuota, '\0');
        DWORD count = 0;
        while (bytes.size() < size &&
               ::ReadFile(m_Scanner.Get(), piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr)) {
            bytes.append(piece, 0, count);
        }
        return bytes;
    }
    ReadOutcome Read(uint32_t size = kReadSize) { return ReadFrom(*m_Reader, m_Stop, size); }
    // One read, and what happens once it is under way.
    ReadOutcome ReadWhile(const std::function<void()>& happens) {
        ReadOutcome outcome;
        std::vector<uint8_t> buffer(kReadSize);
        outcome.start = m_Reader->Start(buffer.data(), kReadSize);
        happens();
        if (outcome.start.state != IoState::Pending) return outcome;
        outcome.wait = m_Reader->Wait(m_Stop);
        outcome.finish = m_Reader->Finish();
        outcome.bytes.assign(buffer.begin(), buffer.begin() + outcome.finish.count);
        return outcome;
    }
    // One write, and what happens once its first bytes are out.
    WriteResult WriteUntil(const std::string& bytes, const std::function<void()>& happens) {
        WriteResult result;
        std::thread writing([&] { result = m_Device->Write(bytes, m_Stop); });
        DWORD waiting = 0;
        EXPECT_TRUE(test::Eventually(
            [&] { return ::PeekNamedPipe(m_Scanner.Get(), nullptr, 0, nullptr, &waiting, nullptr) && waiting > 0; }));
        happens();
        writing.join();
        return result;
    }

    WindowsDeviceAccess m_Access;
    StopSignal m_Stop;
    std::string m_Path;
    UniqueHandle m_Scanner;
    std::unique_ptr<DeviceFile> m_Device;
    std::unique_ptr<DeviceReader> m_Reader;
};

TEST_F(PipeDevice, BytesPassBothWaysAtOnceOrLater) {
    Scan(AllBytes());
    EXPECT_EQ(Read(256).bytes, AllBytes());
    const ReadOutcome later = ReadWhile([this] { Scan("later"); });
    EXPECT_EQ(later.start.state, IoState::Pending);
    EXPECT_EQ(later.bytes, "later");
    Scan("");
    const ReadOutcome empty = Read();
    EXPECT_TRUE(empty.finish.ok);
    EXPECT_EQ(empty.bytes, "");

    // A read that goes on doesn't hold up a write.
    std::thread reading([this] { EXPECT_EQ(Read().bytes, "answer"); });
    const WriteResult written = m_Device->Write(AllBytes(), m_Stop);
    EXPECT_EQ(written.outcome, Outcome::Written);
    EXPECT_EQ(written.count, 256U);
    EXPECT_EQ(ReceivedByScanner(256), AllBytes());
    Scan("answer");
    reading.join();
}

TEST_F(PipeDevice, AStoppedReadIsNoLongerThereWhenTheNextStarts) {
    constexpr int kRounds = 50;
    size_t handles = 0;
    std::vector<uint8_t> buffer(kReadSize);
    for (int round = 0; round < kRounds; ++round) {
        if (round == 2) handles = test::HandleCount();  // the first rounds may load what stays
        m_Stop.Set();
        EXPECT_TRUE(Read().wait == ReadWait::Stopped);
        m_Stop.Reset();
        if (round % 2 == 0) m_Reader = m_Device->NewReader();  // else the same reader goes on
        ASSERT_EQ(m_Reader->Start(buffer.data(), kReadSize).state, IoState::Pending);
        Scan("scan");
        ASSERT_EQ(m_Reader->Wait(m_Stop), ReadWait::Finished);
        EXPECT_EQ(m_Reader->Finish().count, 4U);
    }
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 4), "scan");
    EXPECT_LE(test::HandleCount(), handles);
}

TEST_F(PipeDevice, StopWinsOverDataThatHasCome) {
    std::vector<uint8_t> buffer(kReadSize);
    ASSERT_EQ(m_Reader->Start(buffer.data(), kReadSize).state, IoState::Pending);
    Scan("come");
    m_Stop.Set();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_Reader->Wait(m_Stop), ReadWait::Stopped);
    m_Reader.reset();  // the read is done, or about to be; both end at once
    EXPECT_LT(std::chrono::steady_clock::now() - start, 900ms) << "a cancelled read that doesn't end takes a second";
}

TEST_F(PipeDevice, ALossFailsReadsAndWritesUntilTheDeviceIsOpenedAgain) {
    for (const bool whileReading : {true, false}) {
        if (!whileReading) m_Scanner.Reset();
        const ReadOutcome lost = ReadWhile([this] { m_Scanner.Reset(); });
        EXPECT_EQ(lost.start.state, whileReading ? IoState::Pending : IoState::Failed);
        EXPECT_FALSE(lost.finish.ok || lost.wait == ReadWait::Stopped);
        EXPECT_EQ(whileReading ? lost.finish.error : lost.start.error, DWORD{ERROR_BROKEN_PIPE});
        EXPECT_EQ(m_Reader->LastError(), lost.finish.error);
        const WriteResult written = m_Device->Write("x", m_Stop);
        EXPECT_EQ(written.outcome, Outcome::FailedAtOnce);
        EXPECT_NE(written.error, 0U);
        EXPECT_EQ(written.count, 0U);
        EXPECT_EQ(m_Access.Open(m_Path, Sharing::Shared).file, nullptr);
        Plug();
        Scan("back");
        EXPECT_EQ(Read().bytes, "back");
    }
}

TEST_F(PipeDevice, AWriteThatNobodyTakesEndsWithTheStopSignalOrTheDevice) {
    const std::string flood(kQuota * 16, 'x');
    const WriteResult stopped = WriteUntil(flood, [this] { m_Stop.Set(); });
    EXPECT_EQ(stopped.outcome, Outcome::FailedPending);
    EXPECT_EQ(stopped.error, DWORD{ERROR_OPERATION_ABORTED});

    Plug();
    m_Stop.Reset();
    const WriteResult lost = WriteUntil(flood, [this] { m_Scanner.Reset(); });
    EXPECT_EQ(lost.outcome, Outcome::FailedPending);
    EXPECT_NE(lost.error, 0U);
    EXPECT_NE(lost.error, DWORD{ERROR_OPERATION_ABORTED});
}

TEST_F(PipeDevice, IsNoSerialPort) {
    SerialSettings settings;
    EXPECT_NE(m_Device->GetSerialSettings(settings), 0U);
    EXPECT_NE(m_Device->SetSerialSettings(settings), 0U);
    EXPECT_NE(m_Device->SetSerialTimeouts({25}), 0U);
}

TEST(WindowsDeviceAccess, SharesOrKeepsWhatItOpens) {
    const test::TempTree tree;
    const std::string path = tree.Write("file", "x");
    const auto open = [&path](Sharing sharing) { return WindowsDeviceAccess().Open(path, sharing); };
    {
        const OpenResult shared = open(Sharing::Shared);
        ASSERT_NE(shared.file, nullptr);
        EXPECT_EQ(open(Sharing::Shared).error, 0U);
        EXPECT_EQ(open(Sharing::Exclusive).error, DWORD{ERROR_SHARING_VIOLATION});
    }
    {
        const OpenResult exclusive = open(Sharing::Exclusive);
        ASSERT_NE(exclusive.file, nullptr);
        EXPECT_EQ(open(Sharing::Shared).error, DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(WindowsDeviceAccess().Open(tree.Path("none"), Sharing::Shared).error, DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(WindowsDeviceAccess().Open("\\\\.\\COM255", Sharing::Exclusive).error, DWORD{ERROR_FILE_NOT_FOUND});
    const OpenResult empty = WindowsDeviceAccess().Open("", Sharing::Shared);
    EXPECT_TRUE(empty.file == nullptr && empty.error != 0);
}

}  // namespace
}  // namespace quillet::platform
