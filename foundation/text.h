// SPDX-License-Identifier: MIT
// Conversions between numbers, bytes and text. A std::string is a string of bytes throughout: it may hold any
// value, 0 included, and has no encoding. Nothing here looks at the host's locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/errors.h"

namespace quillet {

// Decimal text of a number in the classic locale; a truth value gives "1" or "0", a character itself.
std::string NumToString(int16_t value);
std::string NumToString(int32_t value);
std::string NumToString(uint32_t value);
std::string NumToString(uint64_t value);
std::string NumToString(bool value);
std::string NumToString(char value);

// At least two lower-case hexadecimal digits, zero-filled; a text is only padded to two characters with "0"
// on its left.
std::string NumToHexText(const std::string& value);
std::string NumToHexText(int64_t value);
std::string NumToHexText(uint64_t value);

// ASCII case only, byte by byte.
std::string ToLowerAscii(std::string text);
std::string ToUpperAscii(std::string text);

// Cuts the text at each separator. An empty text gives no pieces; a final separator gives a final empty piece.
std::vector<std::string> Split(std::string_view text, char separator);

// Replaces every occurrence of `from`, searching on from the place of each replacement, so `to` must not
// contain `from`. A `from` that is empty, equal to `to` or longer than the text changes nothing.
std::string ReplaceAll(std::string text, std::string_view from, std::string_view to);

// Bytes of a hexadecimal text. The separators , ; | blank 0x CR LF are dropped, letters may have either case,
// and a last single digit is ignored. Digits aren't checked: anything else gives a byte by the same sum (code
// - 48 below the code 58, else code - 87).
std::string ParseHexText(std::string_view text);

// "02 0A FF": upper case, one blank between.
std::string ToHexText(std::string_view bytes);

// Text for the log: control bytes, 127 and F0 to F9 as tags such as "<CR>", every other byte as itself.
std::string ToAsciiText(std::string_view bytes);

// The BinaryConversion property of the device model. With no mode chosen, text is coded as in Decimal.
enum class BinaryConversion { None, Nibble, Decimal };

// Throws std::out_of_range ("invalid string position") if the text ends inside a group of 2 (nibble) or 3 (decimal).
std::string DecodeBinaryText(std::string_view text, BinaryConversion mode);
std::string EncodeBinaryText(std::string_view bytes, BinaryConversion mode);

// Between the code page 936 and UTF-8; empty if any byte can't be converted. Kept for the log's encoding
// option, which nothing switches on at present.
std::string GbkToUtf8(const std::string& text);
std::string Utf8ToGbk(const std::string& text);

}  // namespace quillet
