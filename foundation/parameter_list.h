// SPDX-License-Identifier: MIT
// The connection string, "key=value,key=value", after parsing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillet {

struct ParameterEntry {
    std::string key;
    std::string value;
};

// An ordered list of pairs; keys may repeat, and every look-up acts on the first match. Compares byte by
// byte. No lock: one thread at a time.
class ParameterList {
  public:
    // Lower-cases the whole text (ASCII) and appends its pairs. Nothing is trimmed; a token that isn't
    // exactly "key=value" is logged and skipped.
    void Parse(std::string_view text);

    // A pair of two empty texts if there is none.
    ParameterEntry Find(std::string_view key) const;
    std::string GetString(std::string_view key, std::string_view defaultValue) const;
    // The longest prefix of the value that is a number in the classic locale. Throws StringError
    // "TypeConversion" if the key is there and its value doesn't begin with a number.
    double GetNumber(std::string_view key, double defaultValue) const;

    void Add(std::string key, std::string value);
    // Removes the first match, if any; always true.
    bool Remove(std::string_view key);
    void Clear();

  private:
    const ParameterEntry* FirstMatch(std::string_view key) const;

    std::vector<ParameterEntry> m_Entries;
};

}  // namespace quillet
