// SPDX-License-Identifier: MIT
#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>

#include "api/handle_calls.h"
#include "api/settings/setting_rows.h"
#include "protocol/setting_parameters.h"

namespace quillet {
namespace {

ResultCode SendValue(ScannerHandle handle, const SettingCommand& command, uint8_t value) noexcept {
    std::string parameters = SettingParameters(command.row, value);
    if (command.zeroBehind) parameters.push_back('\0');
    CommandPacket packet(command.row.opcode, std::move(parameters));
    const ResultCode result = SendOnHandle(handle, packet);
    return command.resultIgnored ? ResultSuccess : result;
}

ResultCode SetTruth(ScannerHandle handle, const SettingCommand& command, uint8_t on) noexcept {
    if (handle == nullptr) return ResultBadArgument;
    return SendValue(handle, command, (on != 0) != command.inverted ? 1 : 0);
}

ResultCode SetChoice(ScannerHandle handle, const SettingCommand& command, std::span<const Choice> accepted,
                     int32_t value) noexcept {
    const auto choice = std::find_if(accepted.begin(), accepted.end(),
                                     [value](const Choice& entry) { return entry.argument == value; });
    if (handle == nullptr || choice == accepted.end()) return ResultBadArgument;
    return SendValue(handle, command, choice->byte);
}

using ByteOf = uint8_t (*)(int32_t value);

constexpr uint8_t AsItIs(int32_t value) {
    return static_cast<uint8_t>(value);
}
constexpr uint8_t InHundreds(int32_t value) {
    return static_cast<uint8_t>(value / 100);
}
// Modulo 256, so that 0 counts as 256.
constexpr uint8_t LessOne(int32_t value) {
    return static_cast<uint8_t>(value - 1);
}

ResultCode SetNumber(ScannerHandle handle, const SettingCommand& command, int32_t lowest, int32_t highest,
                     ByteOf byteOf, int32_t value) noexcept {
    if (handle == nullptr || value < lowest || value > highest) return ResultBadArgument;
    return SendValue(handle, command, byteOf(value));
}

}  // namespace
}  // namespace quillet

// A row whose call the header doesn't declare, or declares with other arguments, doesn't compile.
#define QUILLET_DECLARED(call, argument) \
    static_assert(std::is_same_v<decltype(call), ResultCode(ScannerHandle, argument)>)

extern "C" {

#define TRUTH(call, command)                                \
    QUILLET_DECLARED(call, uint8_t);                        \
    ResultCode call(ScannerHandle handle, uint8_t on) {     \
        using namespace quillet;                            \
        static constexpr SettingCommand kCommand = command; \
        return SetTruth(handle, kCommand, on);              \
    }
#include "api/settings/truth_settings.inc"
#undef TRUTH

#define CHOICE(call, command, ...)                            \
    QUILLET_DECLARED(call, int32_t);                          \
    ResultCode call(ScannerHandle handle, int32_t value) {    \
        using namespace quillet;                              \
        static constexpr SettingCommand kCommand = command;   \
        static constexpr Choice kAccepted[] = {__VA_ARGS__};  \
        return SetChoice(handle, kCommand, kAccepted, value); \
    }
#include "api/settings/choice_settings.inc"
#undef CHOICE

#define NUMBER(call, command, lowest, highest, byteOf)                      \
    QUILLET_DECLARED(call, int32_t);                                        \
    ResultCode call(ScannerHandle handle, int32_t value) {                  \
        using namespace quillet;                                            \
        static constexpr SettingCommand kCommand = command;                 \
        return SetNumber(handle, kCommand, lowest, highest, byteOf, value); \
    }
#include "api/settings/number_settings.inc"
#undef NUMBER

}  // extern "C"

namespace quillet {

std::span<const TruthSetting> TruthSettings() {
#define TRUTH(call, ...) {#call, &call},
    static constexpr TruthSetting kRows[] = {
#include "api/settings/truth_settings.inc"
    };
#undef TRUTH
    return kRows;
}

std::span<const NumberSetting> NumberSettings() {
#define CHOICE(call, ...) {#call, &call},
#define NUMBER(call, ...) {#call, &call},
    static constexpr NumberSetting kRows[] = {
#include "api/settings/choice_settings.inc"
#include "api/settings/number_settings.inc"
    };
#undef CHOICE
#undef NUMBER
    return kRows;
}

}  // namespace quillet
