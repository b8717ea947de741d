// SPDX-License-Identifier: MIT
#include "foundation/log.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/log_reader.h"

namespace quillet {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

// A local time that stands still; it is in use from its making to its end.
class StandingClock : public platform::Clock {
  public:
    explicit StandingClock(const platform::LocalTime& time) : now(time) { platform::ReplaceClock(this); }
    ~StandingClock() override { platform::ReplaceClock(nullptr); }
    int64_t NowNs() override { return platform::SystemClock().NowNs(); }
    platform::LocalTime Local() override { return now; }
    void SleepMs(uint32_t ms) override { platform::SystemClock().SleepMs(ms); }
    platform::WaitResult Wait(platform::Event& event, uint32_t timeoutMs) override {
        return platform::SystemClock().Wait(event, timeoutMs);
    }

    platform::LocalTime now;
};

// A log of its own that tells when its worker has written.
class WatchedLog : public LogManager {
  public:
    WatchedLog() { SetFilePrefix(m_Prefix); }
    ~WatchedLog() override {
        ShutDown();
        test::RemoveLogFilesOf(m_Prefix);
    }

    void WriteLine(std::string_view line) override {
        LogManager::WriteLine(line);
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Lines.emplace_back(line);
        m_Written.notify_all();
    }

    void Await(size_t count) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Written.wait_for(lock, std::chrono::seconds(20), [&] { return m_Lines.size() >= count; });
    }
    // The lines written so far; waits for `count` of them.
    Lines Written(size_t count) {
        Await(count);
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Lines;
    }

    std::filesystem::path File(const std::string& time) const {
        return test::LogDirectory() / (m_Prefix + "_" + time + ".log");
    }

  private:
    const std::string m_Prefix = "watched" + std::to_string(getpid());
    std::mutex m_Mutex;
    std::condition_variable m_Written;
    Lines m_Lines;  // guarded by m_Mutex
};

TEST(Log, WritesOneFileNamedWhenItIsOpened) {
    StandingClock clock({2026, 1, 2, 7, 5, 9, 4});
    WatchedLog log;
    const auto first = log.File("2026-01-02_7"), second = log.File("2026-01-02_18");
    log.Log(LLInfo, "", "before the start");
    EXPECT_FALSE(std::filesystem::exists(first));
    log.Start();
    log.Log(LLInfo, "", "    | Timeout: 2000");
    log.Written(1);
    log.Stop();
    log.Log(LLInfo, "", "while stopped");
    clock.now.hour = 18;
    log.Start();
    log.Start();
    log.Log(LLTraceIn, "Module", ">>> CDevice::ClaimDevice");
    log.Written(2);
    const std::string id = "Thread Id: " + std::to_string(platform::CurrentThreadId()) + ", ";
    EXPECT_EQ(test::ReadFile(first), "[01/02/2026 07:05:09.004]  " + id + "LLInfo\t\t:    | Timeout: 2000" +
                                         test::kLineEnd + "[01/02/2026 18:05:09.004]  " + id +
                                         "ModuleLLTraceIn\t\t:>>> CDevice::ClaimDevice" + test::kLineEnd);
    EXPECT_FALSE(std::filesystem::exists(second));

    log.ShutDown();
    log.Start();
    EXPECT_TRUE(std::filesystem::exists(second));
    EXPECT_EQ(LogFile::NameFor("", {2026, 11, 18, 18, 54, 34, 123}), "2026-11-18_18.log");
}

TEST(Log, KeepsWhatRanksAtTheThresholdOrAbove) {
    const struct {
        int32_t threshold;
        std::string kept;
    } kRows[] = {{LLAll, "12345678"}, {LLWarnings, "2345678"}, {LLTraceIn, "678"}, {LLInfo, "8"}, {LLOFF, ""}};
    for (const auto& row : kRows) {
        WatchedLog log;
        log.SetLevel(row.threshold);
        log.Start();
        for (int32_t level = LLDebug; level <= LLInfo; ++level) log.Log(level, "", std::to_string(level));
        log.SetLevel(LLAll);
        log.Log(LLAll, "", "end");
        std::string kept;
        Lines lines = log.Written(row.kept.size() + 1);
        ASSERT_EQ(lines.size(), row.kept.size() + 1);
        lines.pop_back();
        for (const auto& line : lines) kept += line[line.size() - 2];
        EXPECT_EQ(kept, row.kept) << "threshold " << row.threshold;
    }
}

TEST(Log, AFileThatCannotBeOpenedTroublesNobody) {
    StandingClock clock({2026, 1, 2, 7, 5, 9, 4});
    WatchedLog log;
    const auto file = log.File("2026-01-02_7");
    std::filesystem::create_directories(file);
    log.Start();
    log.Log(LLInfo, "", "lost");
    EXPECT_EQ(log.Written(1).size(), 1u);
    EXPECT_TRUE(std::filesystem::is_directory(file));
}

TEST(Log, StartsAndStopsUnderFire) {
    WatchedLog log;
    std::atomic<bool> ended{false};
    std::vector<std::thread> threads;
    for (char letter : {'a', 'b', 'c'}) {
        threads.emplace_back([&, letter] {
            while (!ended) log.Log(LLInfo, "", std::string(letter == 'c' ? 500 : 50, letter));
        });
    }
    for (int i = 0; i < 50; ++i) {
        log.Start();
        log.SetLevel(i % 2 == 0 ? LLInfo : LLAll);
        log.Await(static_cast<size_t>(i) * 10);
        log.Stop();
    }
    ended = true;
    for (auto& thread : threads) thread.join();
    const Lines lines = log.Written(490);
    EXPECT_GE(lines.size(), 490u);
    for (const std::string& line : lines) {
        const std::string text = line.substr(line.find("LLInfo\t\t:") + 9);
        ASSERT_EQ(text, std::string(text[0] == 'c' ? 500 : 50, text[0]) + "\n");
    }
}

TEST(Log, WrappersJoinFormatAndValue) {
    test::LogReader log;
    LogDebug("plain %d");
    LogWarning("w ", true);
    LogError("e %s!", "text");
    LogCritical("Error: ", static_cast<int16_t>(-5));
    LogInfo("    | ResultCode: %d", 101);
    LogInfo("    | 100% sure: ", uint64_t{7});
    LogInfo("    | Char: ", '\0');
    LogInfo("    | Hex: ", HexOf{"\x01\xff"});
    LogDebug("    | Ascii: %s", AsciiOf{"a\r"});
    EXPECT_EQ(log.Take(),
              (Lines{"LLDebug\t\t:plain %d", "LLWarnings\t:w 1", "LLError\t\t:e text!", "LLCritical\t:Error: -5",
                     "LLInfo\t\t:    | ResultCode: 101", "LLInfo\t\t:    | 100% sure: 7", "LLInfo\t\t:    | Char: \0"s,
                     "LLInfo\t\t:    | Hex: 01 FF", "LLDebug\t\t:    | Ascii: a<CR>"}));
    try {
        LogTrace trace("CScanner::Open");
        throw std::runtime_error("left by an exception");
    } catch (const std::runtime_error&) {
        LogDebug("caught");
    }
    EXPECT_EQ(log.Take(),
              (Lines{"LLTraceIn\t\t:>>> CScanner::Open", "LLTraceOut\t:<<< CScanner::Open", "LLDebug\t\t:caught"}));
}

}  // namespace
}  // namespace quillet
