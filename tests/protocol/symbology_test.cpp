// SPDX-License-Identifier: MIT
#include "protocol/symbology.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <string>
#include <string_view>

namespace quillet {
namespace {

std::map<int32_t, std::string> DocumentedNames() {
    const std::regex row(R"(\| (\d+) \| ([^|]+) \| [^|]+ \|)");
    std::map<int32_t, std::string> names;
    std::ifstream file(QUILLET_DOCUMENTATION "/symbologies.md");
    std::smatch cells;
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, cells, row)) names[std::stoi(cells[1])] = cells[2];
    }
    return names;
}

TEST(Symbology, CodesAndNamesAreThoseOfThePage) {
    std::map<int32_t, std::string> documented = DocumentedNames();
    int typed = 0, byOffset = 0;
    for (int32_t code = -300; code <= 1000; ++code) {
        const bool listed = documented.count(code) != 0;
        const std::string_view name = CodeTypeName(code);
        EXPECT_EQ(name.substr(0, name.find_last_not_of(" \t") + 1), documented[code]) << code;
        EXPECT_EQ(IsKnownCodeType(code), listed && code != 0) << code;
        const auto type = CodeTypeScanDataType(code);
        typed += type.has_value();
        byOffset += type == code + 501;
    }
    EXPECT_EQ(typed, 52);
    EXPECT_EQ(byOffset, 31);
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
