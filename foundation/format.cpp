// SPDX-License-Identifier: MIT
#include "foundation/format.h"

#include <cstddef>

namespace quillet {
namespace {

// True if the text holds a "%" followed by one of the letters.
bool HoldsDirective(std::string_view text, std::string_view letters) {
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] == '%' && letters.find(text[i + 1]) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace

// A directive may begin at the second of the three characters looked at; what is replaced begins at the first
// "%" all the same. That is how "%%d" loses both percent signs and keeps its "d".
Placeholder FindPlaceholder(std::string_view text) {
    const size_t at = text.find('%');
    if (at == std::string_view::npos || at + 1 == text.size()) return {text.size()};
    const std::string_view seen = text.substr(at, 3);
    if (HoldsDirective(seen, "sc")) return {at, 2, false};
    if (seen == "%ll" || seen == "%ld" || seen == "%lf") return {at, 3, false};
    if (HoldsDirective(seen, "dlf")) return {at, 2, false};
    if (HoldsDirective(seen, "x")) return {at, 2, true};
    return {text.size()};
}

std::string FillIn(std::string text, const FormatValue& value) {
    const Placeholder place = FindPlaceholder(text);
    if (place.hex) {
        text.replace(place.at, place.size, value.Hex());
    } else if (place.size != 0) {
        text.replace(place.at, place.size, value.Text());
    }
    return text;
}

}  // namespace quillet
