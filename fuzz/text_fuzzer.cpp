// SPDX-License-Identifier: MIT
// Texts that come from the application: hexadecimal command strings, connection strings, formats.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/errors.h"
#include "foundation/format.h"
#include "foundation/parameter_list.h"
#include "foundation/text.h"
#include "fuzz_input.h"

using namespace quillet;

namespace {

void CheckHexText(std::string_view text) {
    fuzz::Require(ParseHexText(text).size() <= text.size() / 2);
    fuzz::Require(ParseHexText(ToHexText(text)) == text);
    fuzz::Require(ToAsciiText(text).size() >= text.size());
}

void CheckSplit(std::string_view text) {
    std::string joined;
    for (const std::string& piece : Split(text, ',')) joined += piece + ",";
    fuzz::Require(joined.empty() ? text.empty() : joined == std::string(text) + ",");
}

void CheckParameters(std::string_view text) {
    ParameterList list;
    list.Parse(text);
    for (const std::string& token : Split(ToLowerAscii(std::string(text)), ',')) {
        const std::string key = token.substr(0, token.find('='));
        if (std::count(token.begin(), token.end(), '=') != 1) continue;
        fuzz::Require(list.Find(key).key == key);
        try {
            list.GetNumber(key, 0);
        } catch (const StringError&) {
            continue;  // no number there
        }
        fuzz::Require(list.GetString(key, "").find_first_of("0123456789") != std::string::npos);
    }
}

void CheckFormat(std::string_view text) {
    const bool hasPlaceholder = FindPlaceholder(text).size != 0;
    fuzz::Require(hasPlaceholder || Format(text, 12345) == text);
    fuzz::Require(Format(text, text, -1, 'c', text).size() <= 3 * text.size() + 20);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input = fuzz::Text(data, size);
    CheckHexText(input);
    CheckSplit(input);
    CheckParameters(input);
    CheckFormat(input);
    return 0;
}
