// SPDX-License-Identifier: MIT
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "device_test.h"
#include "far_ends.h"
#include "platform/linux/hid_file.h"
#include "support/process.h"

namespace quillet::test {
using namespace platform;
namespace {

using Outcome = WriteResult::Outcome;
using HidDevice = DeviceTest<Socket>;
using SerialDevice = DeviceTest<Pty>;

TEST_F(SerialDevice, ABurstEndsWhenTheLineIsQuiet) {
    ExpectThatABurstEndsWhenTheLineIsQuiet();
    m_Device->SetSerialTimeouts({600000});
    const auto stopWithin = [this] {
        m_FarEnd.Send("part of a burst");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        m_Stop.Set();
    };
    EXPECT_EQ(Read(kReportSize, stopWithin).wait, ReadWait::Stopped);
}

TEST_F(SerialDevice, ALossThatAWriterFindsClosesWithoutAReader) {
    m_Reader.reset();
    const size_t descriptors = HandleCount();
    m_FarEnd.Pull();
    const WriteResult lost = m_Device->Write("x", m_Stop);
    EXPECT_EQ(lost.outcome, Outcome::FailedAtOnce);
    EXPECT_EQ(lost.error, static_cast<uint32_t>(EIO));
    EXPECT_EQ(HandleCount(), descriptors - 2) << "each end is closed";
    SerialSettings settings;
    EXPECT_EQ(m_Device->Write("x", m_Stop).error, kGoneCode);
    EXPECT_EQ(m_Device->GetSerialSettings(settings), kGoneCode);
    EXPECT_EQ(m_Device->SetSerialTimeouts({1}), kGoneCode);
}

TEST_F(SerialDevice, IsHeldByOneAndKeepsWaitingInput) {
    const auto refused = [this] { return m_FarEnd.Open(m_FarEnd.path).error == EBUSY; };
    EXPECT_TRUE(refused());
    const UniqueFd keepsLineUp(open(m_FarEnd.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(keepsLineUp.IsOpen());
    const pid_t child = fork();
    if (child == 0) {
        const bool before = refused();
        m_Reader.reset();
        m_Device.reset();  // must not free the parent's port
        _exit(before && refused() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);

    m_Reader.reset();
    m_Device.reset();
    m_FarEnd.Send("waiting\r");
    Take(m_FarEnd.Open(m_FarEnd.path));
    EXPECT_EQ(Read().bytes, "waiting\r");
}

TEST_F(SerialDevice, TakesAnySpeedAndRefusesImpossibleLines) {
    SerialSettings good;
    ASSERT_EQ(m_Device->GetSerialSettings(good), 0U);
    EXPECT_EQ(good.byteSize, 8);
    EXPECT_EQ(good.parity, 0);
    for (const uint32_t speed : {300U, 9600U, 115200U, 123457U, 3000000U}) {
        for (const uint8_t stopBits : {uint8_t{0}, uint8_t{2}}) {
            good.baudRate = speed;
            good.stopBits = stopBits;
            good.softwareFlowIn = stopBits != 0;
            ExpectThatItKeeps(good);
        }
    }
    const auto refused = [&](auto SerialSettings::*member, int value) {
        SerialSettings bad = good;
        bad.*member = static_cast<std::remove_reference_t<decltype(bad.*member)>>(value);
        return m_Device->SetSerialSettings(bad) == EINVAL;
    };
    EXPECT_TRUE(refused(&SerialSettings::baudRate, 0));
    EXPECT_TRUE(refused(&SerialSettings::byteSize, 4));
    EXPECT_TRUE(refused(&SerialSettings::byteSize, 9));
    EXPECT_TRUE(refused(&SerialSettings::parity, 5));
    EXPECT_TRUE(refused(&SerialSettings::stopBits, 1));
    EXPECT_TRUE(refused(&SerialSettings::stopBits, 3));
    EXPECT_FALSE(refused(&SerialSettings::byteSize, 5));
    EXPECT_FALSE(refused(&SerialSettings::parity, 4));
}

TEST_F(SerialDevice, OpensTerminalsAlone) {
    const TempTree& tree = m_FarEnd.tree;
    ASSERT_EQ(mkfifo(tree.Path("pipe").c_str(), 0600), 0);
    const std::pair<std::string, int> cases[] = {
        {"", ENOENT},          {"\\\\.\\COM200", ENOENT},        {tree.Path("missing"), ENOENT},
        {"/dev/null", ENOTTY}, {tree.Write("file", ""), ENOTTY}, {tree.Path("pipe"), ENOTTY},
    };
    for (const auto& [path, error] : cases) EXPECT_EQ(m_FarEnd.Open(path).error, static_cast<uint32_t>(error)) << path;
    // A numbered port is the tty of the table.
    m_Reader.reset();
    m_Device.reset();
    tree.Link("dev/ttyUSB2", m_FarEnd.path);
    EXPECT_NE(m_FarEnd.Open("\\\\.\\COM35").file, nullptr);
}

TEST_F(HidDevice, OneReadIsOneReportOf64Bytes) {
    const std::string all = AllBytes();
    for (const std::string& sent : {Report('a'), all.substr(0, 64), std::string("ab"), all}) m_FarEnd.Send(sent);
    EXPECT_EQ(Read().bytes, Report('a'));
    EXPECT_EQ(Read().bytes, all.substr(0, 64));
    EXPECT_EQ(Read().bytes, "ab" + std::string(62, '\0')) << "a short report is filled up";
    EXPECT_EQ(Read().bytes, all.substr(0, 64)) << "a long one is cut";
}

TEST_F(HidDevice, WaitingReportsComeBeforeTheLoss) {
    for (const std::string write : {"none", "unread", "refused"}) {
        SCOPED_TRACE(write);
        Plug();
        // Closed with a report of ours unread, the socket tells of that first.
        if (write == "unread") m_Device->Write(Report('u'), m_Stop);
        for (const char fill : {'1', '2'}) m_FarEnd.Send(Report(fill));
        m_FarEnd.Pull();
        if (write == "refused") {  // a SIGPIPE would end this program
            const WriteResult refused = m_Device->Write(Report('w'), m_Stop);
            EXPECT_EQ(refused.outcome, Outcome::FailedAtOnce);
            EXPECT_EQ(refused.error, static_cast<uint32_t>(EPIPE));
        }
        for (const char fill : {'1', '2'}) EXPECT_EQ(Read().bytes, Report(fill));
        const ReadOutcome lost = Read();
        EXPECT_EQ(lost.wait, ReadWait::Finished);
        EXPECT_FALSE(lost.finish.ok);
        EXPECT_EQ(m_Device->Write(Report('w'), m_Stop).error, kGoneCode);
    }
}

TEST_F(HidDevice, OpensWhatStandsAtItsPath) {
    const TempTree& tree = m_FarEnd.tree;
    const auto errorOf = [this](const std::string& path) { return static_cast<int>(m_FarEnd.Open(path).error); };
    const std::string place = "hid:18D1:010B:phys:usb-1/input0";
    const std::string uevent = "sys/class/hidraw/hidraw1/device/uevent";
    tree.Link("dev/hidraw1", m_FarEnd.path);
    tree.Write(uevent, "HID_ID=0003:000018D1:0000010B\nHID_PHYS=usb-1/input0\n");
    EXPECT_EQ(errorOf(place), 0);
    tree.Write(uevent, "HID_ID=0003:00000001:00000002\nHID_PHYS=usb-1/input0\n");
    EXPECT_EQ(errorOf(place), ENODEV);
    m_FarEnd.listener = UniqueFd();
    EXPECT_EQ(errorOf(m_FarEnd.path), ECONNREFUSED);
    EXPECT_EQ(errorOf(""), ENOENT);
    EXPECT_EQ(errorOf(tree.Write("plain", "")), ENOTTY);
}

// A pipe without a reader refuses each write with EPIPE, as a hidraw node does whose device stalls.
TEST(HidNode, IsAliveAfterAReportThatTheDeviceRefused) {
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    HidFile node(UniqueFd(ends[1]), HidFile::Kind::Numbered);
    const StopSignal stop;
    for (int write = 0; write < 2; ++write) {
        EXPECT_EQ(node.Write(Report('w'), stop).error, static_cast<uint32_t>(EPIPE));
    }
    std::signal(SIGPIPE, before);
}

TEST(HidReport, ZeroStandsInFrontWhereReportsHaveNoId) {
    int ends[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd device(ends[0]);
    const UniqueFd scanner(ends[1]);
    const std::string bytes = AllBytes().substr(1, 64);
    for (const size_t size : {size_t{64}, size_t{2}}) {
        ASSERT_GT(send(scanner.Get(), bytes.data(), size, 0), 0);
        std::string block(64, '\x55');
        ASSERT_EQ(
            ReadReport(device.Get(), HidFile::Kind::Unnumbered, reinterpret_cast<uint8_t*>(block.data()), block.size()),
            64);
        std::string expected = std::string(1, '\0') + bytes.substr(0, std::min<size_t>(size, 63));
        expected.resize(64, '\0');
        EXPECT_EQ(block, expected);
    }
}

TEST(HidReport, DescriptorTellsWhetherReportsHaveIds) {
    const auto has = [](std::initializer_list<int> items) {
        return HasReportIds(std::string(items.begin(), items.end()));
    };
    EXPECT_TRUE(has({0x06, 0x8C, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x85, 0x04, 0xC0}));
    EXPECT_FALSE(has({0x06, 0x8C, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x75, 0x08, 0xC0}));
    EXPECT_FALSE(has({0x26, 0x85, 0x04})) << "the same byte as data";
    EXPECT_FALSE(has({0x27, 0x85, 0x85, 0x85, 0x85})) << "four bytes of data";
    EXPECT_FALSE(has({0xFE, 0x02, 0x00, 0x85, 0x85})) << "data of a long item";
    EXPECT_FALSE(has({0xFE}));
    EXPECT_FALSE(has({}));
}

}  // namespace
}  // namespace quillet::test
