// SPDX-License-Identifier: MIT
// What becomes of received blocks: barcodes, and replies to an exchange.
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/barcode_assembly.h"
#include "service/barcode_cache.h"
#include "service/exchange.h"
#include "support/fast_clock.h"
#include "support/reply_frame.h"
#include "transport/port_discovery.h"

namespace quillet::test {
namespace {

using Barcodes = std::vector<std::pair<int32_t, std::string>>;

class BarcodeAssemblyTest : public ::testing::Test, protected BarcodeAssembly::Sink {
  protected:
    void OnBarcode(std::string text, int32_t codeType) override { m_Barcodes.emplace_back(codeType, std::move(text)); }
    void OnBarcodePart() override { ++m_Parts; }
    void Serial(const std::string& block) { m_Assembly.TakeBlock(block, LinkSerial); }
    Barcodes TakeAll() { return std::exchange(m_Barcodes, {}); }

    BarcodeAssembly m_Assembly{*this};
    Barcodes m_Barcodes;
    int m_Parts = 0;
};

std::string ScanBlock(const std::string& data, uint8_t codeType, bool more) {
    std::string block(64, '\0');
    block[1] = 2;
    block[2] = static_cast<char>(data.size());
    block.replace(3, data.size(), data);
    block[61] = static_cast<char>(codeType);
    block[63] = more ? 1 : 0;
    return block;
}

std::string Part(uint8_t codeType, const std::string& text) {
    return Frame(0xEE, codeType, '\0' + text);
}
std::string Last(uint8_t codeType, const std::string& text) {
    return Frame(0xEE, codeType, kLast + text);
}

std::string PacketBlock(uint8_t kind) {
    std::string block(64, '\0');
    block[1] = static_cast<char>(kind);
    return block.replace(3, 11, Last(11, "1234"));
}

TEST_F(BarcodeAssemblyTest, BlocksBecomeBarcodes) {
    const std::string half = Last(3, "abcdef").substr(0, 8);
    const std::string a56(56, 'a');
    std::string tooLong = ScanBlock("x", 3, false);
    tooLong[2] = 60;
    const std::string cut = ScanBlock("cut off", 3, true).substr(0, 32);
    const struct {
        const char* what;
        LinkType link;
        std::vector<std::string> blocks;
        Barcodes barcodes;
    } cases[] = {
        {"a frame", LinkSerial, {Last(11, "4006381333931")}, {{11, "4006381333931"}}},
        {"an unknown type", LinkSerial, {Last(42, "x")}, {{0, "x"}}},
        {"parts, the last one's type", LinkSerial, {Part(3, "ab"), Last(28, "cd")}, {{28, "abcd"}}},
        {"two parts in one read", LinkSerial, {Part(3, "a") + Last(3, "b")}, {{3, "ab"}}},
        {"what stands behind a barcode goes with it", LinkSerial, {Last(3, "a") + Last(3, "b")}, {{3, "a"}}},
        {"a bad checksum", LinkSerial, {Frame(0xEE, 3, kLast + "a", 1)}, {}},
        {"a reply to a setting", LinkSerial, {Frame(0x40, 128, "\x0B\x01")}, {}},
        {"a barcode behind a reply", LinkSerial, {Frame(0x40, 128, "\x0B\x01") + Last(3, "a")}, {{3, "a"}}},
        {"a half frame is text, and so is the rest", LinkSerial, {half, "tail"}, {{0, half}, {0, "tail"}}},
        {"bare text", LinkSerial, {"123"}, {{0, "123"}}},
        {"control bytes", LinkSerial, {std::string("\0\1\2\0", 4)}, {{0, std::string("\0\1\2\0", 4)}}},
        {"a length that can't be", LinkSerial, {std::string("\0\1abc", 5)}, {{0, std::string("\0\1abc", 5)}}},
        {"an empty barcode", LinkSerial, {Last(3, "")}, {{3, ""}}},
        {"parts", LinkUsbHid, {ScanBlock(a56, 3, true), ScanBlock("b", 28, false)}, {{28, a56 + "b"}}},
        {"an empty barcode", LinkUsbHid, {ScanBlock("", 28, false)}, {{28, ""}}},
        {"a packet in a block", LinkUsbHid, {PacketBlock(4)}, {{11, "1234"}}},
        {"a block of no known kind", LinkUsbHid, {PacketBlock(3)}, {}},
        {"a length beyond the block", LinkUsbHid, {tooLong}, {{0, tooLong}}},
        {"a block that was cut", LinkUsbHid, {cut}, {{0, cut}}},
        {"a short one", LinkUsbHid, {"short"}, {{0, "short"}}},
    };
    for (const auto& row : cases) {
        for (const std::string& block : row.blocks) m_Assembly.TakeBlock(block, row.link);
        EXPECT_EQ(TakeAll(), row.barcodes) << row.what;
        m_Assembly.TakeBlock(row.link == LinkUsbHid ? ScanBlock("next", 3, false) : Last(3, "next"), row.link);
        EXPECT_EQ(TakeAll(), (Barcodes{{3, "next"}})) << "left behind by " << row.what;
    }
    EXPECT_EQ(m_Parts, 3);
}

// A device that never ends a barcode doesn't fill the memory, and the rest of what it sent is no barcode.
TEST_F(BarcodeAssemblyTest, MoreThanAMebibyteIsDroppedToItsEnd) {
    const std::string part = Part(3, std::string(32 << 10, 'x'));
    const std::string last = Last(3, std::string(32 << 10, 'x'));
    for (int i = 0; i < 31; ++i) Serial(part);
    Serial(last);
    ASSERT_EQ(m_Barcodes.size(), 1u);
    EXPECT_EQ(TakeAll()[0].second.size(), 1u << 20);
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.DropParts();  // an exchange is no end
    Serial(part);
    Serial(last);
    EXPECT_EQ(TakeAll(), Barcodes{});
    Serial(Last(3, "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
    for (int i = 0; i < 33; ++i) Serial(part);
    m_Assembly.PassLastPart();  // it came during an exchange
    Serial(Last(3, "good"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "good"}}));
}

const std::string kVersionReply = Frame(0x7E, 0x80, std::string("\0ABC", 4));

// An exchange on its own; what the plan sends is the scanner's answer.
class ExchangeTest : public BarcodeAssemblyTest {
  protected:
    ExchangeTest() { m_Status.Set(StatusEnabled); }
    void Answer(const std::string& block) { m_Exchange.TakeBlock(block, LinkSerial); }
    ExchangeOutcome Run(std::function<void()> send, uint32_t timeoutMs = platform::kNoLimitMs) {
        ExchangePlan plan;
        plan.send = std::move(send);
        plan.timeoutMs = timeoutMs;
        return m_Exchange.Run(plan);
    }

