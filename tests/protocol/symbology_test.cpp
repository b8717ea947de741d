#include "protocol/symbology.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>

namespace quillet {
namespace {

TEST(Symbology, KnowsItsCodesAndNoOthers) {
    int known = 0, labelled = 0, typed = 0, byOffset = 0;
    for (int32_t code = -300; code <= 1000; ++code) {
        const auto type = CodeTypeScanDataType(code);
        known += IsKnownCodeType(code);
        labelled += !CodeTypeName(code).empty();
        typed += type.has_value();
        byOffset += type == code + 501;
        EXPECT_EQ(CodeTypeName(code).empty(), !IsKnownCodeType(code) && code != 0) << code;
    }
    EXPECT_EQ(known, 87);
    EXPECT_EQ(labelled, 88);
    EXPECT_EQ(typed, 52);
    EXPECT_EQ(byOffset, 31);
    for (int32_t code : {0, 42, 43, 47, 51, 58, 71, 76, 255, -1, std::numeric_limits<int32_t>::max()}) {
        EXPECT_FALSE(IsKnownCodeType(code)) << code;
    }
    for (int32_t code : {1, 41, 44, 57, 72, 90, 97, 115, 136, 144, 154, 180, 183}) {
        EXPECT_TRUE(IsKnownCodeType(code)) << code;
    }
}

TEST(Symbology, LabelsKeepTheirPadding) {
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
}  // namespace quillet
