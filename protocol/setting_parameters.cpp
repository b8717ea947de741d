// SPDX-License-Identifier: MIT
#include "protocol/setting_parameters.h"

#include <initializer_list>

#include "protocol/catalogue_table.h"

namespace quillet {
namespace {

// Only a string that keeps short texts in itself is that large; the longest parameters are six bytes.
static_assert(sizeof(std::string) >= 3 * sizeof(void*), "parameters must not need the heap");

constexpr uint8_t SpaceReplaced(uint8_t character) {
    return character == 0x20 ? 0x7F : character;
}

}  // namespace

std::string SettingParameters(const CommandRow& row, uint8_t value) noexcept {
    std::string parameters(row.NumberBytes());
    parameters.push_back(static_cast<char>(value));
    return parameters;
}

std::string CharacterPair(uint8_t first, uint8_t second) noexcept {
    return {static_cast<char>(SpaceReplaced(first)), static_cast<char>(SpaceReplaced(second))};
}

std::string HidFormParameters(const HidForm& hidForm) noexcept {
    const char selector = hidForm.setting == kHidLeadingFormId ? 1 : 2;
    // Signed: a character from 0x80 up counts as negative, and both results truncate toward zero.
    const auto high = static_cast<char>(hidForm.character / 128);
    const auto low = static_cast<char>(hidForm.character % 128);
    return {selector, static_cast<char>(hidForm.form), 2, high, low, 3};
}

}  // namespace quillet
