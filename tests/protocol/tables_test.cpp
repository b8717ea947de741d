// SPDX-License-Identifier: MIT
// The tables: opcodes of commands and the symbologies of docs/symbologies.md.
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "foundation/text.h"
#include "protocol/catalogue.h"
#include "protocol/symbology.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

TEST(CatalogueTest, DirectIOCommandsAndTheirReplies) {
    std::string commands;
    std::string answered;
    for (int opcode = 0; opcode <= 0xFF; ++opcode) {
        const auto byte = static_cast<uint8_t>(opcode);
        if (IsDirectIOCommand(byte)) commands += static_cast<char>(byte);
        if (IsReplyCommand(byte)) answered += static_cast<char>(byte);
    }
    EXPECT_EQ(ToHexText(commands),
              "40 41 42 43 44 45 46 47 48 49 4B 4C 4D 4E 4F 50 51 52 53 54 55 56 57 58 59 5A 5B 5C 5D 5E "
              "64 65 7E D0 D5 D6 D8 E4 E5 E7 E8 E9 EA EB EE");
    EXPECT_EQ(ToHexText(answered), "7E D5 D8 E7 E8");
}

TEST(SymbologyTest, CodesAndNamesAreThoseOfThePage) {
    const std::string page = ReadFile(QUILLET_DOCUMENTATION "/symbologies.md");
    int typed = 0, byOffset = 0;
    for (int32_t code = -300; code <= 1000; ++code) {
        const std::string row = "\n| " + std::to_string(code) + " | ";
        const std::string_view label = CodeTypeName(code);
        const std::string name(label.substr(0, label.find_last_not_of(" \t") + 1));
        EXPECT_EQ(page.find(row) == std::string::npos, name.empty()) << code;
        EXPECT_TRUE(name.empty() || page.find(row + name + " | ") != std::string::npos) << code << ' ' << name;
        EXPECT_EQ(IsKnownCodeType(code), !name.empty() && code != 0) << code;
        const auto type = CodeTypeScanDataType(code);
        typed += type.has_value();
        byOffset += type == code + 501;
    }
    EXPECT_EQ(typed, 52);
    EXPECT_EQ(byOffset, 31);
}

TEST(SymbologyTest, LabelsKeepTheirPadding) {
    EXPECT_EQ(CodeTypeName(0), "unknow\t\t\t\t\t\t");
    EXPECT_EQ(CodeTypeName(54), "ISSN" + std::string(9, ' ') + "\t\t\t\t");
    for (int32_t code = 100; code <= 105; ++code) {
        EXPECT_EQ(CodeTypeName(code).size(), 27u) << code;
        EXPECT_EQ(CodeTypeName(code).find('\t'), std::string_view::npos) << code;
    }
    EXPECT_EQ(CodeTypeScanDataType(0), 0);
    EXPECT_EQ(CodeTypeScanDataType(28), 204);
    EXPECT_EQ(CodeTypeScanDataType(180), std::nullopt);
}

}  // namespace
}  // namespace quillet::test
