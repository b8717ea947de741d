// SPDX-License-Identifier: MIT
// The tables of setting calls: what a row is made of, and the rows for whoever wants to walk over them.
//
// The rows stand in truth_settings.inc, choice_settings.inc and number_settings.inc. Each makes one exported
// function in settings.cpp, whose prototype stands in the public header.
#pragma once

#include <cstdint>
#include <span>

#include <quillet/quillet.h>

#include "protocol/catalogue_table.h"

namespace quillet {

struct SettingCommand {
    CommandRow row;
    bool inverted = false;       // on is sent as 0, off as 1
    bool zeroBehind = false;     // a byte 0 follows the value
    bool resultIgnored = false;  // the call gives 0 even if nothing could be sent
};

// The setting of that number in the catalogue. Doesn't compile if there is none, or none that a value byte sets.
consteval SettingCommand Id(CommandId id) {
    const CommandRow row = CatalogueRow(id);
    if (row.form != CommandForm::V && row.form != CommandForm::S && row.form != CommandForm::L) {
        throw "not set by a value byte";
    }
    return {row};
}

// A setting that the catalogue doesn't list: it can be sent, but neither queried nor put into a setting code.
consteval SettingCommand Unlisted(uint8_t opcode) {
    return {{-1, CommandForm::V, opcode, 0, {}}};
}
consteval SettingCommand Unlisted(uint8_t opcode, uint8_t number) {
    return {{-1, CommandForm::S, opcode, 1, {number}}};
}

consteval SettingCommand Inverted(SettingCommand command) {
    command.inverted = true;
    return command;
}
consteval SettingCommand ZeroBehind(SettingCommand command) {
    command.zeroBehind = true;
    return command;
}
consteval SettingCommand ResultIgnored(SettingCommand command) {
    command.resultIgnored = true;
    return command;
}

// An accepted argument and the byte that is sent for it: the argument itself, if the row names no other.
struct Choice {
    constexpr Choice(int32_t accepted) : argument(accepted), byte(static_cast<uint8_t>(accepted)) {}
    consteval Choice SentAs(uint8_t sent) const {
        Choice choice = *this;
        choice.byte = sent;
        return choice;
    }

    int32_t argument;
    uint8_t byte;
};

struct TruthSetting {
    const char* name;
    ResultCode (*call)(ScannerHandle handle, uint8_t on);
};

struct NumberSetting {
    const char* name;
    ResultCode (*call)(ScannerHandle handle, int32_t value);
};

std::span<const TruthSetting> TruthSettings();
// The enumerated and the numeric calls.
std::span<const NumberSetting> NumberSettings();

}  // namespace quillet
