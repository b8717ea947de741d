// SPDX-License-Identifier: MIT
// Settings, raw commands, exchanges and queries, as the scanner sees them.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "foundation/text.h"
#include "library/library_test.h"

namespace quillet::test {
namespace {

// The result of a call and what it has put into a buffer of this size.
template <typename Call>
Barcode Filled(int32_t size, Call call) {
    Barcode told;
    std::vector<uint8_t> buffer(static_cast<size_t>(size), 0xCC);
    int32_t length = -1;
    told.result = call(buffer.data(), &length);
    told.text = length < 0 ? "no length" : std::string(buffer.begin(), buffer.begin() + length);
    return told;
}

Barcode SerialNumber(const Handle& handle, int32_t size = 64) {
    return Filled(size, [&](uint8_t* text, int32_t* length) { return getScannerVersion(handle, text, size, length); });
}

class CommandTest : public OpenLinkTest {
  protected:
    CommandTest() {
        EXPECT_TRUE(m_Scanner->WaitForPackets(1));
        m_Scanner->ClearPackets();
    }
    // What directIO gives for bytes in hexadecimal.
    Barcode Exchange(const std::string& hexText, int64_t timeoutMs, int32_t size = 512) {
        const std::string bytes = ParseHexText(hexText);
        return Filled(size, [&](uint8_t* reply, int32_t* length) {
            return directIO(m_Handle, reinterpret_cast<const uint8_t*>(bytes.data()),
                            static_cast<int32_t>(bytes.size()), reply, size, length, timeoutMs);
        });
    }
    Barcode Query(int32_t id, int32_t size = 16) {
        return Filled(size, [&](uint8_t* value, int32_t* length) {
            return QueryCommandSetting(m_Handle, id, size, value, length);
        });
    }
};
INSTANTIATE_TEST_SUITE_P(Links, CommandTest, kBothParsers, ::testing::PrintToStringParamName());

TEST_P(CommandTest, SettingsFromFourThreadsStayWholeWhileBarcodesArrive) {
    constexpr int kCalls = 250;
    constexpr int kThreads = 4;
    m_Scanner->Tell("silent on");  // over a serial line answers and barcodes would run together
    std::vector<std::thread> callers;
    for (int thread = 0; thread < kThreads; ++thread) {
        callers.emplace_back([&, thread] {
            for (int i = 0; i < kCalls; ++i) {
                EXPECT_EQ(setGetSpecifiedRangeBarcodeData(m_Handle, thread, i), ResultSuccess);
            }
        });
    }
    constexpr int kBarcodes = 12;
    for (int i = 0; i < kBarcodes; ++i) ScanAndWait(*m_Scanner, m_Handle, 3, std::to_string(i));
    for (std::thread& caller : callers) caller.join();
    ASSERT_TRUE(m_Scanner->WaitForPackets(kThreads * kCalls));
    std::vector<int> next(kThreads, 0);
    for (const HostPacket& packet : m_Scanner->Packets()) {
        ASSERT_EQ(packet.opcode, 0x75);
        ASSERT_EQ(packet.parameters.size(), 2u);
        const auto thread = static_cast<uint8_t>(packet.parameters[0]);
        EXPECT_EQ(static_cast<uint8_t>(packet.parameters[1]), next[thread]++);  // none lost, in the thread's order
    }
    for (int i = 0; i < kBarcodes; ++i) EXPECT_EQ(m_Handle.Take().text, std::to_string(i));
}

TEST_P(CommandTest, SettingsAreReadBack) {
    m_Scanner->Tell("silent on");  // a late answer to one of them would be taken for a query's
    EXPECT_EQ(setCode39(m_Handle, 1), ResultSuccess);
    EXPECT_EQ(setCode11CheckBit(m_Handle, 2), ResultSuccess);
    EXPECT_EQ(setDecodeTimeOut(m_Handle, 1234), ResultSuccess);
    ASSERT_TRUE(m_Scanner->WaitForPackets(3));
    m_Scanner->Tell("silent off");
    EXPECT_EQ(Query(35).text, "\x01");
    EXPECT_EQ(Query(30).text, "\x02");
    EXPECT_EQ(Query(13).text, "\x0C");
    EXPECT_EQ(Query(147).result, ResultBadArgument);

    m_Scanner->Tell("store 40 0B ");
    EXPECT_EQ(Query(35), (Barcode{ResultSuccess, -1, ""}));
    m_Scanner->Tell("store 40 0B 3132333435");
    EXPECT_EQ(Query(35, 5).text, "12345");
    EXPECT_EQ(Query(35, 4).result, ResultReplyTooLong);
    m_Scanner->Tell("silent on");
    EXPECT_EQ(Query(35).result, ResultNoExist);
}

TEST_P(CommandTest, TheSerialNumberIsRead) {
    EXPECT_EQ(SerialNumber(m_Handle).text, "1234567890");
    EXPECT_EQ(SerialNumber(m_Handle, 9), (Barcode{ResultBufferTooSmall, -1, "no length"}));
    m_Scanner->Tell("silent on");
    EXPECT_EQ(SerialNumber(m_Handle).result, ResultNoExist);
}

TEST_P(CommandTest, ExchangesEndAsTold) {
    // The payload of a good reply without its first byte.
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000).text, "\x01");
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000, 1).result, ResultSuccess);
    m_Scanner->Tell("refuse on");  // an error status: the raw bytes
    const Barcode refused = Exchange("05 40 04 00 0B 01 AA", 2000);
    EXPECT_EQ(refused.result, ResultSuccess);
    EXPECT_GE(refused.text.size(), 6u);
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000, 3).result, ResultBufferTooSmall);
    m_Scanner->Tell("refuse off");

    m_Scanner->Tell("silent on");
    const int64_t start = MonotonicMs();
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 100).result, ResultTimeout);
    EXPECT_GE(MonotonicMs() - start, 395);  // 300 of delay and 100 of waiting
    m_Scanner->Tell("silent off");
}

