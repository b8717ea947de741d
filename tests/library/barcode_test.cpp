// Barcodes from a scanner to the application.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "library/library_test.h"
#include "support/process.h"

namespace quillet::tests {
namespace {

std::string RandomBytes(std::mt19937& random, size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

class BarcodeTest : public LibraryTest, public ::testing::WithParamInterface<ScannerLink> {
  protected:
    void SetUp() override {
        m_Scanner = NewScanner(GetParam());
        ASSERT_EQ(openScanner(m_Handle, ConnectionOf(GetParam()).c_str()), ResultSuccess);
    }
    std::unique_ptr<VirtualScanner> m_Scanner;
    Handle m_Handle;
};
INSTANTIATE_TEST_SUITE_P(Links, BarcodeTest,
                         ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial, ScannerLink::Serial),
                         LinkName);

#ifdef _WIN32
constexpr int kUsbBarcodes = 60;  // each of 36 reports on average, whose way through a driver takes its time
#else
constexpr int kUsbBarcodes = 500;
#endif

TEST_P(BarcodeTest, EachArrivesOnceInOrderByteForByte) {
    std::mt19937 random(1);
    const bool usb = GetParam() == ScannerLink::Usb;
    const int count = Repetitions("QUILLET_TEST_BARCODES", usb ? kUsbBarcodes : 100);
    std::vector<std::string> sent;
    for (int i = 0; i < count; ++i) sent.push_back(RandomBytes(random, 1 + random() % 4000));
    sent[0].resize(1);
    sent[1] = RandomBytes(random, 4000);
    std::thread scanning([&] {
        for (const std::string& text : sent)
            usb ? (void)m_Scanner->Scan(3, text) : ScanAndWait(*m_Scanner, m_Handle, 3, text);
    });
    scanning.join();
    for (const std::string& text : sent) ASSERT_EQ(m_Handle.Take(), (Barcode{ResultSuccess, 3, text}));
    EXPECT_EQ(m_Handle.CacheCount(), 0);
}

TEST_P(BarcodeTest, TheCacheKeepsBarcodesWithTheirTypes) {
    const struct {
        uint8_t sent;
        int32_t received;
    } types[] = {{28, 28}, {183, 183}, {0, 0}, {42, 0}, {255, 0}};  // unknown ones arrive as 0
    for (const auto& row : types) ScanAndWait(*m_Scanner, m_Handle, row.sent, "type " + std::to_string(row.sent));
    // Without a pointer for the type, the barcode's type goes with it all the same.
    uint8_t buffer[16] = {};
    int32_t length = 0;
    EXPECT_EQ(getBarCode(m_Handle, nullptr, buffer, sizeof buffer, &length, 0), ResultSuccess);
    for (size_t i = 1; i < std::size(types); ++i) {
        EXPECT_EQ(m_Handle.Take(0),
                  (Barcode{ResultSuccess, types[i].received, "type " + std::to_string(types[i].sent)}));
    }
    EXPECT_EQ(closeScanner(m_Handle), ResultSuccess);
    EXPECT_EQ(m_Handle.CacheCount(), 0);
}

TEST_P(BarcodeTest, BareTextIsABarcodeOfTypeZero) {
    const std::string text = "plain\r\n\x01";
    m_Scanner->Plain(text);
    if (GetParam() == ScannerLink::Usb) {  // a block of an unknown kind is no barcode
        m_Scanner->Scan(3, "next");
        EXPECT_EQ(m_Handle.Take(), (Barcode{ResultSuccess, 3, "next"}));
    } else {
        EXPECT_EQ(m_Handle.Take(), (Barcode{ResultSuccess, 0, text}));
    }
}

TEST_P(BarcodeTest, DamagedOnesNeverHurtTheNext) {
    for (const tools::Fault fault : {tools::Fault::Checksum, tools::Fault::Length, tools::Fault::Truncate}) {
        if (fault == tools::Fault::Checksum && GetParam() == ScannerLink::Usb) continue;  // scan blocks have none
        m_Scanner->SetFault(fault);
        m_Scanner->Scan(11, "4006381333931");
        std::this_thread::sleep_for(std::chrono::milliseconds(400));  // a read of its own
        m_Scanner->Scan(11, "9783161484100");
        Barcode last;
        while ((last = m_Handle.Take()).result == ResultSuccess && last.text != "9783161484100") {
            EXPECT_EQ(last.type, 0);  // what is left of the damaged one is text of unknown meaning
        }
        EXPECT_EQ(last, (Barcode{ResultSuccess, 11, "9783161484100"}));
    }
}

TEST_P(BarcodeTest, ABufferMayBeExactlyFullAndLosesWhatDoesNotFit) {
    for (const char* text : {"12345678", "123456789", "1234567"}) ScanAndWait(*m_Scanner, m_Handle, 3, text);
    EXPECT_EQ(m_Handle.Take(0, 8), (Barcode{ResultSuccess, 3, "12345678"}));
    uint8_t buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), uint8_t{0xCC});
    int32_t type = 0;
    int32_t length = -1;
    EXPECT_EQ(getBarCode(m_Handle, &type, buffer, 8, &length, 0), ResultBufferTooSmall);
    EXPECT_EQ(length, -1);
    EXPECT_EQ(buffer[0], 0xCC);
    EXPECT_EQ(getBarCode(m_Handle, &type, buffer, 8, &length, 0), ResultSuccess);
    EXPECT_EQ(buffer[7], 0);  // the rest of the buffer is zeroed
    EXPECT_EQ(length, 7);
}

TEST_P(BarcodeTest, WaitingBurnsNoProcessor) {
    std::thread waiting([&] { m_Handle.Take(-1); });
    const int64_t before = test::ProcessorTimeMs();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LT(test::ProcessorTimeMs() - before, 200);  // sanitizers included
    m_Scanner->Scan(1, "end");
    waiting.join();
}

using ConsumersTest = LibraryTest;

TEST_F(ConsumersTest, ThreeShareTheBarcodes) {
    auto scanner = NewScanner(ScannerLink::Usb);
    Handle handle;
    ASSERT_EQ(openScanner(handle, "protocol=usb"), ResultSuccess);
    constexpr int kCount = 60;
    std::vector<std::vector<std::string>> taken(3);
    std::atomic<int> left{kCount};
    const int64_t end = MonotonicMs() + kPatienceMs;
    std::vector<std::thread> consumers;
    for (auto& mine : taken) {
        consumers.emplace_back([&] {
            while (left > 0 && MonotonicMs() < end) {
                const Barcode barcode = handle.Take(100);
                if (barcode.result == ResultSuccess) {
                    mine.push_back(barcode.text);
                    --left;
                } else {
                    EXPECT_EQ(barcode.result, ResultTimeout);
                }
            }
        });
    }
    for (int i = 0; i < kCount; ++i) scanner->Scan(3, std::to_string(i));
    for (std::thread& consumer : consumers) consumer.join();
    std::vector<int> all;
    for (const auto& mine : taken) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end(),
                                   [](const auto& a, const auto& b) { return std::stoi(a) < std::stoi(b); }));
        for (const std::string& text : mine) all.push_back(std::stoi(text));
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(kCount);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(all, expected);
}

}  // namespace
}  // namespace quillet::tests
