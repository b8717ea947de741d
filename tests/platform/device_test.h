// SPDX-License-Identifier: MIT
// A device that is open, and what a test plays at its other end: FarEnd plugs it in and opens it, sends, tells whether
// something has come, and pulls it.
#pragma once

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "platform/device_access.h"
#include "platform/thread.h"

namespace quillet::test {
using namespace platform;

constexpr uint32_t kQuietMs = 25;
constexpr uint32_t kReportSize = 64;

inline std::string Report(char fill) {
    return std::string(1, '\x04') + std::string(kReportSize - 1, fill);
}

inline std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<char>(value));
    return bytes;
}

struct ReadOutcome {
    IoStart start;
    ReadWait wait = ReadWait::Failed;
    IoFinish finish;
    std::string bytes;
};

template <typename FarEnd>
class DeviceTest : public testing::Test {
  protected:
    void SetUp() override { Plug(); }

    void Plug() {
        m_Reader.reset();
        m_Device.reset();
        Take(m_FarEnd.Plug());
    }
    void Take(OpenResult opened) {
        ASSERT_NE(opened.file, nullptr) << opened.error;
        m_Device = std::move(opened.file);
        SerialSettings settings;
        EXPECT_EQ(m_Device->GetSerialSettings(settings) == 0, FarEnd::kIsSerial);
        EXPECT_EQ(m_Device->SetSerialSettings(settings) == 0, FarEnd::kIsSerial);
        EXPECT_EQ(m_Device->SetSerialTimeouts({kQuietMs}) == 0, FarEnd::kIsSerial);
        m_Reader = m_Device->NewReader();
    }

    // One whole read: started, waited for while something happens, finished. One that is done at once shows as finished.
    ReadOutcome Read(uint32_t size = kReportSize, const std::function<void()>& happens = {}) {
        ReadOutcome outcome;
        std::vector<uint8_t> buffer(size, 0xEE);
        outcome.start = m_Reader->Start(buffer.data(), size);
        if (outcome.start.state == IoState::Failed) return outcome;
        Thread other;
        if (happens) {
            other = StartThread("other", [&] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                happens();
            });
        }
        const bool done = outcome.start.state == IoState::Done;
        outcome.wait = done ? ReadWait::Finished : m_Reader->Wait(m_Stop);
        other.Join();
        if (outcome.wait != ReadWait::Finished) return outcome;
        outcome.finish = done ? IoFinish{true, outcome.start.count, 0} : m_Reader->Finish();
        outcome.bytes.assign(buffer.begin(), buffer.begin() + outcome.finish.count);
        return outcome;
    }

    // Writes until one fails, and what happens once the first bytes are out.
    WriteResult WriteUntil(const std::function<void()>& happens) {
        WriteResult result;
        Thread writing = StartThread("writing", [&] {
            const std::string bytes(FarEnd::kWriteSize, 'x');
            for (int i = 0; i < 100000 && result.outcome == WriteResult::Outcome::Written; ++i) {
                result = m_Device->Write(bytes, m_Stop);
            }
        });
        EXPECT_TRUE(m_FarEnd.HasInput());
        happens();
        writing.Join();
        return result;
    }

    // For serial ports.
    void ExpectThatABurstEndsWhenTheLineIsQuiet() {
        using namespace std::chrono_literals;
        constexpr auto kLongQuiet = 1500ms;  // more than a busy machine is away for
        m_Device->SetSerialTimeouts({static_cast<uint32_t>(kLongQuiet.count())});
        const auto start = std::chrono::steady_clock::now();
        const ReadOutcome burst = Read(kReportSize, [&] {
            std::this_thread::sleep_for(kLongQuiet + 100ms);  // the first byte is waited for without a limit
            for (const char* piece : {"ab", "c", "def"}) {
                m_FarEnd.Send(piece);
                std::this_thread::sleep_for(10ms);
            }
        });
        EXPECT_EQ(burst.bytes, "abcdef");
        EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * kLongQuiet + 100ms);
        m_Device->SetSerialTimeouts({kQuietMs});
        m_FarEnd.Send("123456789");
        EXPECT_EQ(Read(4).bytes, "1234") << "a full buffer ends the read";
        EXPECT_EQ(Read(4).bytes, "5678");
        EXPECT_EQ(Read(4).bytes, "9");
    }
    void ExpectThatItKeeps(SerialSettings given) {
        SerialSettings found;
        EXPECT_EQ(m_Device->SetSerialSettings(given), 0U);
        EXPECT_EQ(m_Device->GetSerialSettings(found), 0U);
        EXPECT_EQ(found.baudRate, given.baudRate);
        EXPECT_EQ(found.byteSize, given.byteSize);
        EXPECT_EQ(found.parity, given.parity);
        EXPECT_EQ(found.stopBits, given.stopBits);
        EXPECT_EQ(found.softwareFlowIn, given.softwareFlowIn);
    }

    FarEnd m_FarEnd;
    StopSignal m_Stop;
    std::unique_ptr<DeviceFile> m_Device;
    std::unique_ptr<DeviceReader> m_Reader;
};

}  // namespace quillet::test