    FastClock m_Clock{20};
    StatusBits m_Status;
    Exchange m_Exchange{m_Status, m_Assembly};
};

// Neither a late reply nor parts from before it are joined to what comes next.
TEST_F(ExchangeTest, LeavesNothingBehind) {
    Serial(Part(3, "a"));
    EXPECT_EQ(Run([] {}, 1).result, ResultTimeout);
    Answer(kVersionReply);
    EXPECT_EQ(Run([] {}, 1).result, ResultTimeout);
    EXPECT_EQ(Run([&] { Answer(Frame(0x7E, 0x80, std::string("\0D", 2))); }).reply, "D");
    Serial(Last(3, "b"));
    EXPECT_EQ(TakeAll(), (Barcodes{{3, "b"}}));
}

TEST_F(ExchangeTest, AReplyOfMoreThanAMebibyteIsNone) {
    const int64_t start = m_Clock.NowNs();
    const auto answers = [&] {
        Answer(kVersionReply);
        for (int i = 0; i < 17; ++i) Answer(std::string(64 << 10, 'x'));
    };
    EXPECT_EQ(Run(answers, 2000).result, ResultTimeout);
    EXPECT_GE(m_Clock.NowNs() - start, 2'000'000'000);
}

// The handle is being closed or destroyed, or the scanner has gone, while an exchange without a limit begins or runs.
TEST_F(ExchangeTest, NoneWaitsThatNothingWouldEnd) {
    std::thread closing;
    EXPECT_EQ(Run([&] { closing = std::thread([&] { m_Exchange.Close(); }); }).result, ResultTimeout);
    closing.join();
    EXPECT_EQ(Run([] { FAIL(); }).result, ResultIllegal);
    m_Exchange.Open();
    EXPECT_EQ(Run([&] { m_Exchange.BreakUnlimited(); }).result, ResultTimeout);
    const auto brokenAndAnswered = [&] {
        m_Exchange.BreakUnlimited();
        Answer(kVersionReply);
    };
    EXPECT_EQ(Run(brokenAndAnswered, 5000).result, ResultSuccess);  // has a limit
    m_Exchange.ForgetReplies();
    EXPECT_EQ(Run([&] { m_Exchange.CloseForGood(); }).result, ResultTimeout);
    EXPECT_TRUE(m_Exchange.AwaitAnyReply(0));
    m_Exchange.Open();
    EXPECT_EQ(Run([] { FAIL(); }).result, ResultIllegal);
}

TEST(BarcodeCacheTest, EachPropertyReadsItsOwnList) {
    BarcodeCache cache;
    for (int i = 0; i < 5000; ++i) cache.Add({std::to_string(i), i});
    EXPECT_EQ(cache.PopType(), 0);
    EXPECT_EQ(cache.PopLabel(), "904");  // the newest 4,096
    const std::optional<CachedBarcode> taken = cache.Take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->text, "0");
    EXPECT_EQ(taken->codeType, 1);
    EXPECT_EQ(taken->count, 5000u);  // without a limit
    EXPECT_EQ(cache.Count(), 4999u);
    cache.Clear();
    for (int i = 0; i < 17; ++i) cache.Add({std::string(1 << 20, static_cast<char>('a' + i)), 3});
    EXPECT_EQ(cache.PopLabel()[0], 'b');  // 16 MiB of labels
    EXPECT_EQ(cache.PopText()[0], 'a');
}

}  // namespace
}  // namespace quillet::test
