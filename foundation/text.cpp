// SPDX-License-Identifier: MIT
#include "foundation/text.h"

#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "platform/code_page.h"

namespace quillet {
namespace {

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

constexpr std::array<std::string_view, 32> kControlTags = {
    "<NUL>", "<SOH>", "<STX>", "<ETX>", "<EOT>", "<ENQ>", "<ACK>", "<BEl>", "<BS>",  "<HT>",  "<LF>",
    "<VT>",  "<FF>",  "<CR>",  "<SO>",  "<SI>",  "<DLE>", "<DC1>", "<DC2>", "<DC3>", "<DC4>", "<NAK>",
    "<SYN>", "<ETB>", "<CAN>", "<EN>",  "<SUB>", "<ESC>", "<FS>",  "<GS>",  "<RS>",  "<US>"};
constexpr unsigned kDelete = 0x7F;

unsigned ByteOf(char c) {
    return static_cast<unsigned char>(c);
}
char CharOf(unsigned value) {
    return static_cast<char>(static_cast<unsigned char>(value));
}
unsigned LowNibble(char c) {
    return ByteOf(c) & 0x0F;
}

// Unchecked: what isn't a lower-case hexadecimal digit still gives a number.
unsigned HexDigitValue(char c) {
    return ByteOf(c) < 58 ? ByteOf(c) - 48 : ByteOf(c) - 87;
}

bool IsHexSeparator(char c) {
    return c == ',' || c == ';' || c == '|' || c == ' ';
}

// The order is part of the behaviour: "0x" goes after the separators, so that "0 x12" loses it, and before
// the line ends, so that one torn by them stays.
std::string DropHexSeparators(std::string_view text) {
    std::string kept;
    kept.reserve(text.size());
    for (char c : text) {
        if (!IsHexSeparator(c)) kept.push_back(c);
    }
    std::string digits;
    digits.reserve(kept.size());
    for (size_t i = 0; i < kept.size(); ++i) {
        if (kept[i] == '0' && i + 1 < kept.size() && kept[i + 1] == 'x') {
            ++i;
        } else if (kept[i] != '\r' && kept[i] != '\n') {
            digits.push_back(kept[i]);
        }
    }
    return digits;
}

void AppendAsciiTag(std::string& text, char c) {
    const unsigned byte = ByteOf(c);
    if (byte < kControlTags.size()) {
        text += kControlTags[byte];
    } else if (byte == kDelete) {
        text += "<DEL>";
    } else if (byte >= 0xF0 && byte <= 0xF9) {
        text += "<F";
        text += kUpperDigits[byte & 0x0F];
        text += '>';
    } else {
        text += c;
    }
}

// Characters that make one byte.
size_t GroupSize(BinaryConversion mode) {
    return mode == BinaryConversion::Nibble ? 2 : 3;
}

char DecodeGroup(std::string_view group) {
    unsigned value = 0;
    if (group.size() == 2) {
        value = (LowNibble(group[0]) << 4) + LowNibble(group[1]);
    } else {
        value = LowNibble(group[0]) * 100 + LowNibble(group[1]) * 10 + LowNibble(group[2]);
    }
    return CharOf(value);
}

}  // namespace

std::string NumToString(int16_t value) {
    return std::to_string(value);
}
std::string NumToString(int32_t value) {
    return std::to_string(value);
}
std::string NumToString(uint32_t value) {
    return std::to_string(value);
}
std::string NumToString(uint64_t value) {
    return std::to_string(value);
}
std::string NumToString(bool value) {
    return value ? "1" : "0";
}
std::string NumToString(char value) {
    return std::string(1, value);
}

std::string NumToHexText(const std::string& value) {
    return value.size() < 2 ? std::string(2 - value.size(), '0') + value : value;
}

std::string NumToHexText(int64_t value) {
    return NumToHexText(static_cast<uint64_t>(value));
}

std::string NumToHexText(uint64_t value) {
    std::string text;
    int shift = 60;
    while (shift > 4 && (value >> shift) == 0) shift -= 4;
    for (; shift >= 0; shift -= 4) text += kLowerDigits[(value >> shift) & 0x0F];
    return text;
}

std::string ToLowerAscii(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    }
    return text;
}

std::string ToUpperAscii(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
    }
    return text;
}

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    if (text.empty()) return pieces;
    size_t start = 0;
    size_t end;
    while ((end = text.find(separator, start)) != std::string_view::npos) {
        pieces.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    pieces.emplace_back(text.substr(start));
    return pieces;
}

std::string ReplaceAll(std::string text, std::string_view from, std::string_view to) {
    if (from.empty() || from == to || from.size() > text.size()) return text;
    size_t at = 0;
    while ((at = text.find(from, at)) != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::string ParseHexText(std::string_view text) {
    const std::string digits = ToLowerAscii(DropHexSeparators(text));
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(CharOf(HexDigitValue(digits[i]) * 16 + HexDigitValue(digits[i + 1])));
    }
    return bytes;
}

std::string ToHexText(std::string_view bytes) {
    std::string text;
    if (bytes.empty()) return text;
    text.reserve(bytes.size() * 3);
    for (char c : bytes) {
        text.push_back(kUpperDigits[ByteOf(c) >> 4]);
        text.push_back(kUpperDigits[LowNibble(c)]);
        text.push_back(' ');
    }
    text.pop_back();
    return text;
}

std::string ToAsciiText(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 4);
    for (char c : bytes) AppendAsciiTag(text, c);
    return text;
}

std::string DecodeBinaryText(std::string_view text, BinaryConversion mode) {
    if (mode == BinaryConversion::None) return std::string(text);
    const size_t groupSize = GroupSize(mode);
    if (text.size() % groupSize != 0) throw std::out_of_range("invalid string position");
    std::string bytes;
    bytes.reserve(text.size() / groupSize);
    for (size_t i = 0; i < text.size(); i += groupSize) bytes.push_back(DecodeGroup(text.substr(i, groupSize)));
    return bytes;
}

std::string EncodeBinaryText(std::string_view bytes, BinaryConversion mode) {
    if (mode == BinaryConversion::None) return std::string(bytes);
    std::string text;
    text.reserve(bytes.size() * GroupSize(mode));
    for (char c : bytes) {
        const unsigned byte = ByteOf(c);
        if (mode == BinaryConversion::Nibble) {
            text.push_back(CharOf((byte >> 4) + '0'));
            text.push_back(CharOf((byte & 0x0F) + '0'));
        } else {
            text.push_back(CharOf(byte / 100 + '0'));
            text.push_back(CharOf(byte / 10 % 10 + '0'));
            text.push_back(CharOf(byte % 10 + '0'));
        }
    }
    return text;
}

std::string GbkToUtf8(const std::string& text) {
    return platform::Cp936ToUtf8(text);
}
std::string Utf8ToGbk(const std::string& text) {
    return platform::Utf8ToCp936(text);
}

}  // namespace quillet
