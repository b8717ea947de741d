// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/settings.h"

#include <algorithm>

#include "protocol/catalogue.h"
#include "protocol/packet.h"

namespace quillet::tools {
namespace {

// Size of the longest number of the catalogue that the parameters begin with and that leaves a value; 0 if
// there is none.
size_t KnownNumberSize(uint8_t opcode, std::string_view parameters) {
    size_t best = 0;
    for (const CommandRow& row : CommandCatalogue()) {
        const std::string_view number = row.NumberBytes();
        const bool fits = number.size() < parameters.size() && parameters.starts_with(number);
        if (row.opcode == opcode && fits) best = std::max(best, number.size());
    }
    return best;
}

// Some settings have a command and no row. Their number is as long as those of their opcode's other settings.
size_t UsualNumberSize(uint8_t opcode, std::string_view parameters) {
    for (const CommandRow& row : CommandCatalogue()) {
        if (row.opcode == opcode && row.numberSize > 0 && row.numberSize + 1U == parameters.size()) {
            return row.numberSize;
        }
    }
    return 0;
}

}  // namespace

bool IsSettingOpcode(uint8_t opcode) {
    switch (opcode) {
        case OpcodeSettingList:
        case OpcodeVersion:
        case OpcodeQuerySetting:
        case OpcodeStatisticsD0:
        case OpcodeReplyD8:
        case OpcodeQueryReply:
        case OpcodeBarcode: return false;
        default: return true;
    }
}

SettingChange ParseSetting(uint8_t opcode, std::string_view parameters) {
    size_t size = KnownNumberSize(opcode, parameters);
    if (size == 0) size = UsualNumberSize(opcode, parameters);
    return {{opcode, std::string(parameters.substr(0, size))}, std::string(parameters.substr(size))};
}

std::string SettingStore::Get(const SettingKey& key) const {
    const auto found = m_Values.find(key);
    return found == m_Values.end() ? std::string(1, '\0') : found->second;
}

}  // namespace quillet::tools
