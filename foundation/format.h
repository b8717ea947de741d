// SPDX-License-Identifier: MIT
// Format: fills values into a text at placeholders, in place of printf. Nothing can overrun or read a wrong type.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "foundation/text.h"

namespace quillet {

// A value ready to be filled in; lives no longer than the text that it was made of.
class FormatValue {
  public:
    FormatValue(std::string_view value) : m_Text(value) {}
    FormatValue(const std::string& value) : m_Text(value) {}
    FormatValue(const char* value) : m_Text(value) {}
    FormatValue(char value) : m_Digits{value}, m_Text(m_Digits.data(), 1) {}
    FormatValue(bool value) : FormatValue(static_cast<uint8_t>(value)) {}
    // A negative number shows the hexadecimal digits of its own width.
    template <std::integral T>
    FormatValue(T value) : m_Number(static_cast<std::make_unsigned_t<T>>(value)) {
        m_Text = {m_Digits.data(), DecimalDigits(value)};
    }
    FormatValue(const FormatValue&) = delete;
    FormatValue& operator=(const FormatValue&) = delete;

    std::string_view Text() const { return m_Text; }
    // Its text at "%x".
    std::string Hex() const { return m_Number ? NumToHexText(*m_Number) : NumToHexText(std::string(m_Text)); }

  private:
    template <std::integral T>
    size_t DecimalDigits(T value) {
        return static_cast<size_t>(std::to_chars(m_Digits.begin(), m_Digits.end(), value).ptr - m_Digits.begin());
    }

    std::array<char, 20> m_Digits{};  // before m_Text, which shows it; the longest number needs all of it
    std::string_view m_Text;
    std::optional<uint64_t> m_Number;
};

// The part of a text that a value replaces. `size` 0 means that there is none; `at` is then the end of the text.
struct Placeholder {
    size_t at = 0;
    size_t size = 0;
    bool hex = false;
};

Placeholder FindPlaceholder(std::string_view text);

// Puts one value at the first "%" of the text. What is replaced is found by looking for a directive in the three
// characters from there; where none is found, or the "%" ends the text, the value is dropped and the text stays.
std::string FillIn(std::string text, const FormatValue& value);

// Fills the values in one after the other, each into the text as the one before left it. The text of a value
// comes from its own type, never from the directive. There are no widths, flags or escapes: in "%5d" nothing
// is filled in, and "%%d" loses both percent signs to the value.
template <typename... Values>
std::string Format(std::string_view format, const Values&... values) {
    std::string text(format);
    if (!text.empty()) ((text = FillIn(std::move(text), FormatValue(values))), ...);
    return text;
}

}  // namespace quillet
