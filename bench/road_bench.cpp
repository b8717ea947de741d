// SPDX-License-Identifier: MIT
// The road of a barcode from a device to the application, beside what an application's author would write by hand for
// the same device: a loop of poll and read, and a thread that reads and hands over by a condition variable. All three
// take turns within one run, so that what else the machine does meets them alike.
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <quillet/quillet.h>

#include "road_device.h"

namespace {

using quillet::bench::DeviceProcess;
using quillet::bench::IsLastReport;
using quillet::bench::kReportSize;

const DeviceProcess* theDevice = nullptr;

void Fail(const char* what) {
    throw std::runtime_error(what);
}

// One way to get at the barcodes of the device.
class Taker {
  public:
    virtual ~Taker() = default;
    virtual void TakeBarcode() = 0;
};

std::string ReadBarcode(int device, bool polls) {
    std::string barcode;
    uint8_t report[kReportSize];
    do {
        pollfd entry{device, POLLIN, 0};
        if (polls && ::poll(&entry, 1, -1) != 1) Fail("poll");
        if (::read(device, report, sizeof report) != sizeof report) return {};
        barcode.append(report + 3, report + 3 + report[2]);
    } while (!IsLastReport(report));
    return barcode;
}

class Loop : public Taker {
  public:
    explicit Loop(bool polls) : m_Polls(polls) {}
    ~Loop() override { ::close(m_Device); }
    void TakeBarcode() override { benchmark::DoNotOptimize(ReadBarcode(m_Device, m_Polls)); }

  private:
    const int m_Device = theDevice->Connect();
    const bool m_Polls;
};

class HandingThread : public Taker {
  public:
    ~HandingThread() override {
        ::shutdown(m_Device, SHUT_RDWR);
        m_Thread.join();
        ::close(m_Device);
    }
    void TakeBarcode() override {
        std::unique_lock lock(m_Mutex);
        m_Came.wait(lock, [this] { return !m_Barcodes.empty(); });
        benchmark::DoNotOptimize(m_Barcodes.front());
        m_Barcodes.pop_front();
    }

  private:
    void Run() {
        for (;;) {
            std::string barcode = ReadBarcode(m_Device, true);
            if (barcode.empty()) return;
            {
                std::lock_guard lock(m_Mutex);
                m_Barcodes.push_back(std::move(barcode));
            }
            m_Came.notify_one();
        }
    }

    const int m_Device = theDevice->Connect();
    std::mutex m_Mutex;  // guards m_Barcodes
    std::condition_variable m_Came;
    std::deque<std::string> m_Barcodes;
    std::thread m_Thread{[this] { Run(); }};
};

class Library : public Taker {
  public:
    Library() {
        if (openScanner(m_Handle, "protocol=usb") != ResultSuccess) Fail("openScanner");
    }
    ~Library() override { destoryScanner(m_Handle); }
    void TakeBarcode() override {
        int32_t type = 0;
        int32_t length = 0;
        if (getBarCode(m_Handle, &type, m_Buffer, sizeof m_Buffer, &length, 5000) != ResultSuccess) Fail("getBarCode");
    }

  private:
    const ScannerHandle m_Handle = createScanner();
    uint8_t m_Buffer[4096];
};

double NowUs() {
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Usage {
    double processorUs;
    double switches;
};

Usage UsageOfThisProcess() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    const auto us = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return {us(used.ru_utime) + us(used.ru_stime), static_cast<double>(used.ru_nvcsw + used.ru_nivcsw)};
}

double Quantile(std::vector<double> samples, double part) {
    const auto at = samples.begin() + static_cast<ptrdiff_t>(part * static_cast<double>(samples.size()));
    std::nth_element(samples.begin(), at, samples.end());
    return *at;
}

// What one figure came to in each round.
class Rounds {
  public:
    void Add(double value) { m_Values.push_back(value); }
    double Median() const { return Quantile(m_Values, 0.5); }

  private:
    std::vector<double> m_Values;
};

// Round trips: the application asks, the device sends one barcode, the application has it.
class RoundTrips {
  public:
    explicit RoundTrips(uint32_t reports) : m_Reports(reports) {}

    void Run(Taker& taker) {
        constexpr int kWarmUp = 100;
        const int trips = m_Reports == 1 ? 4000 : 1000;
        std::vector<double> samples;
        for (int i = -kWarmUp; i < trips; ++i) {
            const double start = NowUs();
            theDevice->Order(1, m_Reports);
            taker.TakeBarcode();
            if (i >= 0) samples.push_back(NowUs() - start);
        }
        m_Median.Add(Quantile(samples, 0.5));
        m_P99.Add(Quantile(samples, 0.99));
    }
    double Median() const { return m_Median.Median(); }
    double P99() const { return m_P99.Median(); }

