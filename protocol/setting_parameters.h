// SPDX-License-Identifier: MIT
// Parameter bytes of setting commands, for the setting calls and the setting codes alike. None is longer than
// a string keeps in itself, so nothing here allocates or throws.
#pragma once

#include <cstdint>
#include <string>

#include "protocol/catalogue.h"

namespace quillet {

// The setting's number, if it has one, and the value.
std::string SettingParameters(const CommandRow& row, uint8_t value) noexcept;

// Two characters of a prefix or suffix. The scanner takes 7F for a space.
std::string CharacterPair(uint8_t first, uint8_t second) noexcept;

// A control character before (kHidLeadingFormId) or behind (kHidPostFormId) the barcode, in one of the scanner's forms.
struct HidForm {
    CommandId setting;
    uint8_t form;
    int8_t character;
};
std::string HidFormParameters(const HidForm& hidForm) noexcept;

}  // namespace quillet
