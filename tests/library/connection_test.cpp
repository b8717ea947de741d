// SPDX-License-Identifier: MIT
// Finding, opening, claiming, closing.
#include <string>

#include "library/library_test.h"
#include "support/process.h"

namespace quillet::test {
namespace {

using ConnectionTest = LibraryTest;

// Another process that opens a scanner and holds it.
class Holder {
  public:
    explicit Holder(const std::string& connection, const char* atEnd = "close")
        : m_Process(SCANNER_HOLDER, {connection, atEnd}), m_Result(m_Process.ReadLine()) {}
    int Result() const { return m_Result.empty() ? -1 : std::stoi(m_Result); }
    int End() { return m_Process.End(); }
    void Kill() { m_Process.Kill(); }

  private:
    test::ChildProcess m_Process;
    const std::string m_Result;
};

TEST_F(ConnectionTest, FailedOpensLeaveNothingBehind) {
    {
        auto scanner = NewScanner(ScannerLink::VirtualSerial);
        Handle first;  // makes what the system keeps for the process
        ASSERT_EQ(openScanner(first, ConnectionOf(ScannerLink::VirtualSerial).c_str()), ResultSuccess);
    }
    const size_t handles = test::HandleCount();
    Handle handle;
    const std::string port = std::to_string(kPort);
    const std::string serial = "protocol=serial port,serialport=" + port;
    const std::string virtualSerial = "protocol=virtual serial port,serialport=" + port;
    const struct {
        std::string connection;
        ResultCode result;
    } cases[] = {
        {"", ResultNoHardware},
        {"protocol=usb", ResultNoHardware},
        {"protocol=virtual serial port", ResultNoHardware},
        {virtualSerial, ResultNoHardware},
        {serial, ResultNoHardware},                                  // fails at enabling
        {"protocol=serial port,serialport=x", ResultOpenException},  // no number
        {"protocol=virtual serial port,serialport=", ResultOpenException},
        {"=,==,,protocol,", ResultNoHardware},
        {"protocol=serial port,serialport=1e99", ResultNoHardware},
        {"protocol=serial port,serialport=-3", ResultNoHardware},
    };
    const auto open = [&](const std::string& connection) { return openScanner(handle, connection.c_str()); };
    for (const auto& row : cases) EXPECT_EQ(open(row.connection), row.result) << row.connection;
    auto scanner = NewScanner(ScannerLink::VirtualSerial);
    EXPECT_EQ(open("protocol=usb"), ResultNoHardware);
    // Line settings are read when the port is open already; it is closed again.
    EXPECT_EQ(open(virtualSerial + ",baudrate=fast"), ResultOpenException);
    EXPECT_EQ(open("PROTOCOL=Virtual Serial Port,BaudRate=115200.9,SerialPort=" + port), ResultSuccess);
    EXPECT_EQ(closeScanner(handle), ResultSuccess);
    handle.Destroy();
    scanner.reset();
    EXPECT_LE(test::HandleCount(), handles + test::kLazyHandles);
}

TEST_F(ConnectionTest, ALineThatThePortCannotSetIsAFailedOpen) {
    if (test::IsUnderWine()) GTEST_SKIP() << "Wine takes one and a half stop bits for 8 data bits";
    auto scanner = NewScanner(ScannerLink::Serial);
    Handle handle;
    EXPECT_EQ(openScanner(handle, (ConnectionOf(ScannerLink::Serial) + ",stopbits=1").c_str()), ResultNoHardware);
    EXPECT_EQ(handle.State(), ScannerStateClosed);
}

class ClaimTest : public LibraryTest, public ::testing::WithParamInterface<ScannerLink> {};
INSTANTIATE_TEST_SUITE_P(Links, ClaimTest,
                         ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial, ScannerLink::Serial),
                         LinkName);

TEST_P(ClaimTest, OneProcessHoldsAScanner) {
    auto scanner = NewScanner(GetParam());
    const std::string text = ConnectionOf(GetParam());
    const char* connection = text.c_str();
    Handle first;
    ASSERT_EQ(openScanner(first, connection), ResultSuccess);
    EXPECT_EQ(Holder(connection).Result(), ResultClaimed);
    scanner->Scan(11, "4006381333931");  // the refused one has not disturbed the first
    EXPECT_EQ(first.Take(), (Barcode{ResultSuccess, 11, "4006381333931"}));
    ASSERT_EQ(closeScanner(first), ResultSuccess);

    Holder holder(connection);
    EXPECT_EQ(holder.Result(), ResultSuccess);
    EXPECT_EQ(openScanner(first, connection), ResultClaimed);
    holder.Kill();
    EXPECT_EQ(openScanner(first, connection), ResultSuccess);
}

TEST_P(ClaimTest, TheEndOfAProcessWithAnOpenOrLostScannerIsQuiet) {
    auto scanner = NewScanner(GetParam());
    for (const bool lost : {false, true}) {
        Holder holder(ConnectionOf(GetParam()), "leave");
        ASSERT_EQ(holder.Result(), ResultSuccess);
        if (lost) scanner->Unplug();
        EXPECT_EQ(holder.End(), 0);
    }
}

TEST_F(ConnectionTest, APortAboveTheListedNumbersIsReadAndClosed) {
    auto scanner = NewScanner(ScannerLink::Serial, 200);
    for (int round = 0; round < 2; ++round) {
        Handle handle;
        ASSERT_EQ(openScanner(handle, "protocol=serial port,serialport=200"), ResultSuccess);
        EXPECT_EQ(setCode39(handle, 1), ResultNoExist);
        scanner->Scan(3, "above");
        EXPECT_EQ(handle.Take(), (Barcode{ResultSuccess, 3, "above"}));
    }
}

TEST_F(ConnectionTest, AHandleNeverReachesTheScannerOfAnother) {
    auto usb = NewScanner(ScannerLink::Usb);
    auto serial = NewScanner(ScannerLink::Serial, 131);  // the number that stands for the USB link
    Handle owner;
    Handle other;
    ASSERT_EQ(openScanner(owner, "protocol=usb"), ResultSuccess);
    ASSERT_TRUE(usb->WaitForPackets(1, kPatienceMs));
    usb->ClearPackets();
    EXPECT_EQ(setCode39(other, 1), ResultNoExist);
    EXPECT_EQ(CommandInteraction(other, "05 40 04 00 0B 01 AA"), ResultSuccess);
    EXPECT_EQ(openScanner(other, "protocol=serial port,serialport=131"), ResultNoHardware);
    EXPECT_EQ(owner.State(), ScannerStateEnabled);
    EXPECT_TRUE(usb->Packets().empty());
    EXPECT_EQ(setCode39(owner, 1), ResultSuccess);
    EXPECT_TRUE(usb->WaitForPackets(1, kPatienceMs));
}

}  // namespace
}  // namespace quillet::test
