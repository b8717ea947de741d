// SPDX-License-Identifier: MIT
// Code types: the number that comes with each barcode and tells its symbology. Read-only tables.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillet {

// 0 isn't known: it stands for a barcode of unknown symbology.
bool IsKnownCodeType(int32_t code);

// Label with the padding that lines it up in a text dump; empty for a code without one. 0 has one too.
std::string_view CodeTypeName(int32_t code);

// Scan data type of the device model; none for a code without one.
std::optional<int32_t> CodeTypeScanDataType(int32_t code);

}  // namespace quillet
