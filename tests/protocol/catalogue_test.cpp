// SPDX-License-Identifier: MIT
#include "protocol/catalogue.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace quillet {
namespace {

TEST(CatalogueTest, DirectIOCommandsAndTheirReplies) {
    size_t accepted = 0;
    size_t answered = 0;
    for (unsigned opcode = 0; opcode <= 0xFF; ++opcode) {
        const auto byte = static_cast<uint8_t>(opcode);
        if (IsDirectIOCommand(byte)) ++accepted;
        if (!IsReplyCommand(byte)) continue;
        ++answered;
        EXPECT_TRUE(IsDirectIOCommand(byte)) << opcode;
    }
    EXPECT_EQ(accepted, 45u);
    EXPECT_EQ(answered, 5u);
    for (const int opcode : {0x40, 0x49, 0x4B, 0x5E, 0x65, 0x7E, 0xD0, 0xD6, 0xE5, 0xEB, 0xEE}) {
        EXPECT_TRUE(IsDirectIOCommand(static_cast<uint8_t>(opcode))) << opcode;
    }
    for (const int opcode : {0x2F, 0x4A, 0x5F, 0x63, 0x66, 0x70, 0xD1, 0xD7, 0xE6, 0xEC}) {
        EXPECT_FALSE(IsDirectIOCommand(static_cast<uint8_t>(opcode))) << opcode;
    }
    for (const int opcode : {126, 213, 216, 231, 232}) {
        EXPECT_TRUE(IsReplyCommand(static_cast<uint8_t>(opcode))) << opcode;
    }
}

}  // namespace
}  // namespace quillet
