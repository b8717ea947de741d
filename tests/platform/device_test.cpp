// SPDX-License-Identifier: MIT
// What each kind of device keeps to, on each system.
#include "device_test.h"

#include <gmock/gmock.h>

#include "far_ends.h"
#include "platform/event.h"
#include "support/process.h"

namespace quillet::test {
using namespace platform;
namespace {

using Outcome = WriteResult::Outcome;

template <typename FarEnd>
using AnyDevice = DeviceTest<FarEnd>;
TYPED_TEST_SUITE(AnyDevice, FarEnds);

TYPED_TEST(AnyDevice, StopWinsOverDataAndEndsWaits) {
    std::vector<uint8_t> buffer(kReportSize);
    ASSERT_EQ(this->m_Reader->Start(buffer.data(), kReportSize).state, IoState::Pending);
    this->m_FarEnd.Send(Report('x'));
    this->m_Stop.Set();
    this->m_Stop.Set();
    EXPECT_TRUE(this->m_Stop.Wait(kNoLimitMs));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(this->m_Reader->Wait(this->m_Stop), ReadWait::Stopped);
    this->m_Reader = this->m_Device->NewReader();  // the read is done, or about to be; both end at once
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900))
        << "a cancelled read that doesn't end takes a second";
    EXPECT_TRUE(this->m_Stop.IsSet());
    this->m_Stop.Reset();
    EXPECT_FALSE(this->m_Stop.IsSet());
    if (!kOnWindows) {
        EXPECT_EQ(this->Read().bytes, Report('x')) << "what wasn't taken is still there";
    }
    EXPECT_EQ(this->Read(kReportSize, [this] { this->m_Stop.Set(); }).wait, ReadWait::Stopped);
}

TYPED_TEST(AnyDevice, AWriteThatNobodyTakesEndsWithTheStopSignalOrTheDevice) {
    const WriteResult stopped = this->WriteUntil([this] { this->m_Stop.Set(); });
    EXPECT_EQ(stopped.outcome, Outcome::FailedPending);
    EXPECT_EQ(stopped.error, kStoppedCode);
    EXPECT_EQ(stopped.count > 0, TypeParam::kIsSerial && !kOnWindows);
    EXPECT_LT(stopped.count, TypeParam::kWriteSize);

    this->Plug();
    this->m_Stop.Reset();
    // The read thread sees the loss at the same moment.
    Thread reading = StartThread("reading", [this] { EXPECT_FALSE(this->Read().finish.ok); });
    const WriteResult lost = this->WriteUntil([this] { this->m_FarEnd.Pull(); });
    reading.Join();
    if (TypeParam::kWriteSize > kReportSize) {  // a report may just have been refused
        EXPECT_EQ(lost.outcome, Outcome::FailedPending);
    }
    EXPECT_NE(lost.outcome, Outcome::Written);
    EXPECT_NE(lost.error, 0U);
    EXPECT_NE(lost.error, kStoppedCode);
}

TYPED_TEST(AnyDevice, ALossFailsReadsAndWritesUntilItIsOpenedAgain) {
    for (const bool whileReading : {true, false}) {
        const auto pull = [this] { this->m_FarEnd.Pull(); };
        const size_t handles = HandleCount();
        if (!whileReading) pull();
        const ReadOutcome lost = whileReading ? this->Read(kReportSize, pull) : this->Read();
        EXPECT_FALSE(lost.finish.ok || lost.wait == ReadWait::Stopped);
        EXPECT_THAT(kLossCodes, testing::Contains(lost.start.error + lost.finish.error));
        if (!kOnWindows) {
            EXPECT_EQ(HandleCount(), handles - 2) << "each end is closed";
        }
        EXPECT_EQ(this->m_Reader->LastError(), lost.finish.error);
        EXPECT_EQ(this->Read().start.error, kGoneCode);
        const WriteResult written = this->m_Device->Write("x", this->m_Stop);
        EXPECT_EQ(written.outcome, Outcome::FailedAtOnce);
        EXPECT_NE(written.error, 0U);
        EXPECT_EQ(written.count, 0U);
        this->Plug();
        this->m_FarEnd.Send(Report('b'));
        EXPECT_EQ(this->Read().bytes, Report('b'));
    }
}

}  // namespace
}  // namespace quillet::test
