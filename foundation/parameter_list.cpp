// SPDX-License-Identifier: MIT
#include "foundation/parameter_list.h"

#include <algorithm>
#include <cstddef>
#include <locale>
#include <sstream>
#include <utility>

#include "foundation/errors.h"
#include "foundation/log.h"
#include "foundation/text.h"

namespace quillet {
namespace {

constexpr char kPairSeparator = ',';
constexpr char kValueSeparator = '=';

size_t SkipDigits(std::string_view text, size_t at) {
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
    return at;
}

size_t SkipSign(std::string_view text, size_t at) {
    return at < text.size() && (text[at] == '+' || text[at] == '-') ? at + 1 : at;
}

// Leading white space and the longest decimal number behind it; empty if there is none. Parsed by hand, because a
// stream reading "9600even" would take the "e" as an exponent and fail.
std::string_view NumberPrefix(std::string_view text) {
    const size_t start = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const size_t whole = SkipSign(text, start);
    size_t end = SkipDigits(text, whole);
    size_t digits = end - whole;
    if (end < text.size() && text[end] == '.') {
        const size_t fraction = end + 1;
        end = SkipDigits(text, fraction);
        digits += end - fraction;
    }
    if (digits == 0) return {};
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const size_t exponent = SkipSign(text, end + 1);
        const size_t exponentEnd = SkipDigits(text, exponent);
        if (exponentEnd > exponent) end = exponentEnd;
    }
    return text.substr(0, end);
}

}  // namespace

void ParameterList::Parse(std::string_view text) {
    for (const std::string& token : Split(ToLowerAscii(std::string(text)), kPairSeparator)) {
        std::vector<std::string> pieces = Split(token, kValueSeparator);
        if (pieces.size() == 2) {
            Add(std::move(pieces[0]), std::move(pieces[1]));
        } else {
            LogError("error parameter : %s", token);
        }
    }
}

ParameterEntry ParameterList::Find(std::string_view key) const {
    const ParameterEntry* match = FirstMatch(key);
    return match != nullptr ? *match : ParameterEntry{};
}

std::string ParameterList::GetString(std::string_view key, std::string_view defaultValue) const {
    ParameterEntry entry = Find(key);
    return entry.key == key ? std::move(entry.value) : std::string(defaultValue);
}

double ParameterList::GetNumber(std::string_view key, double defaultValue) const {
    const ParameterEntry entry = Find(key);
    if (entry.key != key) return defaultValue;
    std::istringstream stream{std::string(NumberPrefix(entry.value))};
    stream.imbue(std::locale::classic());
    double number = 0;
    if (!(stream >> number)) throw StringError("TypeConversion");
    return number;
}

void ParameterList::Add(std::string key, std::string value) {
    m_Entries.push_back({std::move(key), std::move(value)});
}

bool ParameterList::Remove(std::string_view key) {
    const ParameterEntry* match = FirstMatch(key);
    if (match != nullptr) m_Entries.erase(m_Entries.begin() + (match - m_Entries.data()));
    return true;
}

void ParameterList::Clear() {
    m_Entries.clear();
}

const ParameterEntry* ParameterList::FirstMatch(std::string_view key) const {
    for (const ParameterEntry& entry : m_Entries) {
        if (entry.key == key) return &entry;
    }
    return nullptr;
}

}  // namespace quillet
