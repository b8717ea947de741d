// SPDX-License-Identifier: MIT
// The setting calls that send more than one value byte, or more than one packet.
#include <string>
#include <utility>

#include <quillet/quillet.h>

#include "api/handle_calls.h"
#include "protocol/catalogue_table.h"
#include "protocol/setting_parameters.h"

namespace quillet {
namespace {

constexpr uint8_t kSpecifiedRange = 0x75;
constexpr int32_t kHighestHidForm = 7;

// Numbers of the characters to be replaced and their replacements, all under kOutputOption.
enum ReplacementNumber : char { Replacement1 = 0x0B, Replacement2, Replacement3, Replacement4 };

consteval uint8_t OpcodeOf(CommandId id) {
    return CatalogueRow(id).opcode;
}

ResultCode Send(ScannerHandle handle, uint8_t opcode, std::string parameters) noexcept {
    if (handle == nullptr) return ResultBadArgument;
    CommandPacket packet(opcode, std::move(parameters));
    return SendOnHandle(handle, packet);
}

ResultCode SendReplacement(ScannerHandle handle, CommandPacket& packet, ReplacementNumber number,
                           uint8_t character) noexcept {
    packet.parameters = {number, static_cast<char>(character)};
    return SendOnHandle(handle, packet);
}

ResultCode SendHidForm(ScannerHandle handle, CommandId id, int32_t form, int8_t character) noexcept {
    if (handle == nullptr || form < 0 || form > kHighestHidForm) return ResultBadArgument;
    // Both ids have the same opcode. The result is 0 even if nothing could be sent.
    Send(handle, OpcodeOf(kHidLeadingFormId),
         HidFormParameters({.setting = id, .form = static_cast<uint8_t>(form), .character = character}));
    return ResultSuccess;
}

constexpr bool IsByte(int32_t value) {
    return value >= 0 && value <= 255;
}

}  // namespace
}  // namespace quillet

using namespace quillet;

extern "C" {

ResultCode setGetSpecifiedRangeBarcodeData(ScannerHandle handle, int32_t first, int32_t second) {
    if (!IsByte(first) || !IsByte(second)) return ResultBadArgument;
    return Send(handle, kSpecifiedRange, {static_cast<char>(first), static_cast<char>(second)});
}

ResultCode setCodeDataPrefix(ScannerHandle handle, uint8_t first, uint8_t second) {
    return Send(handle, OpcodeOf(kCodeDataPrefixId), CharacterPair(first, second));
}

ResultCode setCodeDataSuffix(ScannerHandle handle, uint8_t first, uint8_t second) {
    return Send(handle, OpcodeOf(kCodeDataSuffixId), CharacterPair(first, second));
}

ResultCode setCodeDataEndSuffix(ScannerHandle handle, int32_t kind) {
    // Both characters by kind; kind 3 is a line feed and then a carriage return, not the usual order.
    static constexpr char kEnds[][2] = {{'\n', 0}, {'\r', 0}, {'\t', 0}, {'\n', '\r'}};
    if (kind < 0 || kind >= static_cast<int32_t>(std::size(kEnds))) return ResultBadArgument;
    return Send(handle, OpcodeOf(kCodeDataSuffixId), std::string(kEnds[kind], 2));
}

ResultCode setAnyCharacterReplacement(ScannerHandle handle, uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    if (handle == nullptr) return ResultBadArgument;
    CommandPacket packet(kOutputOption, {});
    // A failed sending doesn't stop the others, and the last one gives the result.
    SendReplacement(handle, packet, Replacement1, a);
    const ResultCode result = SendReplacement(handle, packet, Replacement2, b);
    if (c == ' ') return result;
    SendReplacement(handle, packet, Replacement3, c);
    return SendReplacement(handle, packet, Replacement4, d);
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): exported so
ResultCode setInsertCharacter(ScannerHandle handle, int8_t character, uint8_t value) {
    const auto high = static_cast<char>(character / 64 + 32);
    const auto low = static_cast<char>(character % 64 + 32);
    return Send(handle, OpcodeOf(kInsertCharacterId), {0, high, low, static_cast<char>(value)});
}

ResultCode setHIDLeadingControlCharacterForm(ScannerHandle handle, int32_t form, int8_t character) {
    return SendHidForm(handle, kHidLeadingFormId, form, character);
}

ResultCode setHIDPostControlCharacterForm(ScannerHandle handle, int32_t form, int8_t character) {
    return SendHidForm(handle, kHidPostFormId, form, character);
}

}  // extern "C"
