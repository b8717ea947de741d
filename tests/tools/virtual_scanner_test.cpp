// SPDX-License-Identifier: MIT
// The scanner as a host sees it, through the platform's own access to devices.
#include "tools/virtual_scanner/virtual_scanner.h"

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

#include "platform/clock.h"
#include "protocol/packet.h"
#include "protocol/reply_parser.h"
#include "support/linux/no_descriptors.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace tools;
namespace {

using namespace std::string_literals;
using platform::IoState;

constexpr uint32_t kPatienceMs = 20'000;

std::string Wire(uint8_t opcode, std::string parameters) {
    CommandPacket packet(opcode, std::move(parameters));
    return ToWireBytes(packet);
}

class Host {
  public:
    Host(const VirtualScanner& scanner)
        : m_Usb(scanner.Options().link == ScannerLink::Usb),
          m_File(platform::SystemDeviceAccess()
                     .Open(scanner.HostPath(), m_Usb ? platform::Sharing::Shared : platform::Sharing::Exclusive)
                     .file) {
        if (!m_File) throw std::runtime_error("the scanner can't be opened");
        if (!m_Usb) m_File->SetSerialTimeouts({25});
        m_Reader = m_File->NewReader();
    }

    void Send(const std::string& wire) {
        const auto result = m_File->Write(m_Usb ? ToHidBlock(wire) : wire, m_Stop);
        EXPECT_EQ(result.outcome, platform::WriteResult::Outcome::Written);
    }
    // One read; empty if the scanner has gone.
    std::string Read() {
        std::string buffer(m_Usb ? kHidBlockSize : 4095, '\0');
        const auto start =
            m_Reader->Start(reinterpret_cast<uint8_t*>(buffer.data()), static_cast<uint32_t>(buffer.size()));
        if (start.state == IoState::Failed) return {};
        uint32_t count = start.count;
        if (start.state == IoState::Pending) {
            if (m_Reader->Wait(m_Stop) != platform::ReadWait::Finished) return {};
            const auto finish = m_Reader->Finish();
            if (!finish.ok) return {};
            count = finish.count;
        }
        return buffer.substr(0, count);
    }

    // So many bytes, in however many reads: on a busy machine two sendings can come as one.
    std::string ReadBytes(size_t count) {
        while (m_Bytes.size() < count) ReadMore();
        const std::string bytes = m_Bytes.substr(0, count);
        m_Bytes.erase(0, count);
        return bytes;
    }

    // One frame or block, in however many reads.
    ReplyPacket ReadReply(ParseResult expected = ParseOk) {
        ReplyPacket reply;
        ParseResult result = ParseNoFrame;
        while (result == ParseNoFrame) {
            if (m_Bytes.empty()) ReadMore();
            reply = {};
            result = m_Usb ? ParseUsbBuffer(m_Bytes, reply) : ParseSerialBuffer(m_Bytes, reply);
            if (result == ParseNoFrame) ReadMore();
        }
        EXPECT_EQ(result, expected);
        return reply;
    }

    // Opcode, status and payload of the answer.
    std::string Ask(const std::string& wire) {
        Send(wire);
        const ReplyPacket reply = ReadReply();
        const uint8_t head[] = {reply.opcode, reply.status, reply.firstParameter};
        return std::string(std::begin(head), std::end(head)) + reply.parameters;
    }

  private:
    void ReadMore() {
        const std::string bytes = Read();
        if (bytes.empty()) throw std::runtime_error("the scanner has gone");
        m_Bytes += bytes;
    }

    bool m_Usb;
    std::string m_Bytes;  // read and not yet taken apart
    platform::StopSignal m_Stop;
    std::unique_ptr<platform::DeviceFile> m_File;
    std::unique_ptr<platform::DeviceReader> m_Reader;
};

class VirtualScannerTest : public ::testing::TestWithParam<ScannerLink> {
  protected:
    VirtualScannerTest() {
        ScannerOptions options;
        options.link = GetParam();
        options.devicesDirectory = m_Tree.Path("devices");
        options.serialGapMs = 60;
        m_Scanner = std::make_unique<VirtualScanner>(options);
        m_Scanner->Plug();
    }

    TempTree m_Tree;  // outlives the scanner, which cleans up in it
    std::unique_ptr<VirtualScanner> m_Scanner;
};

std::string LinkName(const ::testing::TestParamInfo<ScannerLink>& row) {
    constexpr const char* kNames[] = {"Usb", "VirtualSerial", "Serial"};
    return kNames[static_cast<int>(row.param)];
}

INSTANTIATE_TEST_SUITE_P(Links, VirtualScannerTest,
                         ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial, ScannerLink::Serial),
                         LinkName);

