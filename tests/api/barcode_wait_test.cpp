// The waits of getBarCode, on a clock that goes by them alone.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <quillet/quillet.h>

#include "api/handle/scanner_object.h"
#include "service/service_bench.h"

namespace quillet::test {
namespace {

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
    ResultCode Take(int64_t timeoutMs) {
        uint8_t buffer[16];
        int32_t length = 0;
        m_Clock.waits.clear();
        return getBarCode(&m_Object, nullptr, buffer, sizeof buffer, &length, timeoutMs);
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

TEST_F(BarcodeWaitTest, TheEndOfTheHandleEndsAWait) {
    m_Clock.duringWait = [&] {
        m_Object.scanner.EndWaits();
        return 1;
    };
    EXPECT_EQ(Take(-1), ResultTimeout);
    EXPECT_EQ(m_Clock.waits, Waits{platform::kNoLimitMs});
}

TEST_F(BarcodeWaitTest, AWaitingBarcodeIsTakenWithoutAWait) {
    Receive("barcode");
    EXPECT_EQ(Take(-1), ResultSuccess);
    EXPECT_EQ(m_Clock.waits, Waits{});
}

}  // namespace
}  // namespace quillet::test
