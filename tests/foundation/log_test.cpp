// SPDX-License-Identifier: MIT
// The log and its worker.
#include "foundation/log.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "foundation/thread_pool.h"
#include "platform/thread.h"
#include "support/eventually.h"
#include "support/fast_clock.h"
#include "support/log_reader.h"
#include "support/process.h"

namespace quillet::test {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

// A local time that stands still.
struct StandingClock : FastClock {
    explicit StandingClock(const platform::LocalTime& time) : FastClock(1), now(time) {}
    platform::LocalTime Local() override { return now; }

    platform::LocalTime now;
};

// A log of its own that tells when its worker has written.
class WatchedLog : public LogManager {
  public:
    WatchedLog() { SetFilePrefix(m_Prefix); }
    ~WatchedLog() override {
        ShutDown();
        RemoveLogFilesOf(m_Prefix);
    }

    void WriteLine(std::string_view line) override {
        LogManager::WriteLine(line);
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Lines.emplace_back(line);
    }

    bool Await(size_t count) {
        return Eventually([&] {
            std::lock_guard<std::mutex> lock(m_Mutex);
            return m_Lines.size() >= count;
        });
    }
    // The lines written so far; waits for `count` of them.
    Lines Written(size_t count) {
        EXPECT_TRUE(Await(count));
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Lines;
    }

    std::filesystem::path File(const std::string& time) const {
        return LogDirectory() / (m_Prefix + "_" + time + ".log");
    }

  private:
    const std::string m_Prefix = "watched" + std::to_string(getpid());
    std::mutex m_Mutex;
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
    EXPECT_EQ(ReadFile(first), "[01/02/2026 07:05:09.004]  " + id + "LLInfo\t\t:    | Timeout: 2000" + kLineEnd +
                                   "[01/02/2026 18:05:09.004]  " + id + "ModuleLLTraceIn\t\t:>>> CDevice::ClaimDevice" +
                                   kLineEnd);
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
        log.Log(LLAll, "", "9");
        std::string kept;
        for (const auto& line : log.Written(row.kept.size() + 1)) kept += line[line.size() - 2];
        EXPECT_EQ(kept, row.kept + "9") << "threshold " << row.threshold;
    }
}

TEST(Log, AFileThatCannotBeOpenedTroublesNobody) {
    StandingClock clock({2026, 1, 2, 7, 5, 9, 4});
    WatchedLog log;
    const auto file = log.File("2026-01-02_7");
    std::filesystem::create_directories(file);
    log.Start();
    log.Log(LLInfo, "", "lost");
    EXPECT_TRUE(log.Await(1));
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
        EXPECT_TRUE(log.Await(static_cast<size_t>(i) * 10));
        log.Stop();
    }
    ended = true;
    for (auto& thread : threads) thread.join();
    for (const std::string& line : log.Written(490)) {
        const std::string text = line.substr(line.find("LLInfo\t\t:") + 9);
        ASSERT_EQ(text, std::string(text[0] == 'c' ? 500 : 50, text[0]) + "\n");
    }
}

TEST(Log, WrappersJoinFormatAndValue) {
    LogReader log;
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

TEST(ThreadPool, RunsTheTasksOfEachThreadInItsOrderThoughTheyThrow) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 250;
    std::atomic<int> done{0};
    std::vector<std::pair<int, int>> ran;  // touched by the one worker alone
    ThreadPool pool;
    pool.Start();
    pool.Start();
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([&, t] {
            for (int i = 0; i < kTasks; ++i) {
                pool.Enqueue([&, t, i] {
                    ran.emplace_back(t, i);
                    ++done;
                    if (i % 2 == 0) throw std::runtime_error("task");
                    throw i;
                });
            }
        });
    }
    for (auto& producer : producers) producer.join();
    ASSERT_TRUE(Eventually([&] { return done == kThreads * kTasks; }));
    std::vector<int> next(kThreads, 0);
    for (const auto& [thread, task] : ran) EXPECT_EQ(task, next[static_cast<size_t>(thread)]++);
}

// Its queue is never empty, so that a Stop always finds a task waiting.
struct EndlessTask {
    ThreadPool& pool;
    std::shared_ptr<int> runs;
    void operator()() const {
        ++*runs;
        pool.Enqueue(*this);
    }
};

TEST(ThreadPool, StopWaitsForTheRunningTaskAndLeavesTheRest) {
    auto runs = std::make_shared<int>(0);  // a plain number: the join is what makes it safe to read
    {
        ThreadPool pool;
        pool.Stop();
        std::promise<void> started;
        bool finished = false;
        pool.Enqueue([&] {
            started.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            finished = true;
        });
        pool.Enqueue(EndlessTask{pool, runs});
        EXPECT_EQ(*runs, 0) << "not started yet";
        pool.Start();
        started.get_future().wait();
        pool.Stop();
        pool.Stop();
        EXPECT_TRUE(finished);
        EXPECT_EQ(runs.use_count(), 2) << "one task waits, unrun";

        std::promise<void> restarted;
        pool.Enqueue([&] { restarted.set_value(); });
        pool.Start();
        EXPECT_EQ(restarted.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    }
    EXPECT_EQ(runs.use_count(), 1) << "the end frees what never ran";
}

constexpr int kStops = kOnWindows ? 600 : 6000;  // making a thread takes its time there

// The moment of Stop moves through the worker's way into its wait. A lost wake-up hangs.
TEST(ThreadPool, IdleWorkerIsStoppedAndWokenAtOnce) {
    for (int i = 0; i < kStops; ++i) {
        ThreadPool pool(std::chrono::hours(1));
        pool.Start();
        if (i % 10 == 0) {
            std::promise<void> ran;
            pool.Enqueue([&] { ran.set_value(); });
            ran.get_future().wait();
        }
        const auto moment = std::chrono::steady_clock::now() + std::chrono::nanoseconds(i * 60'000 / kStops);
        while (std::chrono::steady_clock::now() < moment) {
        }
        pool.Stop();
    }
}

}  // namespace
}  // namespace quillet::test
