// SPDX-License-Identifier: MIT
// Settings, raw commands, exchanges and queries, as the scanner sees them.
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/text.h"
#include "library/library_test.h"

namespace quillet::test {
namespace {

class CommandTest : public OpenLinkTest {
  protected:
    CommandTest() {
        EXPECT_TRUE(m_Scanner->WaitForPackets(1));
        m_Scanner->ClearPackets();
    }
    // What directIO gives for bytes in hexadecimal.
    Barcode Exchange(const std::string& hexText, int64_t timeoutMs, int32_t replySize = 512) {
        const std::string bytes = ParseHexText(hexText);
        Barcode reply;
        std::vector<uint8_t> buffer(static_cast<size_t>(replySize));
        int32_t length = 0;
        reply.type = 0;
        reply.result = directIO(m_Handle, reinterpret_cast<const uint8_t*>(bytes.data()),
                                static_cast<int32_t>(bytes.size()), buffer.data(), replySize, &length, timeoutMs);
        reply.text.assign(buffer.begin(), buffer.begin() + length);
        return reply;
    }
    Barcode Query(int32_t id, int32_t bufferSize = 16) {
        Barcode value;
        std::vector<uint8_t> buffer(static_cast<size_t>(bufferSize), 0xCC);
        int32_t length = 0;
        value.result = QueryCommandSetting(m_Handle, id, bufferSize, buffer.data(), &length);
        value.text.assign(buffer.begin(), buffer.begin() + length);
        return value;
    }
};
INSTANTIATE_TEST_SUITE_P(Links, CommandTest, kBothParsers, ::testing::PrintToStringParamName());

std::string SerialNumber(const Handle& handle, ResultCode expected = ResultSuccess) {
    uint8_t buffer[64] = {};
    int32_t length = 0;
    EXPECT_EQ(getScannerVersion(handle, buffer, sizeof buffer, &length), expected);
    return std::string(buffer, buffer + length);
}

TEST_P(CommandTest, SettingsFromFourThreadsStayWholeWhileBarcodesArrive) {
    constexpr int kCalls = 250;
    constexpr int kThreads = 4;
    m_Scanner->SetSilent(true);  // over a serial line answers and barcodes would run together
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
        ASSERT_TRUE(packet.valid);
        ASSERT_EQ(packet.parameters.size(), 2u);
        const auto thread = static_cast<uint8_t>(packet.parameters[0]);
        EXPECT_EQ(static_cast<uint8_t>(packet.parameters[1]), next[thread]++);  // none lost, in the thread's order
    }
    for (int i = 0; i < kBarcodes; ++i) EXPECT_EQ(m_Handle.Take().text, std::to_string(i));
}

TEST_P(CommandTest, SettingsAreReadBack) {
    m_Scanner->SetSilent(true);  // a late answer to one of them would be taken for a query's
    EXPECT_EQ(setCode39(m_Handle, 1), ResultSuccess);
    EXPECT_EQ(setCode11CheckBit(m_Handle, 2), ResultSuccess);
    EXPECT_EQ(setDecodeTimeOut(m_Handle, 1234), ResultSuccess);
    ASSERT_TRUE(m_Scanner->WaitForPackets(3));
    m_Scanner->SetSilent(false);
    EXPECT_EQ(Query(35).text, "\x01");
    EXPECT_EQ(Query(30).text, "\x02");
    EXPECT_EQ(Query(13).text, "\x0C");
    EXPECT_EQ(Query(147).result, ResultBadArgument);

    m_Scanner->StoreSetting(0x40, "\x0B", "");
    EXPECT_EQ(Query(35), (Barcode{ResultSuccess, -1, ""}));
    m_Scanner->StoreSetting(0x40, "\x0B", "12345");
    EXPECT_EQ(Query(35, 5).text, "12345");
    EXPECT_EQ(Query(35, 4).result, ResultReplyTooLong);
    m_Scanner->SetSilent(true);
    EXPECT_EQ(Query(35).result, ResultNoExist);
}

TEST_P(CommandTest, TheSerialNumberIsRead) {
    EXPECT_EQ(SerialNumber(m_Handle), "1234567890");
    uint8_t buffer[9] = {};
    int32_t length = -1;
    EXPECT_EQ(getScannerVersion(m_Handle, buffer, sizeof buffer, &length), ResultBufferTooSmall);
    EXPECT_EQ(length, -1);
    m_Scanner->SetSilent(true);
    SerialNumber(m_Handle, ResultNoExist);
}

TEST_P(CommandTest, ExchangesEndAsTold) {
    // The payload of a good reply without its first byte.
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000).text, "\x01");
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000, 1).result, ResultSuccess);
    m_Scanner->SetRefuse(true);  // an error status: the raw bytes
    const Barcode refused = Exchange("05 40 04 00 0B 01 AA", 2000);
    EXPECT_EQ(refused.result, ResultSuccess);
    EXPECT_GE(refused.text.size(), 6u);
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 2000, 3).result, ResultBufferTooSmall);
    m_Scanner->SetRefuse(false);

    m_Scanner->SetSilent(true);
    const int64_t start = MonotonicMs();
    EXPECT_EQ(Exchange("05 40 04 00 0B 01 AA", 100).result, ResultTimeout);
    EXPECT_GE(MonotonicMs() - start, 395);  // 300 of delay and 100 of waiting
    m_Scanner->SetSilent(false);
}

TEST_P(CommandTest, ABarcodeAfterAnExchangeIsWholeAndAlone) {
    const std::function<void()> disturbances[] = {
        [&] { m_Scanner->SetDelay(550); },                      // the reply comes after the exchange
        [&] { m_Scanner->SetPieces(3); },                       // the reply comes in pieces
        [&] { m_Scanner->SetInterrupt(11, "4006381333931"); },  // a barcode comes first
        [&] { m_Scanner->SetFault("truncate"); },
        [&] { m_Scanner->SetFault("checksum"); },
    };
    for (const auto& disturb : disturbances) {
        disturb();
        Exchange("04 7E 04 00 00 79", 100);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        m_Scanner->SetDelay(0);
        m_Scanner->SetPieces(0);
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
    silent->SetSilent(true);
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
    slowOne->SetSilent(true);
    const Handle first;
    const Handle second;
    ASSERT_EQ(openScanner(first, "protocol=virtual serial port,serialport=40"), ResultSuccess);
    ASSERT_EQ(Open(second, ScannerLink::Serial), ResultSuccess);
    std::atomic<bool> waiting{true};
    std::thread slow([&] {
        SerialNumber(first, ResultNoExist);
        waiting = false;
    });
    ASSERT_TRUE(slowOne->WaitForPackets(2));  // the opening's is the first
    EXPECT_EQ(SerialNumber(second), "2222");
    EXPECT_TRUE(waiting);
    slow.join();
}

}  // namespace
}  // namespace quillet::test
