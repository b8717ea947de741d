// SPDX-License-Identifier: MIT
#include "device_test.h"
#include "far_ends.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace platform;
namespace {

using Outcome = WriteResult::Outcome;
using PipeDevice = DeviceTest<Pipe>;

TEST_F(PipeDevice, BytesPassBothWaysAtOnceOrLater) {
    m_FarEnd.Send(AllBytes());
    EXPECT_EQ(Read(256).bytes, AllBytes());
    const ReadOutcome later = Read(kReportSize, [this] { m_FarEnd.Send("later"); });
    EXPECT_EQ(later.start.state, IoState::Pending);
    EXPECT_EQ(later.bytes, "later");
    m_FarEnd.Send("");
    const ReadOutcome empty = Read();
    EXPECT_TRUE(empty.finish.ok);
    EXPECT_EQ(empty.bytes, "");

    // A read that goes on doesn't hold up a write.
    Thread reading = StartThread("reading", [this] { EXPECT_EQ(Read().bytes, "answer"); });
    const WriteResult written = m_Device->Write(AllBytes(), m_Stop);
    EXPECT_EQ(written.outcome, Outcome::Written);
    EXPECT_EQ(written.count, 256U);
    EXPECT_EQ(m_FarEnd.Receive(256), AllBytes());
    m_FarEnd.Send("answer");
    reading.Join();
}

TEST_F(PipeDevice, AStoppedReadIsNoLongerThereWhenTheNextStarts) {
    constexpr int kRounds = 50;
    size_t handles = 0;
    std::vector<uint8_t> buffer(kReportSize);
    for (int round = 0; round < kRounds; ++round) {
        if (round == 2) handles = HandleCount();  // the first rounds may load what stays
        m_Stop.Set();
        EXPECT_TRUE(Read().wait == ReadWait::Stopped);
        m_Stop.Reset();
        if (round % 2 == 0) m_Reader = m_Device->NewReader();  // else the same reader goes on
        ASSERT_EQ(m_Reader->Start(buffer.data(), kReportSize).state, IoState::Pending);
        m_FarEnd.Send("scan");
        ASSERT_EQ(m_Reader->Wait(m_Stop), ReadWait::Finished);
        EXPECT_EQ(m_Reader->Finish().count, 4U);
    }
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 4), "scan");
    EXPECT_LE(HandleCount(), handles);
}

TEST(WindowsDeviceAccess, SharesOrKeepsWhatItOpens) {
    const TempTree tree;
    const auto open = [](const std::string& path, Sharing sharing) {
        return WindowsDeviceAccess().Open(path, sharing);
    };
    const std::string file = tree.Write("file", "x");
    for (const Sharing first : {Sharing::Shared, Sharing::Exclusive}) {
        const OpenResult held = open(file, first);
        ASSERT_NE(held.file, nullptr);
        EXPECT_EQ(open(file, Sharing::Shared).error, first == Sharing::Shared ? 0 : DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(open(file, Sharing::Exclusive).error, DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(open(tree.Path("none"), Sharing::Shared).error, DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(open("\\\\.\\COM255", Sharing::Exclusive).error, DWORD{ERROR_FILE_NOT_FOUND});
    const OpenResult empty = open("", Sharing::Shared);
    EXPECT_TRUE(empty.file == nullptr && empty.error != 0);
}

}  // namespace
}  // namespace quillet::test