// Hosts would pass over what is registered there, without a word.
TEST(VirtualScannerDirectory, MustBeOneThatHostsLookInto) {
    ScannerOptions options;
    options.devicesDirectory = "relative/devices";
    EXPECT_THROW(VirtualScanner{options}, std::invalid_argument);
    const TempTree tree;
    options.devicesDirectory = tree.Path("devices");
    std::filesystem::create_directory(options.devicesDirectory);
    std::filesystem::permissions(options.devicesDirectory, std::filesystem::perms::all);
    EXPECT_THROW(VirtualScanner{options}, std::runtime_error);
}

TEST_P(VirtualScannerTest, SettingsAreKeptAndReadBack) {
    {
        Host host(*m_Scanner);
        EXPECT_EQ(host.Ask(Wire(0x40, "\x0B\x01")), "\x40\x80\x0B\x01");
        EXPECT_EQ(host.Ask(Wire(0x44, "\x19")), "\x44\x80\x19");
    }
    m_Scanner->Unplug();
    EXPECT_EQ(m_Scanner->HostPath(), "");
    m_Scanner->Plug();
    Host host(*m_Scanner);
    EXPECT_EQ(host.Ask(Wire(OpcodeQuerySetting, "\x40\x0B")), "\xE8\x80\x40\x01");
    EXPECT_EQ(host.Ask(Wire(OpcodeQuerySetting, "\x44")), "\xE8\x80\x44\x19");
    EXPECT_EQ(host.Ask(Wire(OpcodeQuerySetting, "\x50\x01\x02")), "\xE8\x80\x50\x00"s);
    EXPECT_EQ(host.Ask(Wire(OpcodeVersion, "")), "\x7E\x80\x00SN:1234567890 App:1.00"s);

    const std::vector<HostPacket> packets = m_Scanner->Packets();
    ASSERT_EQ(packets.size(), 6U);
    EXPECT_EQ(packets[0].wire, "\x05\x40\x04\x00\x0B\x01\xAA"s);
    EXPECT_EQ(packets[0].received.size(), GetParam() == ScannerLink::Usb ? 64U : 7U);
    EXPECT_EQ(m_Scanner->Settings().size(), 2U);
}

TEST_P(VirtualScannerTest, BehaviourOnRequest) {
    Host host(*m_Scanner);
    const std::string code39 = Wire(0x40, "\x0B\x01");
    const std::string answer = "\x40\x80\x0B\x01";

    m_Scanner->SetRefuse(true);
    EXPECT_EQ(host.Ask(code39), "\x40\x01\x00"s);
    EXPECT_TRUE(m_Scanner->Settings().empty());
    m_Scanner->SetRefuse(false);

    // The switching of barcode frames is never answered, and nothing is while the scanner is silent.
    m_Scanner->SetSilent(true);
    host.Send(code39);
    ASSERT_TRUE(m_Scanner->WaitForPackets({.count = 2, .timeoutMs = kPatienceMs}));
    m_Scanner->SetSilent(false);
    host.Send(Wire(OpcodeBarcode, "\x00"s));
    EXPECT_EQ(host.Ask(Wire(0x41, "\x02")), "\x41\x80\x02");
    EXPECT_EQ(m_Scanner->Settings().size(), 2U);

    m_Scanner->SetInterrupt(28, "in the middle");
    EXPECT_EQ(host.Ask(code39), "\xEE\x1C\xFFin the middle");
    EXPECT_EQ(host.ReadReply().opcode, 0x40);

    m_Scanner->SetFault(Fault::Checksum);
    host.Send(code39);
    host.ReadReply(ParseBadChecksum);

    const auto elapsedMs = [start = platform::SystemClock().NowNs()] {
        return (platform::SystemClock().NowNs() - start) / 1'000'000;
    };
    m_Scanner->SetPieces(5);
    if (GetParam() == ScannerLink::Usb) {
        host.Send(code39);
        EXPECT_EQ(host.ReadBytes(64).substr(3, 6), "\x00\x05\x40\x04\x80\x00"s);
        EXPECT_EQ(host.ReadBytes(64).substr(3, 4), "\x0B\x01\x2A\x00"s);
    } else {
        EXPECT_EQ(host.Ask(code39), answer);
        EXPECT_GE(elapsedMs(), 60);
    }
    m_Scanner->SetPieces(0);

    const int64_t beforeMs = elapsedMs();
    m_Scanner->SetDelay(200);
    EXPECT_EQ(host.Ask(code39), answer);
    EXPECT_GE(elapsedMs() - beforeMs, 200);
}

