// SPDX-License-Identifier: MIT
// Bytes as a test writes and prints them: "05 40 04".
#pragma once

#include <string>
#include <string_view>

#include "foundation/text.h"

namespace quillet::test {

inline std::string Hex(std::string_view bytes) {
    return ToHexText(bytes);
}
inline std::string FromHex(std::string_view text) {
    return ParseHexText(text);
}

}  // namespace quillet::test
