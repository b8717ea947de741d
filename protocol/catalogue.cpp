// SPDX-License-Identifier: MIT
#include "protocol/catalogue.h"

#include <algorithm>
#include <iterator>

#include "protocol/catalogue_table.h"

namespace quillet {
namespace {

struct OpcodeRange {
    uint8_t first;
    uint8_t last;
};

constexpr OpcodeRange kDirectIOCommands[] = {
    {0x40, 0x49}, {0x4B, 0x5E}, {0x64, 0x65}, {0x7E, 0x7E}, {0xD0, 0xD0},
    {0xD5, 0xD6}, {0xD8, 0xD8}, {0xE4, 0xE5}, {0xE7, 0xEB}, {0xEE, 0xEE},
};

constexpr uint8_t kReplyCommands[] = {0x7E, 0xD5, 0xD8, 0xE7, 0xE8};

}  // namespace

std::span<const CommandRow> CommandCatalogue() {
    return catalogue_rows::kRows;
}

const CommandRow* FindCommand(CommandId id) {
    const size_t place = PlaceInCatalogue(id);
    return place == kNoPlace ? nullptr : &catalogue_rows::kRows[place];
}

bool FindOpcode(CommandId id, uint8_t& opcode) {
    const CommandRow* row = FindCommand(id);
    if (row == nullptr) return false;
    opcode = row->opcode;
    return true;
}

bool FindNumber(CommandId id, std::string& number) {
    const CommandRow* row = FindCommand(id);
    if (row == nullptr || row->numberSize == 0) return false;
    number = row->NumberBytes();
    return true;
}

bool IsDirectIOCommand(uint8_t opcode) {
    return std::any_of(std::begin(kDirectIOCommands), std::end(kDirectIOCommands),
                       [opcode](OpcodeRange range) { return opcode >= range.first && opcode <= range.last; });
}

bool IsReplyCommand(uint8_t opcode) {
    return std::find(std::begin(kReplyCommands), std::end(kReplyCommands), opcode) != std::end(kReplyCommands);
}

}  // namespace quillet
