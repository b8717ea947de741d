// SPDX-License-Identifier: MIT
// Every setting the library can name: its number, its opcode and the form of its parameters. Tables only;
// read-only and usable from any thread at any time.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quillet {

// Number of a setting, 0 to 150 without 147.
using CommandId = int32_t;

// How the parameters of a setting command are made of its number and its value.
enum class CommandForm : uint8_t {
    None,  // the setting can be queried, but not set by a command of its own
    V,     // value byte
    S,     // one-byte number, value byte
    L,     // two-byte number, value byte
    P,     // two characters, a space turned into 7F
    H      // selector, form, 02, character / 128, character % 128, 03
};

struct CommandRow {
    CommandId id;
    CommandForm form;
    uint8_t opcode;
    uint8_t numberSize;  // 0 to 2
    uint8_t number[2];   // high byte first

    std::string_view NumberBytes() const { return {reinterpret_cast<const char*>(number), numberSize}; }
};

// In order of id.
std::span<const CommandRow> CommandCatalogue();
// Null for an unknown id.
const CommandRow* FindCommand(CommandId id);

// False for an unknown id, which leaves the result as it was.
bool FindOpcode(CommandId id, uint8_t& opcode);
// False if the id is unknown or has no number, which leaves the result as it was.
bool FindNumber(CommandId id, std::string& number);

// Opcodes that the service's DirectIO accepts, and those of them that are answered by a reply.
bool IsDirectIOCommand(uint8_t opcode);
bool IsReplyCommand(uint8_t opcode);

}  // namespace quillet
