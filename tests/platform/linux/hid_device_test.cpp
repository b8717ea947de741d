// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "device_io.h"
#include "linux/descriptors.h"
#include "platform/linux/hid_file.h"
#include "platform/linux/linux_device_access.h"
#include "platform/thread.h"
#include "support/temp_tree.h"

namespace quillet::platform {
namespace {

using namespace std::chrono_literals;
using Outcome = WriteResult::Outcome;

std::string Report(char fill) {
    return std::string(1, '\x04') + std::string(63, fill);
}

// A socket that stands for a HID device, and the device open at its other end.
class HidDevice : public testing::Test {
  protected:
    HidDevice() : m_Listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, m_Path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_Listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_Listener.Get(), 4), 0);
        Plug(m_Path);
    }

    void Plug(const std::string& path) {
        m_Reader.reset();
        OpenResult result = m_Access.Open(path, Sharing::Shared);
        ASSERT_NE(result.file, nullptr) << result.error;
        m_Device = std::move(result.file);
        m_Reader = m_Device->NewReader();
        m_Scanner = UniqueFd(accept4(m_Listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        ASSERT_TRUE(m_Scanner.IsOpen());
    }

    void Send(std::string_view report) {
        ASSERT_EQ(send(m_Scanner.Get(), report.data(), report.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(report.size()));
    }
    ReadOutcome Read() { return ReadFrom(*m_Reader, m_Stop, 64); }

    // Every report that was sent is read, in order, before the loss shows; then nothing works any more.
    void ExpectReportsThenLoss(const std::string& fills) {
        for (const char fill : fills) {
            EXPECT_EQ(Read().bytes, Report(fill));
        }
        const ReadOutcome lost = Read();
        EXPECT_EQ(lost.wait, ReadWait::Finished);
        EXPECT_FALSE(lost.finish.ok);
        EXPECT_EQ(Read().start.error, static_cast<uint32_t>(ENODEV));
        EXPECT_EQ(m_Device->Write(Report('w'), m_Stop).error, static_cast<uint32_t>(ENODEV));
    }

    const test::TempTree m_Tree;
    const std::string m_Path = m_Tree.Path("scanner");
    UniqueFd m_Listener;
    UniqueFd m_Scanner;
    LinuxDeviceAccess m_Access{LinuxRoots{m_Tree.Path("sys"), m_Tree.Path("dev"), {m_Tree.Path("run/devices")}}};
    StopSignal m_Stop;
    std::unique_ptr<DeviceFile> m_Device;
    std::unique_ptr<DeviceReader> m_Reader;
};

TEST_F(HidDevice, OneReadIsOneReportOf64Bytes) {
    const std::string all = AllBytes();
    Send(Report('a'));
    Send(all.substr(0, 64));
    Send("ab");
    Send(all);
    EXPECT_EQ(Read().bytes, Report('a'));
    EXPECT_EQ(Read().bytes, all.substr(0, 64));
    EXPECT_EQ(Read().bytes, "ab" + std::string(62, '\0')) << "a short report is filled up";
    EXPECT_EQ(Read().bytes, all.substr(0, 64)) << "a long one is cut";
    m_Stop.Set();
    Send(Report('b'));
    EXPECT_EQ(Read().wait, ReadWait::Stopped);
}

TEST_F(HidDevice, AWriteThatNobodyTakesEndsWithTheStopSignal) {
    Thread stopper = StartThread("stopper", [&] {
        std::this_thread::sleep_for(20ms);
        m_Stop.Set();
    });
    WriteResult result;
    for (int i = 0; i < 100000 && result.outcome == Outcome::Written; ++i) {
        result = m_Device->Write(Report('x'), m_Stop);
    }
    stopper.Join();
    EXPECT_EQ(result.outcome, Outcome::FailedPending);
    EXPECT_EQ(result.error, static_cast<uint32_t>(ECANCELED));
}

TEST_F(HidDevice, WaitingReportsComeBeforeTheLoss) {
    Send(Report('1'));
    Send(Report('2'));
    m_Scanner = UniqueFd();
    ExpectReportsThenLoss("12");

    // The other end closes with a report of ours unread: the socket tells of that first.
    Plug(m_Path);
    m_Device->Write(Report('u'), m_Stop);
    Send(Report('3'));
    Send(Report('4'));
    m_Scanner = UniqueFd();
    ExpectReportsThenLoss("34");

    // A writer meets the loss first. A SIGPIPE would end this program.
    Plug(m_Path);
    Send(Report('5'));
    m_Scanner = UniqueFd();
    const WriteResult refused = m_Device->Write(Report('w'), m_Stop);
    EXPECT_EQ(refused.outcome, Outcome::FailedAtOnce);
    EXPECT_EQ(refused.error, static_cast<uint32_t>(EPIPE));
    ExpectReportsThenLoss("5");
}

TEST_F(HidDevice, PathsStandForTheDeviceFromPlugToPlug) {
    const std::string uevent = "sys/class/hidraw/hidraw1/device/uevent";
    m_Tree.Write(uevent, "HID_ID=0003:000018D1:0000010B\nHID_PHYS=usb-1/input0\n");
    m_Tree.Link("dev/hidraw1", m_Path);
    const std::string place = "hid:18D1:010B:phys:usb-1/input0";
    Plug(place);
    std::filesystem::rename(m_Tree.Path("sys/class/hidraw/hidraw1"), m_Tree.Path("sys/class/hidraw/hidraw7"));
    std::filesystem::rename(m_Tree.Path("dev/hidraw1"), m_Tree.Path("dev/hidraw7"));
    Plug(place);
    m_Tree.Write("sys/class/hidraw/hidraw7/device/uevent", "HID_ID=0003:00000001:00000002\nHID_PHYS=usb-1/input0\n");
    EXPECT_EQ(m_Access.Open(place, Sharing::Shared).error, static_cast<uint32_t>(ENODEV));

    const std::string file = m_Tree.Write("run/devices/s.device", "class=hid\npath=" + m_Path + "\n");
    std::filesystem::permissions(m_Tree.Path("run"), std::filesystem::perms(0755));
    std::filesystem::permissions(m_Tree.Path("run/devices"), std::filesystem::perms(0755));
    Plug("registered:" + file);

    m_Listener = UniqueFd();
    EXPECT_EQ(m_Access.Open("registered:" + file, Sharing::Shared).error, static_cast<uint32_t>(ECONNREFUSED));
    EXPECT_EQ(m_Access.Open("", Sharing::Shared).error, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(m_Access.Open(m_Tree.Write("plain", ""), Sharing::Shared).error, static_cast<uint32_t>(ENOTTY));
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
}  // namespace quillet::platform
