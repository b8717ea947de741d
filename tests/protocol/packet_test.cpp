// SPDX-License-Identifier: MIT
#include "protocol/packet.h"

#include <gtest/gtest.h>
#include <string>

#include "foundation/text.h"

namespace quillet {
namespace {

TEST(Packet, WireBytes) {
    const struct {
        uint8_t opcode;
        const char* parameters;
        const char* wire;
    } kRows[] = {{0x40, "0B 01", "05 40 04 00 0B 01 AA"},
                 {0x40, "0B 00", "05 40 04 00 0B 00 AB"},
                 {0x7E, "", "04 7E 04 00 00 79"},
                 {0x50, "00 2B 01", "06 50 04 00 00 2B 01 79"}};
    for (const auto& row : kRows) {
        CommandPacket packet(row.opcode, ParseHexText(row.parameters));
        EXPECT_EQ(ToHexText(ToWireBytes(packet)), row.wire);
        EXPECT_EQ(ToHexText(ToWireBytes(packet)), row.wire) << "the old checksum is no part of the sum";
    }
    CommandPacket changed(0x7E, "", 3);
    ToWireBytes(changed);
    changed.opcode = 0x40;
    changed.parameters = ParseHexText("0B 01");
    changed.reserved = 1;
    EXPECT_EQ(ToHexText(ToWireBytes(changed)), "05 40 04 03 0B 01 A6") << "`reserved` is counted, not sent";
    CommandPacket longest(0x40, std::string(253, 'x'));
    EXPECT_EQ(ToWireBytes(longest)[0], '\0') << "the length counts modulo 256";
}

TEST(Packet, ReplyChecksumCountsTheFirstParameterEvenWithoutPayload) {
    ReplyPacket reply;
    reply.length = 0x0103;
    reply.opcode = 0x40;
    reply.source = 4;
    reply.status = 0x80;
    reply.firstParameter = 255;
    reply.checksum = static_cast<uint8_t>(~(1 + 3 + 0x40 + 4 + 0x80 + 255));
    EXPECT_TRUE(VerifyChecksum(reply));
    reply.parameters.assign(1, '\xff');
    EXPECT_FALSE(VerifyChecksum(reply));
    ++reply.checksum;
    EXPECT_TRUE(VerifyChecksum(reply)) << "bytes above 7F count as themselves";
}

}  // namespace
}  // namespace quillet