  private:
    const uint32_t m_Reports;
    Rounds m_Median;
    Rounds m_P99;
};

void BM_RoundTrip(benchmark::State& state) {
    const auto reports = static_cast<uint32_t>(state.range(0));
    RoundTrips loop(reports);
    RoundTrips thread(reports);
    RoundTrips library(reports);
    for (auto _ : state) {
        const double start = NowUs();
        loop.Run(*std::make_unique<Loop>(true));
        thread.Run(*std::make_unique<HandingThread>());
        library.Run(*std::make_unique<Library>());
        state.SetIterationTime((NowUs() - start) / 1e6);
    }
    state.counters["loop_us"] = loop.Median();
    state.counters["thread_us"] = thread.Median();
    state.counters["library_us"] = library.Median();
    state.counters["library/thread"] = library.Median() / thread.Median();
    state.counters["thread_p99_us"] = thread.P99();
    state.counters["library_p99_us"] = library.P99();
    state.counters["p99_library/thread"] = library.P99() / thread.P99();
}
BENCHMARK(BM_RoundTrip)->ArgName("reports")->Arg(1)->Arg(36)->Iterations(5)->UseManualTime()->Unit(benchmark::kSecond);

// Barcodes of one report, as fast as they come.
class Streams {
  public:
    void Run(Taker& taker) {
        constexpr uint32_t kBarcodes = 300'000;
        const double start = NowUs();
        const Usage before = UsageOfThisProcess();
        theDevice->Order(kBarcodes, 1);
        for (uint32_t i = 0; i < kBarcodes; ++i) taker.TakeBarcode();
        m_PerSecond.Add(kBarcodes / (NowUs() - start) * 1e6);
        const Usage after = UsageOfThisProcess();
        m_ProcessorUs.Add((after.processorUs - before.processorUs) / kBarcodes);
        m_Switches.Add((after.switches - before.switches) / kBarcodes);
    }
    double PerSecond() const { return m_PerSecond.Median(); }
    double ProcessorUs() const { return m_ProcessorUs.Median(); }
    double Switches() const { return m_Switches.Median(); }

  private:
    Rounds m_PerSecond;
    Rounds m_ProcessorUs;
    Rounds m_Switches;
};

void BM_Stream(benchmark::State& state) {
    Streams loop;
    Streams thread;
    Streams library;
    for (auto _ : state) {
        const double start = NowUs();
        loop.Run(*std::make_unique<Loop>(false));
        thread.Run(*std::make_unique<HandingThread>());
        library.Run(*std::make_unique<Library>());
        state.SetIterationTime((NowUs() - start) / 1e6);
    }
    state.counters["loop_per_s"] = loop.PerSecond();
    state.counters["thread_per_s"] = thread.PerSecond();
    state.counters["library_per_s"] = library.PerSecond();
    state.counters["library/loop"] = library.PerSecond() / loop.PerSecond();
    state.counters["loop_cpu_us"] = loop.ProcessorUs();
    state.counters["thread_cpu_us"] = thread.ProcessorUs();
    state.counters["library_cpu_us"] = library.ProcessorUs();
    state.counters["thread_switches"] = thread.Switches();
    state.counters["library_switches"] = library.Switches();
}
BENCHMARK(BM_Stream)->Iterations(5)->UseManualTime()->Unit(benchmark::kSecond);

// What an open scanner costs that nobody uses.
void BM_Idle(benchmark::State& state) {
    constexpr auto kTime = std::chrono::seconds(10);
    Library library;
    Usage used{};
    for (auto _ : state) {
        const Usage before = UsageOfThisProcess();
        std::this_thread::sleep_for(kTime);
        const Usage after = UsageOfThisProcess();
        used = {after.processorUs - before.processorUs, after.switches - before.switches};
        state.SetIterationTime(std::chrono::duration<double>(kTime).count());
    }
    const double seconds = std::chrono::duration<double>(kTime).count();
    state.counters["percent_of_a_core"] = used.processorUs / 1e4 / seconds;
    state.counters["switches_per_s"] = used.switches / seconds;
}
BENCHMARK(BM_Idle)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--device") == 0) {
        return quillet::bench::RunDevice(argv[2], std::atoi(argv[3]));
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const DeviceProcess device(argv[0]);
    theDevice = &device;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
