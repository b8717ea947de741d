// SPDX-License-Identifier: MIT
// docs/setting-codes.md against what the library does: its table names, for each setting, the bytes and the calls.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "api/fake_link.h"
#include "api/settings/setting_rows.h"
#include "foundation/text.h"
#include "protocol/catalogue.h"
#include "support/hex.h"

namespace quillet::test {
namespace {

struct DocumentedSetting {
    CommandId id;
    std::string form;
    std::string command;  // opcode and number, in hexadecimal
    std::vector<std::string> calls;
};

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<DocumentedSetting> DocumentedSettings() {
    std::vector<DocumentedSetting> settings;
    std::ifstream file(QUILLET_DOCUMENTATION "/setting-codes.md");
    for (std::string line; std::getline(file, line);) {
        const std::vector<std::string> cells = Split(line, '|');
        if (cells.size() != 7 || cells[1].find_first_of("0123456789") == std::string::npos) continue;
        DocumentedSetting setting{std::stoi(cells[1]), Trimmed(cells[2]), Trimmed(cells[3] + Trimmed(cells[4])), {}};
        for (const std::string& call : Split(ReplaceAll(cells[5], "`", " "), ',')) {
            if (!Trimmed(call).empty()) setting.calls.push_back(Trimmed(call));
        }
        settings.push_back(setting);
    }
    return settings;
}

// By name of the call, "opcode number" of what it sends, without its value.
std::map<std::string, std::string> CommandsOfCalls() {
    std::map<std::string, std::string> commands;
    RenewFakeLink();
    for (const TruthSetting& setting : TruthSettings()) {
        setting.call(SomeHandle(), 1);
        const std::string sent = TheFakeLink().TakeCommand();
        // The value is the last byte, but for a call that lets another follow.
        commands[setting.name] = sent.substr(0, sent.size() - (setting.call == setMSI ? 6 : 3));
    }
    for (const NumberSetting& setting : NumberSettings()) {
        for (const int32_t value : {0, 1, 500}) setting.call(SomeHandle(), value);
        const std::string sent = TheFakeLink().TakeCommands().at(0);
        commands[setting.name] = sent.substr(0, sent.size() - 3);
    }
    return commands;
}

TEST(SettingsDocumentationTest, TableAndCatalogueAgree) {
    const std::vector<DocumentedSetting> documented = DocumentedSettings();
    const auto catalogue = CommandCatalogue();
    ASSERT_EQ(documented.size(), catalogue.size());
    const std::map<std::string, CommandForm> forms{{"-", CommandForm::None}, {"V", CommandForm::V},
                                                   {"S", CommandForm::S},    {"L", CommandForm::L},
                                                   {"P", CommandForm::P},    {"H", CommandForm::H}};
    for (size_t i = 0; i < documented.size(); ++i) {
        const DocumentedSetting& setting = documented[i];
        EXPECT_EQ(catalogue[i].id, setting.id);
        EXPECT_EQ(FindCommand(setting.id), &catalogue[i]);
        EXPECT_EQ(catalogue[i].form, forms.at(setting.form)) << setting.id;
        EXPECT_EQ(Hex(std::string(1, static_cast<char>(catalogue[i].opcode)).append(catalogue[i].NumberBytes())),
                  setting.command)
            << setting.id;
    }
}

TEST(SettingsDocumentationTest, CallsSendTheSettingsTheyAreListedWith) {
    std::map<std::string, std::string> commands = CommandsOfCalls();
    std::set<std::string> computed{"setCodeDataPrefix", "setCodeDataSuffix", "setInsertCharacter",
                                   "setHIDLeadingControlCharacterForm", "setHIDPostControlCharacterForm"};
    std::set<std::string> listed;
    for (const DocumentedSetting& setting : DocumentedSettings()) {
        for (const std::string& call : setting.calls) {
            listed.insert(call);
            if (computed.count(call) != 0) continue;
            ASSERT_EQ(commands.count(call), 1u) << call;
            EXPECT_EQ(commands[call], setting.command) << call;
        }
    }
    std::set<std::string> unlisted;
    for (const auto& [name, command] : commands) {
        if (listed.count(name) == 0) unlisted.insert(name);
    }
    EXPECT_EQ(unlisted,
              (std::set<std::string>{"setGATTMode", "setHIDAutoStorageMode", "setHIDStorageMode", "setMicroQRCode"}));
}

}  // namespace
}  // namespace quillet::test
