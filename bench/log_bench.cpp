// SPDX-License-Identifier: MIT
// One line of the log, beside spdlog's asynchronous logger told to do the same: a file in the same folder, handed to the
// system after each line. What a line costs its caller and how fast lines reach the file are measured apart.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <thread>
#include <vector>

#include "foundation/log.h"
#include "foundation/paths.h"

namespace {

using Clock = std::chrono::steady_clock;

// More than one burst, so that spdlog's bounded queue never holds its caller up.
constexpr size_t kQueueSize = 1 << 15;
constexpr int kBurst = 1000;
constexpr int kLongBurst = 20'000;

std::filesystem::path LogFolder() {
    return quillet::GetExecutableDirectory() + "/log/" + quillet::GetExecutableTitle();
}

// A log with a file of its own that is empty at first and gone at the end.
class Quillet {
  public:
    Quillet() {
        std::filesystem::remove_all(LogFolder());
        quillet::TheLog().SetFilePrefix("bench");
        quillet::TheLog().SetLevel(quillet::LLWarnings);
        quillet::TheLog().Start();
        m_File = std::filesystem::directory_iterator(LogFolder())->path();
    }
    ~Quillet() {
        quillet::TheLog().ShutDown();
        std::filesystem::remove_all(LogFolder());
    }
    void Line(int value) { quillet::LogInfo("    | Timeout: ", value); }
    uintmax_t FileSize() const { return std::filesystem::file_size(m_File); }

  private:
    std::filesystem::path m_File;
};

class Spdlog {
  public:
    Spdlog()
        : m_File(LogFolder() / "spdlog.log"), m_Pool(std::make_shared<spdlog::details::thread_pool>(kQueueSize, 1)) {
        std::filesystem::remove_all(LogFolder());
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(m_File.string());
        m_Logger = std::make_shared<spdlog::async_logger>("bench", std::move(sink), m_Pool);
        m_Logger->set_pattern("[%m/%d/%Y %H:%M:%S.%e]  Thread Id: %t, LLInfo\t\t:%v");
        m_Logger->flush_on(spdlog::level::trace);
    }
    ~Spdlog() {
        m_Logger.reset();
        m_Pool.reset();
        std::filesystem::remove_all(LogFolder());
    }
    void Line(int value) { m_Logger->info("    | Timeout: {}", value); }
    uintmax_t FileSize() const { return std::filesystem::file_size(m_File); }

  private:
    const std::filesystem::path m_File;
    std::shared_ptr<spdlog::details::thread_pool> m_Pool;
    std::shared_ptr<spdlog::async_logger> m_Logger;
};

template <typename Logger>
void WaitForFile(const Logger& log, uintmax_t size) {
    while (log.FileSize() < size) std::this_thread::sleep_for(std::chrono::microseconds(20));
}

// Bytes of a line, all of one size.
template <typename Logger>
uintmax_t SizeOfLine(Logger& log) {
    log.Line(2000);
    while (log.FileSize() == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
    return log.FileSize();
}

int64_t ThreadCpuNs() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

double MedianOf(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

double NsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

// What a line costs its caller in a burst; `cpu_ns` is the processor time of the calling thread alone. The file is
// awaited between bursts.
template <typename Logger>
void BM_CallerInABurst(benchmark::State& state) {
    Logger log;
    const uintmax_t lineSize = SizeOfLine(log);
    uintmax_t expected = lineSize;
    std::vector<double> wall, cpu;
    for (auto _ : state) {
        const int64_t cpuBegin = ThreadCpuNs();
        const auto begin = Clock::now();
        for (int i = 0; i < kBurst; ++i) log.Line(2000);
        const double elapsed = NsSince(begin);
        cpu.push_back(static_cast<double>(ThreadCpuNs() - cpuBegin) / kBurst);
        wall.push_back(elapsed / kBurst);
        state.SetIterationTime(elapsed / 1e9);
        expected += lineSize * kBurst;
        WaitForFile(log, expected);
    }
    state.counters["wall_ns"] = MedianOf(wall);
    state.counters["cpu_ns"] = MedianOf(cpu);
}

// The same for a line that comes alone and has to wake the worker.
template <typename Logger>
void BM_CallerOfALoneLine(benchmark::State& state) {
    Logger log;
    const uintmax_t lineSize = SizeOfLine(log);
    uintmax_t expected = lineSize;
    std::vector<double> wall, cpu;
    for (auto _ : state) {
        const int64_t cpuBegin = ThreadCpuNs();
        const auto begin = Clock::now();
        log.Line(2000);
        const double elapsed = NsSince(begin);
        cpu.push_back(static_cast<double>(ThreadCpuNs() - cpuBegin));
        wall.push_back(elapsed);
        state.SetIterationTime(elapsed / 1e9);
        WaitForFile(log, expected += lineSize);
    }
    state.counters["wall_ns"] = MedianOf(wall);
    state.counters["cpu_ns"] = MedianOf(cpu);
}

template <typename Logger>
void BM_LinesToTheFile(benchmark::State& state) {
    Logger log;
    const uintmax_t lineSize = SizeOfLine(log);
    uintmax_t expected = lineSize;
    std::vector<double> rates;
    for (auto _ : state) {
        const auto begin = Clock::now();
        for (int i = 0; i < kLongBurst; ++i) log.Line(2000);
        WaitForFile(log, expected += lineSize * kLongBurst);
        const double elapsed = NsSince(begin);
        state.SetIterationTime(elapsed / 1e9);
        rates.push_back(kLongBurst * 1e9 / elapsed);
    }
    state.counters["lines_per_s"] = MedianOf(rates);
}

BENCHMARK_TEMPLATE(BM_CallerInABurst, Quillet)->UseManualTime()->Iterations(100);
BENCHMARK_TEMPLATE(BM_CallerInABurst, Spdlog)->UseManualTime()->Iterations(100);
BENCHMARK_TEMPLATE(BM_CallerOfALoneLine, Quillet)->UseManualTime()->Iterations(1000);
BENCHMARK_TEMPLATE(BM_CallerOfALoneLine, Spdlog)->UseManualTime()->Iterations(1000);
BENCHMARK_TEMPLATE(BM_LinesToTheFile, Quillet)->UseManualTime()->Iterations(10);
BENCHMARK_TEMPLATE(BM_LinesToTheFile, Spdlog)->UseManualTime()->Iterations(10);

// A line that nobody wants.
void BM_LineWithTheLogOff(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) quillet::LogInfo("    | Timeout: ", ++value);
}
BENCHMARK(BM_LineWithTheLogOff);

void BM_TraceWithTheLogOff(benchmark::State& state) {
    for (auto _ : state) quillet::LogTrace trace("CScanner::Open");
}
BENCHMARK(BM_TraceWithTheLogOff);

}  // namespace