TEST_P(VirtualScannerTest, BarcodesReachTheHostAndUnpluggingEndsBothSides) {
    Host host(*m_Scanner);
    EXPECT_EQ(m_Scanner->Scan(11, "4006381333931"), Delivery::Sent);
    const ReplyPacket barcode = host.ReadReply();
    EXPECT_EQ(barcode.status, 11);
    EXPECT_EQ(barcode.parameters, "4006381333931");
    EXPECT_EQ(m_Scanner->Plain("a\0b"s), Delivery::Sent);
    EXPECT_EQ(host.ReadBytes(GetParam() == ScannerLink::Usb ? 64 : 3).substr(0, 3), "a\0b"s);

    // Nobody reads, so the sending comes to a stand and only the unplugging can end it.
    std::thread sender([&] {
        while (m_Scanner->Plain(std::string(4000, 'x')) == Delivery::Sent) {
        }
    });
    while (GetParam() == ScannerLink::Usb && host.Read()[0] != 'x') {
    }
    m_Scanner->Unplug();
    sender.join();
    EXPECT_EQ(m_Scanner->Scan(11, "1"), Delivery::Unplugged);
    while (!host.Read().empty()) {
    }
}

TEST_P(VirtualScannerTest, PlugCyclesRaceWithEverything) {
    std::atomic<bool> end{false};
    const auto repeat = [&](auto action) {
        return std::thread([&end, action] {
            while (!end) action();
        });
    };
    std::thread threads[] = {
        repeat([&] { m_Scanner->Scan(3, "12345"); }),
        repeat([&] { m_Scanner->SetInterrupt(3, "67890"); }),
        repeat([&] { m_Scanner->WaitForPackets({.count = 1000, .timeoutMs = 1}); }),
        repeat([&] {
            try {
                const Host host(*m_Scanner);
            } catch (const std::runtime_error&) {  // unplugged just now
            }
        }),
    };
    for (int i = 0; i < 100; ++i) {
        m_Scanner->Unplug();
        m_Scanner->Plug();
    }
    end = true;
    m_Scanner->Unplug();
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(std::filesystem::exists(m_Tree.Path("devices/virtual-usb-1234567890.device")));
}

// A host that can't be accepted for want of a descriptor stays waiting, and nobody spins over it.
TEST(ReportSocket, WaitsQuietlyForADescriptor) {
    if (kSanitizerNeedsDescriptors) GTEST_SKIP() << "the sanitizer needs descriptors itself";
    const TempTree tree;
    const auto device = DeviceEnd::NewReportSocket(tree.Path("scanner"));
    const auto host = platform::SystemDeviceAccess().Open(device->HostPath(), platform::Sharing::Shared);
    const platform::StopSignal stop;
    std::string bytes;
    const auto beforeMs = ProcessorTimeMs();
    {
        const NoDescriptors none;
        EXPECT_EQ(device->Receive(bytes, 200, stop), DeviceEnd::Received::TimedOut);
    }
    EXPECT_LT(ProcessorTimeMs() - beforeMs, 100);
    EXPECT_EQ(device->Receive(bytes, kPatienceMs, stop), DeviceEnd::Received::HostCame);
}

class UsbScannerTest : public VirtualScannerTest {};
INSTANTIATE_TEST_SUITE_P(Links, UsbScannerTest, ::testing::Values(ScannerLink::Usb), LinkName);

TEST_P(UsbScannerTest, HostsComeAndGo) {
    EXPECT_FALSE(m_Scanner->WaitForHost(0));
    auto first = std::make_unique<Host>(*m_Scanner);
    EXPECT_TRUE(m_Scanner->WaitForHost(kPatienceMs));
    Host second(*m_Scanner);
    EXPECT_EQ(m_Scanner->Scan(3, "both"), Delivery::Sent);
    EXPECT_EQ(first->ReadReply().parameters, "both");
    EXPECT_EQ(second.ReadReply().parameters, "both");
    first.reset();
    EXPECT_EQ(m_Scanner->Scan(3, "one"), Delivery::Sent);
    EXPECT_EQ(second.ReadReply().parameters, "one");
}

}  // namespace
}  // namespace quillet::test
