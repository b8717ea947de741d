#include "transport/comm_arbiter.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "support/log_reader.h"
#include "transport/link_fixture.h"

namespace quillet {
namespace {

using test::Eventually;
using test::FakeDevice;
using test::HasLine;
using test::Lines;
using test::LinkFixture;
using test::Recorder;

// An arbiter of its own, and shorter calls.
struct ArbiterFixture : LinkFixture {
    std::shared_ptr<CComm> Add(uint32_t linkType, uint32_t port, const std::string& params = "",
                               Recorder* recorder = nullptr) {
        return arbiter.AddDevice(DeviceUsb, linkType, port, "", test::Parsed(params),
                                 recorder != nullptr ? recorder : &owner, &Recorder::OnData);
    }
    std::shared_ptr<CComm> Find(uint32_t linkType, uint32_t port) {
        return arbiter.FindLink(DeviceUsb, linkType, port);
    }
    void Remove(uint32_t linkType, uint32_t port) { arbiter.RemoveDevice(DeviceUsb, linkType, port); }

    CCommArbiter arbiter;
};

TEST(CommArbiter, MovesALinkThroughItsPlaces) {
    ArbiterFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    const auto link = fixture.Add(LinkSerial, 3);
    EXPECT_EQ(fixture.Find(LinkVirtualSerial, 3), link);

    // Who comes second gets the first one's link, callback included.
    Recorder second;
    EXPECT_EQ(fixture.Add(LinkSerial, 3, "", &second), link);
    EXPECT_EQ(device.Opens(), 1);
    device.Deliver("code");
    EXPECT_EQ(fixture.owner.AwaitBlocks(1).size(), 1u);
    EXPECT_TRUE(second.AwaitBlocks(0).empty());

    fixture.arbiter.setReadyToReConnect(DeviceUsb, LinkSerial, 3, true);
    fixture.Remove(LinkSerial, 3);
    EXPECT_EQ(fixture.Find(LinkSerial, 3), link);
    EXPECT_EQ(device.OpenNow(), 0);
    CommandPacket packet(0x40, "x");
    EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 3, &fixture.owner, packet), 0);
    EXPECT_TRUE(device.Writes().empty());

    device.FailOpens(5);
    EXPECT_THROW(fixture.Add(LinkSerial, 3), ZelmarError);
    EXPECT_EQ(fixture.Find(LinkSerial, 3), link) << "a listed link stays, whatever its opening says";
    device.FailOpens(0);
    EXPECT_EQ(fixture.Add(LinkSerial, 3), link);
    EXPECT_EQ(device.OpenNow(), 1);

    fixture.arbiter.setReadyToReConnect(DeviceUsb, LinkSerial, 3, false);
    fixture.Remove(LinkSerial, 3);
    EXPECT_EQ(fixture.Find(LinkSerial, 3), nullptr);
    EXPECT_EQ(device.OpenNow(), 0);
    EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 3, &fixture.owner, packet), 109);
}

TEST(CommArbiter, PassesTheErrorOfAnOpeningOn) {
    ArbiterFixture fixture;
    fixture.access.Port(4);
    const auto add = [&](uint32_t deviceType, uint32_t linkType, uint32_t port) {
        fixture.arbiter.AddDevice(deviceType, linkType, port, "", {}, &fixture.owner, nullptr);
    };
    const std::tuple<uint32_t, uint32_t, uint32_t, const char*> cases[] = {
        {DeviceUsb, LinkSerial, 3, "Unable to open COM port (Code:2)."},
        {DeviceUsb, LinkUsbHid, 0, "Unable to open USB device (Code:2)."},
        {DeviceUsb, 4, 0, "Unable to open USB device (Code:2)."},
        {DeviceBluetooth, LinkUsbHid, 0, "RemoveSerialDevice faild because invalid number :255"},
    };
    for (const auto& [deviceType, linkType, port, text] : cases) {
        try {
            add(deviceType, linkType, port);
            ADD_FAILURE() << text;
        } catch (const ZelmarError& error) {
            EXPECT_EQ(typeid(error), typeid(ZelmarError));
            EXPECT_STREQ(error.what(), text);
        }
        EXPECT_EQ(fixture.arbiter.FindLink(deviceType, linkType, port), nullptr);
    }
    EXPECT_THROW(fixture.Add(LinkSerial, 4, "parity=even"), mylib::StringError);
    EXPECT_EQ(fixture.Find(LinkSerial, 4), nullptr);
    EXPECT_NE(fixture.Add(LinkSerial, 4, "parity=2"), nullptr);
}

