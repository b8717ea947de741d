// SPDX-License-Identifier: MIT
// The waits of getBarCode, on a clock that goes by them alone.
#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <quillet/quillet.h>

#include "api/handle/scanner_object.h"
#include "service/service_fixture.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

using ::testing::ElementsAre;
using Waits = std::vector<uint32_t>;

// In use from its making to its end, by one thread.
class StepClock : public platform::Clock {
  public:
    StepClock() { platform::ReplaceClock(this); }
    ~StepClock() override { platform::ReplaceClock(nullptr); }

    int64_t NowNs() override { return std::exchange(m_NowNs, m_NowNs + nsPerLook); }
    platform::LocalTime Local() override { return {}; }
    void SleepMs(uint32_t ms) override { Pass(ms); }
    platform::WaitResult Wait(platform::Event&, uint32_t timeoutMs) override {
        waits.push_back(timeoutMs);
        Pass(duringWait ? duringWait() : timeoutMs);
        return platform::WaitResult::Signalled;
    }

    int64_t nsPerLook = 0;                 // what passes with each look at the clock
    std::function<uint32_t()> duringWait;  // the milliseconds that it took
    Waits waits;                           // milliseconds, each as it was asked for

  private:
    void Pass(uint32_t ms) { m_NowNs += int64_t{ms} * 1'000'000; }

    int64_t m_NowNs = 0;
};

// A handle that was never opened waits like any other.
class BarcodeWaitTest : public ::testing::Test {
  protected:
    ResultCode Take(int64_t timeoutMs, int32_t* codeType = nullptr) {
        uint8_t buffer[16];
        int32_t length = 0;
        m_Clock.waits.clear();
        return getBarCode(&m_Object, codeType, buffer, sizeof buffer, &length, timeoutMs);
    }
    void Receive(std::string block) { (m_Object.scanner.*(&TestScanner::ProcessDataEvent))(block, kGoodRead); }
    int32_t DataEventEnabled() {
        int32_t value = -1;
        m_Object.scanner.GetPropertyNumber(PropDataEventEnabled, &value);
        return value;
    }

    ScannerObject m_Object;
    StepClock m_Clock;
};

TEST_F(BarcodeWaitTest, TimeOutsAreLookedAtEvery100Ms) {
    const struct {
        int64_t timeoutMs;
        Waits waits;
    } cases[] = {{0, {100}}, {99, {100}}, {100, {100, 100}}, {250, {100, 100, 100}}};
    for (const auto& row : cases) {
        EXPECT_EQ(Take(row.timeoutMs), ResultTimeout) << row.timeoutMs;
        EXPECT_EQ(m_Clock.waits, row.waits) << row.timeoutMs;
        EXPECT_EQ(DataEventEnabled(), 0) << row.timeoutMs;
    }
    m_Clock.nsPerLook = 1'000'000;  // a machine so slow that the first millisecond is over before the first look
    EXPECT_EQ(Take(0), ResultTimeout);
    EXPECT_EQ(m_Clock.waits, Waits{});
}

TEST_F(BarcodeWaitTest, ABarcodeEndsAWaitAtOnce) {
    for (const int64_t timeoutMs : {-1, 0, 5000}) {
        m_Clock.duringWait = [&] {
            EXPECT_EQ(DataEventEnabled(), 1);
            Receive("barcode");
            return 1;
        };
        EXPECT_EQ(Take(timeoutMs), ResultSuccess) << timeoutMs;
        EXPECT_EQ(m_Clock.waits, Waits{timeoutMs < 0 ? platform::kNoLimitMs : 100}) << timeoutMs;
        EXPECT_EQ(DataEventEnabled(), 0) << timeoutMs;
    }
}

TEST_F(BarcodeWaitTest, AWakingForAnothersBarcodeCostsNoTime) {
    m_Clock.duringWait = [] { return 30; };  // woken, and nothing is there
    EXPECT_EQ(Take(150), ResultTimeout);
    EXPECT_EQ(m_Clock.waits, (Waits{100, 70, 40, 10, 100, 70, 40, 10}));  // 120 ms each, as the last one is too long
}

// What an administrator reads of a call: its steps, each once.
TEST_F(BarcodeWaitTest, TracesItsStepsAsTheyAre) {
    LogReader log;
    const auto steps = [&] {
        std::vector<std::string> taken;
        for (const std::string& line : log.Take()) {
            const size_t at = line.find(":>>> ");
            if (at != std::string::npos && line.find("etProperty") != std::string::npos) {
                taken.push_back(line.substr(at + 5));
            }
        }
        return taken;
    };
    const std::string count = "GetPropertyNumber\t Unknown";
    const std::string dataEvents = "SetPropertyNumber\t DataEventEnabled";
    const std::string type = "GetPropertyNumber\t Scan_ScanDataType";
    const std::string text = "CScanner::GetPropertyString";
    Receive("barcode");
    EXPECT_EQ(Take(-1), ResultSuccess);  // without a pointer for the type
    EXPECT_EQ(m_Clock.waits, Waits{});
    EXPECT_THAT(steps(), ElementsAre(count, text));
    m_Clock.duringWait = [&] {
        Receive("barcode");
        return 100;
    };
    int32_t codeType = 0;
    EXPECT_EQ(Take(1000, &codeType), ResultSuccess);
    EXPECT_THAT(steps(), ElementsAre(count, dataEvents, count, count, dataEvents, type, text));
}

TEST_F(BarcodeWaitTest, AnothersResultIsNotIts) {
    std::atomic<bool> done{false};
    std::thread other([&] {
        while (!done) m_Object.scanner.SetPropertyNumber(PropClaimed, 1);
    });
    for (int i = 0; i < 5000; ++i) {
        Receive("barcode");
        EXPECT_EQ(Take(0), ResultSuccess);
    }
    done = true;
    other.join();
}

}  // namespace
}  // namespace quillet::test
