// SPDX-License-Identifier: MIT
// The settings that a scanner keeps.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace quillet::tools {

// What names a setting: the opcode that sets it and its number, which may be empty.
struct SettingKey {
    uint8_t opcode = 0;
    std::string number;
    auto operator<=>(const SettingKey&) const = default;
};

struct SettingChange {
    SettingKey key;
    std::string value;
};

// True for the opcodes that change a setting, as against asking for something.
bool IsSettingOpcode(uint8_t opcode);
// Parts a setting command's parameters, which bear no mark between number and value.
SettingChange ParseSetting(uint8_t opcode, std::string_view parameters);

// Not thread-safe.
class SettingStore {
  public:
    void Set(const SettingKey& key, std::string value) { m_Values[key] = std::move(value); }
    // A setting that was never set has the value 00, its factory setting as far as anybody knows.
    std::string Get(const SettingKey& key) const;
    const std::map<SettingKey, std::string>& All() const { return m_Values; }

  private:
    std::map<SettingKey, std::string> m_Values;
};

}  // namespace quillet::tools