TEST_P(CommandTest, ABarcodeAfterAnExchangeIsWholeAndAlone) {
    // The reply comes after the exchange, in pieces, behind a barcode, cut or spoilt.
    for (const char* disturbance :
         {"delay 550", "pieces 3", "interrupt 11 4006381333931", "fault truncate", "fault checksum"}) {
        m_Scanner->Tell(disturbance);
        Exchange("04 7E 04 00 00 79", 100);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        m_Scanner->Tell("delay 0");
        m_Scanner->Tell("pieces 0");
        const std::string text = "barcode after an exchange";
        m_Scanner->Scan(28, text);
        // Pieces of a serial reply that come late are text of unknown meaning; they stay apart.
        Barcode barcode;
        while ((barcode = m_Handle.Take()).result == ResultSuccess && barcode.type == 0) {
        }
        EXPECT_EQ(barcode, (Barcode{ResultSuccess, 28, text}));
    }
}

TEST(PortProbeTest, EveryPortIsAskedForItsScanner) {
    const Handle handle;
    uint8_t buffer[128] = {};
    int32_t length = -1;
    const auto first = NewScanner(ScannerLink::VirtualSerial, 40, "1234");
    const auto second = NewScanner(ScannerLink::VirtualSerial, 70, "5678");
    const auto silent = NewScanner(ScannerLink::Serial, 100, "9999");
    silent->Tell("silent on");
    ASSERT_EQ(getSerialPortDevice(handle, sizeof buffer, buffer, &length), ResultSuccess);
    const std::string text(buffer, buffer + length);
    EXPECT_NE(text.find("COM40,SN:1234||COM70,SN:5678||"), std::string::npos) << text;
    EXPECT_EQ(text.find("COM100,"), std::string::npos) << text;
    EXPECT_EQ(handle.State(), ScannerStateClosed);
    first->Unplug();
    silent->Unplug();
    EXPECT_EQ(getSerialPortDevice(handle, 4, buffer, &length), ResultReplyTooLong);
    EXPECT_EQ(buffer[0], 0);

    const char* connection = "protocol=virtual serial port,serialport=70";
    EXPECT_EQ(PortCommandInteraction(handle, connection, "AA BB,CC"), ResultSuccess);
    EXPECT_EQ(handle.State(), ScannerStateEnabled);
}

TEST(PortProbeTest, TwoScannersDoNotHinderEachOther) {
    const auto slowOne = NewScanner(ScannerLink::VirtualSerial, 40, "1111");
    const auto other = NewScanner(ScannerLink::Serial, kPort, "2222");
    slowOne->Tell("silent on");
    const Handle first;
    const Handle second;
    ASSERT_EQ(openScanner(first, "protocol=virtual serial port,serialport=40"), ResultSuccess);
    ASSERT_EQ(Open(second, ScannerLink::Serial), ResultSuccess);
    std::atomic<bool> waiting{true};
    std::thread slow([&] {
        EXPECT_EQ(SerialNumber(first).result, ResultNoExist);
        waiting = false;
    });
    ASSERT_TRUE(slowOne->WaitForPackets(2));  // the opening's is the first
    EXPECT_EQ(SerialNumber(second).text, "2222");
    EXPECT_TRUE(waiting);
    slow.join();
}

}  // namespace
}  // namespace quillet::test
