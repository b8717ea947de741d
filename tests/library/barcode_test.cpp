// SPDX-License-Identifier: MIT
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

namespace quillet::test {
namespace {

std::string RandomBytes(std::mt19937& random, size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

using BarcodeTest = OpenLinkTest;
INSTANTIATE_TEST_SUITE_P(Links, BarcodeTest, kAllLinks, ::testing::PrintToStringParamName());

TEST_P(BarcodeTest, EachArrivesOnceInOrderByteForByte) {
    std::mt19937 random(1);
    const bool usb = GetParam() == ScannerLink::Usb;
    constexpr size_t kLongest = 4000;
    // A terminal takes what is longer than 2 KB in pieces, and a busy machine may pause between them: one barcode is.
    const size_t mostly = usb ? kLongest : 1500;
    std::vector<std::string> sent{RandomBytes(random, 1), RandomBytes(random, kLongest)};
    for (int i = usb ? 498 : 98; i > 0; --i) sent.push_back(RandomBytes(random, 1 + random() % mostly));
    for (const std::string& text : sent) {
        if (usb) {
            m_Scanner->Scan(3, text);
        } else {
            ScanAndWait(*m_Scanner, m_Handle, 3, text);
        }
    }
    for (const std::string& text : sent) ASSERT_EQ(m_Handle.Take(), (Barcode{ResultSuccess, 3, text}));
    EXPECT_EQ(m_Handle.CacheCount(), 0);
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
    const int64_t before = ProcessorTimeMs();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LT(ProcessorTimeMs() - before, 200);  // sanitizers included
    m_Scanner->Scan(1, "end");
    waiting.join();
}

TEST(ConsumersTest, ThreeShareTheBarcodes) {
    const auto scanner = NewScanner(ScannerLink::Usb);
    const Handle handle;
    ASSERT_EQ(Open(handle, ScannerLink::Usb), ResultSuccess);
    constexpr int kCount = 60;
    std::vector<std::vector<int>> taken(3);
    std::atomic<int> left{kCount};
    const int64_t end = MonotonicMs() + kPatienceMs;
    std::vector<std::thread> consumers;
    for (std::vector<int>& mine : taken) {
        consumers.emplace_back([&] {
            while (left > 0 && MonotonicMs() < end) {
                const Barcode barcode = handle.Take(100);
                if (barcode.result == ResultSuccess) {
                    mine.push_back(std::stoi(barcode.text));
                    --left;
                } else {
                    EXPECT_EQ(barcode.result, ResultTimeout);
                }
            }
        });
    }
    for (int i = 0; i < kCount; ++i) {
        EXPECT_TRUE(Eventually([&] { return i - (kCount - left) < 25; }));  // what a HID class may keep for a busy host
        scanner->Scan(3, std::to_string(i));
    }
    for (std::thread& consumer : consumers) consumer.join();
    std::vector<int> all;
    for (const std::vector<int>& mine : taken) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(kCount);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(all, expected);
}

}  // namespace
}  // namespace quillet::test