TEST(CommArbiter, SaysWhatItDoesNotFind) {
    ArbiterFixture fixture;
    CommandPacket packet(0x40, "x");
    std::string bytes = "x";
    const std::string notFound = "LLError\t\t:No Find ComDevice...";
    const struct {
        const char* line;
        std::function<void(uint32_t port)> call;
    } cases[] = {
        {":No Find ComDevice...  ", [&](uint32_t port) { fixture.Remove(LinkSerial, port); }},
        {":No Find ComDevice...  WriteData Failed!",
         [&](uint32_t port) {
             EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, port, &fixture.owner, packet), 109);
         }},
        {":No Find ComDevice...  WriteData Failed!",
         [&](uint32_t port) {
             EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, port, &fixture.owner, bytes), 0);
         }},
        {":Warning: No Find ComDevice...",
         [&](uint32_t port) { fixture.arbiter.setReadyToReConnect(DeviceUsb, LinkSerial, port, true); }},
        {":No Find ComDevice... ",
         [&](uint32_t port) { fixture.arbiter.StartPowerReporting(DeviceUsb, LinkSerial, port, nullptr); }},
        {":No Find ComDevice... ",
         [&](uint32_t port) { fixture.arbiter.StopPowerReporting(DeviceUsb, LinkSerial, port); }},
    };
    test::LogReader log;
    Recorder other;
    fixture.access.Port(5);
    fixture.Add(LinkSerial, 5, "", &other);
    for (CommandPacket* sent : {&packet, static_cast<CommandPacket*>(nullptr)}) {  // another owner's link is none
        sent != nullptr ? fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 5, &fixture.owner, *sent)
                        : fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 5, &fixture.owner, bytes);
        EXPECT_TRUE(HasLine(log.Take(), notFound));
        EXPECT_TRUE(fixture.access.Port(5).Writes().empty());
    }
    for (const auto& row : cases) {
        row.call(3);
        const Lines below = log.Take();
        EXPECT_TRUE(HasLine(below, std::string("LLWarnings\t") + row.line)) << row.line;
        EXPECT_TRUE(HasLine(below, notFound)) << row.line;
        row.call(133);
        const Lines above = log.Take();
        EXPECT_TRUE(HasLine(above, std::string("LLWarnings\t") + row.line)) << row.line;
        EXPECT_FALSE(HasLine(above, notFound)) << row.line;
    }
}

TEST(CommArbiter, WritesBlocksOverUsbAndBytesOverSerial) {
    ArbiterFixture fixture;
    fixture.tree.Plug(test::HidDevice("scanner"));
    FakeDevice &usb = fixture.access.Device("scanner"), &serial = fixture.access.Port(3);
    fixture.Add(LinkUsbHid, 0);
    fixture.Add(LinkSerial, 3);

    const std::string longest(62, 'b');
    std::string bytes = longest;
    fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 3, &fixture.owner, bytes);
    EXPECT_EQ(serial.Writes(), std::vector{longest});
    EXPECT_EQ(bytes, longest);
    fixture.arbiter.WriteData(DeviceUsb, LinkUsbHid, 0, &fixture.owner, bytes);
    EXPECT_EQ(usb.Writes(), std::vector{"\x04\x3E" + longest});
    EXPECT_EQ(bytes, "\x04\x3E" + longest);

    test::LogReader log;
    std::string tooLong(63, 'b');
    EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkUsbHid, 0, &fixture.owner, tooLong), 0);
    EXPECT_EQ(usb.Writes().size(), 1u);
    EXPECT_TRUE(HasLine(log.Take(), "LLCritical\t:Error: a USB block has no room for a command of this size: 63"));

    serial.EndWrites(platform::WriteResult::Outcome::FailedPending, 5);
    EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 3, &fixture.owner, bytes), 0);
    const Lines lines = log.Take();
    EXPECT_TRUE(HasLine(lines, "LLCritical\t:Error: WriteDataError writing data (Code:5)."));
    EXPECT_TRUE(HasLine(lines, "LLInfo\t\t:try lock!!!!!!!!!!!!!!"));
}

TEST(CommArbiter, ListsLinksUpToItsLimit) {
    ArbiterFixture fixture;
    for (uint32_t port = 1; port <= 131; ++port) {
        fixture.access.Port(port);
        ASSERT_NE(fixture.Add(LinkSerial, port), nullptr);
    }
    FakeDevice& beyond = fixture.access.Port(200);
    EXPECT_NE(fixture.Add(LinkSerial, 200), nullptr);
    EXPECT_EQ(fixture.Find(LinkSerial, 200), nullptr) << "listed, never found";
    EXPECT_EQ(fixture.Add(LinkSerial, 1), nullptr) << "the limit is looked at before the list";
    EXPECT_EQ(fixture.Find(LinkUsbHid, 0), fixture.Find(LinkSerial, 131)) << "one key";

    Recorder other;
    fixture.Remove(LinkSerial, 1);
    EXPECT_NE(fixture.Add(LinkSerial, 1, "", &other), nullptr);
    fixture.arbiter.RemoveLinksOf(&fixture.owner);
    EXPECT_EQ(beyond.OpenNow(), 0);
    EXPECT_EQ(fixture.Find(LinkSerial, 2), nullptr);
    EXPECT_NE(fixture.Find(LinkSerial, 1), nullptr) << "another's link went too";
}

TEST(CommArbiter, RemovesAllInSpiteOfAStalledWrite) {
    ArbiterFixture fixture;
    FakeDevice& device = fixture.access.Port(3);
    fixture.Add(LinkSerial, 3);
    fixture.Add(LinkSerial, 3);
    device.StallWrites(true);
    std::thread writer([&] {
        CommandPacket packet(0x40, "x");
        EXPECT_EQ(fixture.arbiter.WriteData(DeviceUsb, LinkSerial, 3, &fixture.owner, packet), 0);
    });
    ASSERT_TRUE(Eventually([&] { return device.WriteIsStalled(); }));
    fixture.arbiter.RemoveAll();
    writer.join();
    EXPECT_EQ(device.OpenNow(), 0);
    EXPECT_EQ(fixture.Find(LinkSerial, 3), nullptr);
}

}  // namespace
}  // namespace quillet
