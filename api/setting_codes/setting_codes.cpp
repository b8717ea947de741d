// SPDX-License-Identifier: MIT
// Setting commands as bytes, for setting codes; no scanner is needed.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <quillet/quillet.h>

#include "foundation/text.h"
#include "protocol/catalogue.h"
#include "protocol/packet.h"
#include "protocol/setting_parameters.h"

namespace quillet {
namespace {

ResultCode StoreCode(std::string_view code, int32_t bufferSize, uint8_t* buffer, int32_t* outLength) {
    const auto room = static_cast<size_t>(std::max(bufferSize, 0));
    std::fill_n(buffer, room, uint8_t{0});
    if (code.size() > room) return ResultReplyTooLong;
    std::copy(code.begin(), code.end(), buffer);
    *outLength = static_cast<int32_t>(code.size());
    return ResultSuccess;
}

// Empty if the setting has no command. Reads two bytes of the value for the forms P and H, one for the others.
std::string CodeParameters(const CommandRow& row, const uint8_t* value) noexcept {
    switch (row.form) {
        case CommandForm::V:
        case CommandForm::S:
        case CommandForm::L: return SettingParameters(row, value[0]);
        case CommandForm::P: return CharacterPair(value[0], value[1]);
        case CommandForm::H:
            return HidFormParameters({.setting = row.id, .form = value[0], .character = static_cast<int8_t>(value[1])});
        case CommandForm::None: break;
    }
    return {};
}

// A token counts by its first byte alone. An empty one is 0, which the text couldn't hold otherwise.
char FirstByte(const std::string& token) {
    return token.empty() ? '\0' : token.front();
}

// Appends the item for "<id> <value>[ <second value>]". False if the piece has too few tokens or names no
// setting that an item can carry. Unlike a code for a single setting, an item leaves spaces alone.
bool AppendItem(const std::string& piece, std::string& items) {
    const std::vector<std::string> tokens = Split(piece, ' ');
    if (tokens.size() < 2) return false;
    const CommandRow* row = FindCommand(static_cast<int8_t>(FirstByte(tokens[0])));
    if (row == nullptr || row->form == CommandForm::None || row->form == CommandForm::H) return false;

    std::string parameters = SettingParameters(*row, static_cast<uint8_t>(FirstByte(tokens[1])));
    if (row->form == CommandForm::P) {
        if (tokens.size() < 3) return false;
        parameters.push_back(FirstByte(tokens[2]));
    }
    items.push_back(static_cast<char>(parameters.size() + 1));
    items.push_back(static_cast<char>(row->opcode));
    items += parameters;
    return true;
}

// Empty if the list is refused: no item, a bad one, or more than one packet can carry.
std::string SettingItems(std::string_view settings) {
    std::string items;
    for (const std::string& piece : Split(settings, ',')) {
        if (!AppendItem(piece, items) || items.size() > kMaxParameterSize) return {};
    }
    return items;
}

}  // namespace
}  // namespace quillet

using namespace quillet;

extern "C" {

ResultCode getBarCodeCmd(int32_t id, const uint8_t* value, int32_t bufferSize, uint8_t* buffer, int32_t* outLength) {
    const CommandRow* row = FindCommand(id);
    if (row == nullptr || value == nullptr || buffer == nullptr || outLength == nullptr) return ResultBadArgument;
    std::string parameters = CodeParameters(*row, value);
    if (parameters.empty()) return ResultBadArgument;
    CommandPacket packet(row->opcode, std::move(parameters));
    return StoreCode(ToWireBytes(packet), bufferSize, buffer, outLength);
}

ResultCode getQRBarCodeCmd(const char* settings, int32_t bufferSize, uint8_t* buffer, int32_t* outLength) {
    if (settings == nullptr || buffer == nullptr || outLength == nullptr) return ResultBadArgument;
    try {
        std::string items = SettingItems(settings);
        if (items.empty()) return ResultBadArgument;
        CommandPacket packet(OpcodeSettingList, std::move(items));
        return StoreCode(ToWireBytes(packet), bufferSize, buffer, outLength);
    } catch (const std::exception&) {
        return ResultBadArgument;  // out of memory; nothing has been written to the buffer by then
    }
}

}  // extern "C"
