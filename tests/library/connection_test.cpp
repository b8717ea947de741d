// SPDX-License-Identifier: MIT
// Finding, opening, claiming, closing.
#include <string>

#include "library/library_test.h"

namespace quillet::test {
namespace {

// Another process that opens a scanner and holds it.
struct Holder {
    explicit Holder(const std::string& connection)
        : result((process.Write("open " + connection + "\n"), process.ReadLine())) {}

    ChildProcess process{ACCEPTANCE, {}};
    const std::string result;
};

TEST(ConnectionTest, FailedOpensLeaveNothingBehind) {
    {
        const auto scanner = NewScanner(ScannerLink::VirtualSerial);
        const Handle first;  // makes what the system keeps for the process
        ASSERT_EQ(Open(first, ScannerLink::VirtualSerial), ResultSuccess);
    }
    const size_t handles = HandleCount();
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
    EXPECT_LE(HandleCount(), handles + kLazyHandles);
}

using ClaimTest = LinkTest;
INSTANTIATE_TEST_SUITE_P(Links, ClaimTest, kAllLinks, ::testing::PrintToStringParamName());

TEST_P(ClaimTest, OneProcessHoldsAScanner) {
    const Handle first;
    ASSERT_EQ(Open(first, GetParam()), ResultSuccess);
    EXPECT_EQ(Holder(m_Connection).result, "102");
    m_Scanner->Scan(11, "4006381333931");  // the refused one has not disturbed the first
    EXPECT_EQ(first.Take(), (Barcode{ResultSuccess, 11, "4006381333931"}));
    ASSERT_EQ(closeScanner(first), ResultSuccess);

    Holder holder(m_Connection);
    EXPECT_EQ(holder.result, "0");
    EXPECT_EQ(Open(first, GetParam()), ResultClaimed);
    holder.process.Kill();
    EXPECT_EQ(Open(first, GetParam()), ResultSuccess);
}

TEST_P(ClaimTest, TheEndOfAProcessWithAnOpenOrLostScannerIsQuiet) {
    for (const bool lost : {false, true}) {
        Holder holder(m_Connection);
        ASSERT_EQ(holder.result, "0");
        holder.process.Write("leave\n");
        if (lost) m_Scanner->Unplug();
        EXPECT_EQ(holder.process.End(), 0);
    }
}

TEST(ConnectionTest, APortAboveTheListedNumbersIsReadAndClosed) {
    auto scanner = NewScanner(ScannerLink::Serial, 200);
    for (int round = 0; round < 2; ++round) {
        Handle handle;
        ASSERT_EQ(openScanner(handle, "protocol=serial port,serialport=200"), ResultSuccess);
        EXPECT_EQ(setCode39(handle, 1), ResultNoExist);
        scanner->Scan(3, "above");
        EXPECT_EQ(handle.Take(), (Barcode{ResultSuccess, 3, "above"}));
    }
}

// What a handle without a link sends reaches nobody; 131 is the number that stands for the USB link.
TEST(ConnectionTest, AHandleNeverReachesTheScannerOfAnother) {
    const auto usb = NewScanner(ScannerLink::Usb);
    const auto serial = NewScanner(ScannerLink::Serial, 131);
    const Handle owner;
    const Handle other;
    ASSERT_EQ(Open(owner, ScannerLink::Usb), ResultSuccess);
    EXPECT_EQ(openScanner(other, "protocol=serial port,serialport=131"), ResultNoHardware);
    EXPECT_EQ(setCode39(other, 1), ResultNoExist);
    EXPECT_EQ(setCode39(owner, 0), ResultSuccess);
    ASSERT_TRUE(usb->WaitForPackets(2));  // the opening's is the first
    EXPECT_EQ(usb->Packets()[1].parameters, std::string("\x0B\0", 2));
}

}  // namespace
}  // namespace quillet::test
