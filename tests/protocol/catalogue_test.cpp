#include "protocol/catalogue.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace quillet {
namespace {

TEST(CatalogueTest, UnknownIdsAndMissingNumbersLeaveTheResultAlone) {
    uint8_t opcode = 0xAB;
    std::string number = "kept";
    for (const CommandId id : {-1, 147, 151, 256, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(FindCommand(id), nullptr) << id;
        EXPECT_FALSE(FindOpcode(id, opcode)) << id;
        EXPECT_FALSE(FindNumber(id, number)) << id;
    }
    for (const CommandId id : {0, 93, 125, 148, 150}) {
        EXPECT_FALSE(FindNumber(id, number)) << id;
    }
    EXPECT_EQ(opcode, 0xAB);
    EXPECT_EQ(number, "kept");
}

TEST(CatalogueTest, KnownIds) {
    const struct {
        CommandId id;
        uint8_t opcode;
        std::string number;
    } samples[] = {
        {0, 0x41, ""},   {35, 0x40, "\x0B"},      {30, 0x50, std::string("\x00\x34", 2)},
        {93, 0x40, ""},  {94, 0x48, ""},          {136, 0x48, ""},
        {140, 0x5C, ""}, {145, 0x2F, "\x07\x20"}, {146, 0x45, ""},
        {148, 0x74, ""}, {150, 0x58, ""},
    };
    for (const auto& sample : samples) {
        uint8_t opcode = 0;
        std::string number;
        EXPECT_TRUE(FindOpcode(sample.id, opcode)) << sample.id;
        EXPECT_EQ(opcode, sample.opcode) << sample.id;
        EXPECT_EQ(FindNumber(sample.id, number), !sample.number.empty()) << sample.id;
        EXPECT_EQ(number, sample.number) << sample.id;
    }

    size_t numbered = 0;
    for (const CommandRow& row : CommandCatalogue()) {
        EXPECT_EQ(FindCommand(row.id), &row);
        if (row.numberSize != 0) ++numbered;
    }
    EXPECT_EQ(CommandCatalogue().size(), 150u);
    EXPECT_EQ(numbered, 105u);
}

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
