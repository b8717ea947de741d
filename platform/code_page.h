// SPDX-License-Identifier: MIT
// Conversion between code page 936 and UTF-8 by the system's converter.
#pragma once

#include <string>

namespace quillet::platform {

// Both give an empty text if any byte can't be converted.
std::string Cp936ToUtf8(const std::string& text) noexcept;
std::string Utf8ToCp936(const std::string& text) noexcept;

}  // namespace quillet::platform
