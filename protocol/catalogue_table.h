// SPDX-License-Identifier: MIT
// The catalogue's rows, for those who need them at compile time; everybody else asks catalogue.h.
#pragma once

#include <array>

#include "protocol/catalogue.h"

namespace quillet {

// Settings that a row of the catalogue alone doesn't describe, because their calls compute more than a value byte.
inline constexpr CommandId kCodeDataPrefixId = 125;
inline constexpr CommandId kInsertCharacterId = 140;
inline constexpr CommandId kCodeDataSuffixId = 146;
inline constexpr CommandId kHidLeadingFormId = 148;
inline constexpr CommandId kHidPostFormId = 149;

inline constexpr CommandId kLastCommandId = 150;
inline constexpr CommandId kMissingCommandId = 147;

// Opcodes that carry many settings, each with a number of its own.
inline constexpr uint8_t kSymbologySwitch = 0x40;
inline constexpr uint8_t kExtendedOption = 0x50;
inline constexpr uint8_t kDeviceOption = 0x70;
inline constexpr uint8_t kOutputOption = 0x76;

namespace catalogue_rows {

consteval CommandRow None(CommandId id, uint8_t opcode) {
    return {id, CommandForm::None, opcode, 0, {}};
}
consteval CommandRow V(CommandId id, uint8_t opcode) {
    return {id, CommandForm::V, opcode, 0, {}};
}
consteval CommandRow P(CommandId id, uint8_t opcode) {
    return {id, CommandForm::P, opcode, 0, {}};
}
consteval CommandRow H(CommandId id, uint8_t opcode) {
    return {id, CommandForm::H, opcode, 0, {}};
}
consteval CommandRow S(CommandId id, uint8_t opcode, uint8_t number) {
    return {id, CommandForm::S, opcode, 1, {number}};
}
consteval CommandRow L(CommandId id, uint8_t opcode, uint8_t high, uint8_t low) {
    return {id, CommandForm::L, opcode, 2, {high, low}};
}

// Some ids name the same bytes: 9 and 15, 16 and 17; 104, 106, 108, 110 and 112; 111 and 132.
inline constexpr std::array kRows{
    V(0, 0x41),
    V(1, 0x48),
    V(2, 0x49),
    V(3, 0x54),
    V(4, 0x6C),
    V(5, 0x5B),
    V(6, 0x4E),
    V(7, 0x42),
    V(8, 0x4B),
    V(9, 0x65),
    V(10, 0x53),
    V(11, 0x6D),
    S(12, kDeviceOption, 0x02),
    V(13, 0x44),
    V(14, 0x4F),
    V(15, 0x65),
    V(16, 0x4D),
    V(17, 0x4D),
    V(18, 0x72),
    V(19, 0x6B),
    V(20, 0x6A),
    V(21, 0x47),
    S(22, kDeviceOption, 0x05),
    V(23, 0x46),
    V(24, 0x5E),
    V(25, 0x69),
    L(26, kExtendedOption, 0x04, 0x4A),
    V(27, 0x67),
    V(28, 0x68),
    S(29, kSymbologySwitch, 0x0E),
    L(30, kExtendedOption, 0x00, 0x34),
    L(31, kExtendedOption, 0x00, 0x2F),
    S(32, kSymbologySwitch, 0x08),
    L(33, kExtendedOption, 0x08, 0x7C),
    L(34, kExtendedOption, 0x09, 0x66),
    S(35, kSymbologySwitch, 0x0B),
    L(36, kExtendedOption, 0x00, 0x30),
    L(37, kExtendedOption, 0x00, 0x2B),
    L(38, kExtendedOption, 0x00, 0x11),
    S(39, kSymbologySwitch, 0x31),
    L(40, kExtendedOption, 0x01, 0x67),
    S(41, kSymbologySwitch, 0x0D),
    S(42, kSymbologySwitch, 0x0A),
    S(43, kSymbologySwitch, 0x09),
    L(44, kExtendedOption, 0x03, 0x2B),
    S(45, kSymbologySwitch, 0x14),
    L(46, kExtendedOption, 0x00, 0x36),
    L(47, kExtendedOption, 0x00, 0x37),
    S(48, kSymbologySwitch, 0x01),
    L(49, kExtendedOption, 0x00, 0x28),
    L(50, kExtendedOption, 0x01, 0x01),
    L(51, kExtendedOption, 0x01, 0x03),
    L(52, kExtendedOption, 0x01, 0x02),
    L(53, kExtendedOption, 0x00, 0x22),
    S(54, kSymbologySwitch, 0x02),
    L(55, kExtendedOption, 0x00, 0x29),
    L(56, kExtendedOption, 0x01, 0x04),
    L(57, kExtendedOption, 0x01, 0x06),
    L(58, kExtendedOption, 0x01, 0x05),
    L(59, kExtendedOption, 0x00, 0x23),
    S(60, kSymbologySwitch, 0x2C),
    S(61, kSymbologySwitch, 0x05),
    L(62, kExtendedOption, 0x01, 0x07),
    L(63, kExtendedOption, 0x01, 0x09),
    L(64, kExtendedOption, 0x01, 0x08),
    S(65, kSymbologySwitch, 0x04),
    L(66, kExtendedOption, 0x01, 0x0A),
    L(67, kExtendedOption, 0x01, 0x0C),
    L(68, kExtendedOption, 0x01, 0x0B),
    S(69, kSymbologySwitch, 0x2E),
    S(70, kSymbologySwitch, 0x06),
    L(71, kSymbologySwitch, 0x04, 0x40),
    S(72, kSymbologySwitch, 0x07),
    S(73, kSymbologySwitch, 0x0F),
    L(74, kExtendedOption, 0x00, 0x31),
    L(75, kExtendedOption, 0x00, 0x2C),
    S(76, kSymbologySwitch, 0x13),
    L(77, kExtendedOption, 0x04, 0x6E),
    L(78, kExtendedOption, 0x04, 0x6F),
    S(79, kSymbologySwitch, 0x41),
    S(80, kSymbologySwitch, 0x10),
    S(81, kSymbologySwitch, 0x15),
    L(82, kExtendedOption, 0x00, 0x32),
    L(83, kExtendedOption, 0x00, 0x2E),
    L(84, kExtendedOption, 0x00, 0x33),
    S(85, kSymbologySwitch, 0x1E),
    S(86, kSymbologySwitch, 0x33),
    S(87, kSymbologySwitch, 0x1F),
    S(88, kSymbologySwitch, 0x20),
    S(89, kSymbologySwitch, 0x24),
    S(90, kSymbologySwitch, 0x25),
    S(91, kSymbologySwitch, 0x28),
    L(92, kSymbologySwitch, 0x04, 0x4B),
    None(93, 0x40),
    None(94, 0x48),
    S(95, kSymbologySwitch, 0x26),
    L(96, kExtendedOption, 0x04, 0x19),
    L(97, kExtendedOption, 0x04, 0x4C),
    S(98, kSymbologySwitch, 0x2A),
    L(99, kExtendedOption, 0x04, 0x4D),
    S(100, kSymbologySwitch, 0x2B),
    L(101, kExtendedOption, 0x09, 0x10),
    S(102, kSymbologySwitch, 0x27),
    S(103, kSymbologySwitch, 0x42),
    L(104, kExtendedOption, 0x65, 0x58),
    L(105, kExtendedOption, 0x05, 0x2A),
    L(106, kExtendedOption, 0x65, 0x58),
    L(107, kExtendedOption, 0x05, 0x2C),
    L(108, kExtendedOption, 0x65, 0x58),
    L(109, kExtendedOption, 0x05, 0x2B),
    L(110, kExtendedOption, 0x65, 0x58),
    L(111, kExtendedOption, 0x0A, 0x75),
    L(112, kExtendedOption, 0x65, 0x58),
    L(113, kExtendedOption, 0x05, 0x29),
    S(114, kSymbologySwitch, 0x16),
    S(115, kSymbologySwitch, 0x17),
    S(116, kSymbologySwitch, 0x18),
    S(117, kSymbologySwitch, 0x19),
    S(118, kSymbologySwitch, 0x1A),
    S(119, kSymbologySwitch, 0x1B),
    S(120, kSymbologySwitch, 0x1C),
    S(121, kSymbologySwitch, 0x1D),
    S(122, kSymbologySwitch, 0x11),
    S(123, kSymbologySwitch, 0x12),
    V(124, 0x40),
    P(125, 0x52),
    V(126, 0x55),
    S(127, kDeviceOption, 0x01),
    V(128, 0x56),
    S(129, kOutputOption, 0x06),
    S(130, kOutputOption, 0x0A),
    S(131, kDeviceOption, 0x03),
    L(132, kExtendedOption, 0x0A, 0x75),
    S(133, kOutputOption, 0x01),
    S(134, kOutputOption, 0x02),
    S(135, kOutputOption, 0x05),
    None(136, 0x48),
    V(137, 0x57),
    V(138, 0x59),
    V(139, 0x5A),
    None(140, 0x5C),
    V(141, 0x6F),
    V(142, 0x78),
    V(143, 0x7A),
    V(144, 0x7C),
    L(145, 0x2F, 0x07, 0x20),
    P(146, 0x45),
    H(148, 0x74),
    H(149, 0x74),
    V(150, 0x58),
};

consteval bool EveryRowStandsAtItsPlace() {
    for (size_t place = 0; place < kRows.size(); ++place) {
        const auto gap = static_cast<CommandId>(place) >= kMissingCommandId ? 1 : 0;
        if (kRows[place].id != static_cast<CommandId>(place) + gap) return false;
    }
    return kRows.back().id == kLastCommandId;
}
static_assert(EveryRowStandsAtItsPlace(), "FindCommand goes by place");

}  // namespace catalogue_rows

inline constexpr size_t kNoPlace = catalogue_rows::kRows.size();

// Where the setting's row stands; kNoPlace for an unknown id.
constexpr size_t PlaceInCatalogue(CommandId id) {
    if (id < 0 || id > kLastCommandId || id == kMissingCommandId) return kNoPlace;
    return static_cast<size_t>(id > kMissingCommandId ? id - 1 : id);
}

// The row of a setting named in the code. Doesn't compile for an unknown id.
consteval CommandRow CatalogueRow(CommandId id) {
    return catalogue_rows::kRows.at(PlaceInCatalogue(id));
}

}  // namespace quillet
