// Format: fills values into a text at placeholders, in place of printf. Nothing can overrun or read a wrong
// type.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "foundation/text.h"

namespace quillet {

// A value ready to be filled in: its own text, and its text at "%x".
struct FormatValue {
    std::string text;
    std::string hex;

    FormatValue(const std::string& value) : text(value), hex(NumToHexText(value)) {}
    FormatValue(std::string_view value) : FormatValue(std::string(value)) {}
    FormatValue(const char* value) : FormatValue(std::string(value)) {}
    FormatValue(char value) : FormatValue(std::string(1, value)) {}
    FormatValue(bool value) : text(NumToString(value)), hex(NumToHexText(static_cast<uint64_t>(value))) {}
    template <std::signed_integral T>
    requires(sizeof(T) > 1) FormatValue(T value) : text(std::to_string(value)), hex(HexOfWidth(value)) {}
    template <std::unsigned_integral T>
    FormatValue(T value) : text(std::to_string(value)), hex(NumToHexText(static_cast<uint64_t>(value))) {}

  private:
    // A negative number shows the digits of its own width.
    template <std::signed_integral T>
    static std::string HexOfWidth(T value) {
        return NumToHexText(static_cast<uint64_t>(static_cast<std::make_unsigned_t<T>>(value)));
    }
};

// True if FillIn would find a place for a value.
bool HasPlaceholder(std::string_view text);

// Puts one value at the first "%" of the text. What is replaced is found by looking for a directive in the
// three characters from there; where none is found, or the "%" ends the text, the value is dropped and the
// text stays.
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
