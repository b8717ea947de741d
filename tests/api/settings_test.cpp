// SPDX-License-Identifier: MIT
// Setting calls with a fake in place of the link that they end in: the bytes of a sample of each kind, what all of them
// must fulfil, and the table of docs/setting-codes.md.
#include <algorithm>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <quillet/quillet.h>

#include "api/handle_calls.h"
#include "api/settings/setting_rows.h"
#include "foundation/text.h"
#include "protocol/catalogue.h"
#include "protocol/packet.h"
#include "support/log_reader.h"

namespace quillet {
namespace {

struct FakeLink {
    std::vector<std::string> sent;                   // wire forms
    std::vector<ResultCode> results{ResultSuccess};  // of the sendings since the last look; the last one stays
} g_Link;

}  // namespace

// Takes a null handle too: the calls are to refuse it before.
int32_t SendOnHandle(void*, CommandPacket& packet) noexcept {
    g_Link.sent.push_back(ToWireBytes(packet));
    return g_Link.results[std::min(g_Link.sent.size(), g_Link.results.size()) - 1];
}

namespace test {
namespace {

// Length, source, status and checksum as a scanner checks them.
bool IsWhole(const std::string& wire) {
    const auto sum = std::accumulate(wire.begin(), wire.end(), 0u,
                                     [](unsigned total, char byte) { return total + static_cast<uint8_t>(byte); });
    return wire.size() == static_cast<uint8_t>(wire[0]) + 2u && ToHexText(wire.substr(2, 2)) == "04 00" &&
           (sum & 0xFF) == 0xFF;
}

// The packets since the last look, each as "opcode parameters" in hexadecimal.
std::string TakeSent() {
    std::string text;
    for (const std::string& wire : std::exchange(g_Link.sent, {})) {
        if (!text.empty()) text += ", ";
        text += IsWhole(wire) ? ToHexText(wire.substr(1, 1) + wire.substr(4, wire.size() - 5))
                              : "broken: " + ToHexText(wire);
    }
    return text;
}

class SettingsTest : public testing::Test {
  protected:
    SettingsTest() { g_Link = {}; }

    const ScannerHandle m_Handle = &g_Link;  // any but null will do
};

TEST_F(SettingsTest, TruthValuesAreOneByte) {
    const std::set<std::string> inverted{"setConvertEAN_8ToEAN_13", "setUPC_ACheckBit", "setUPC_ECheckBit"};
    for (const TruthSetting& setting : TruthSettings()) {
        SCOPED_TRACE(setting.name);
        const std::string behind = setting.call == setMSI ? " 00" : "";
        std::string off = " 00" + behind;
        std::string on = " 01" + behind;
        if (inverted.contains(setting.name)) off.swap(on);

        EXPECT_EQ(setting.call(nullptr, 1), ResultBadArgument);
        g_Link.results = {ResultSuccess};
        EXPECT_EQ(setting.call(m_Handle, 0), ResultSuccess);
        const std::string sent = TakeSent();
        EXPECT_TRUE(sent.ends_with(off)) << sent;
        g_Link.results = {ResultNoExist};
        EXPECT_EQ(setting.call(m_Handle, 0x80), ResultNoExist);
        EXPECT_EQ(TakeSent(), sent.substr(0, sent.size() - off.size()) + on);
    }
    // The low byte decides, of whatever a caller passes.
    for (const auto& [wide, expected] : {std::pair{256, "40 0B 00"}, {2, "40 0B 01"}, {-1, "40 0B 01"}}) {
        std::invoke(setCode39, m_Handle, wide);
        EXPECT_EQ(TakeSent(), expected) << wide;
    }
}

TEST_F(SettingsTest, NumbersAndTheirLimits) {
    const struct {
        ResultCode (*call)(ScannerHandle, int32_t);
        std::vector<std::pair<int32_t, const char*>> sent;
        std::vector<int32_t> refused;
    } samples[] = {
        {setBuzzerEnable, {{0, "4D 00"}, {3, "4D 03"}}, {-1, 4}},
        {setBuzzerTone, {{1, "6A 01"}, {2, "6A 02"}, {4, "6A 04"}}, {0, 3, 5}},
        {setBuzzerVolume, {{4, "6B 04"}}, {0, 3}},
        {setControlCharacterOutput, {{0, "6C 00"}, {2, "6C 02"}}, {1, 3}},
        {setSighting, {{0, "46 00"}, {1, "46 01"}, {3, "46 02"}}, {2, 4}},
        {setHostMode, {{1, "41 01"}, {5, "41 05"}}, {0, 6}},
        {setISBNFormat, {{1, "40 04 40 01"}}, {2}},
        {setCompositeCode, {{3, "40 03"}}, {4}},
        {setLEDColor, {{3, "70 05 03"}}, {4}},
        {setInterleaved2Of5CheckBit, {{2, "50 00 31 02"}}, {3}},
        {setRS232BaudRate, {{0, "48 00"}, {6, "48 06"}}, {-1, 7}},
        {setDecodeTimeOut, {{500, "44 05"}, {1234, "44 0C"}, {9900, "44 63"}}, {499, 9901, 9999}},
        {setMultiTimeOut, {{0, "4F 00"}, {99, "4F 00"}, {9900, "4F 63"}}, {-1, 9901}},
        {setOutputCharacterDelayTime, {{0, "4E FF"}, {1, "4E 00"}, {256, "4E FF"}}, {-1, 257}},
        {setScanMulti, {{0, "4B 00"}, {2, "4B 02"}, {7, "4B 07"}}, {1, 8}},
        {setMultiSensitivity, {{1, "4B 00"}, {9, "4B 08"}}, {0, 10}},
        {setNationalKeyboardLayout, {{1, "54 01"}, {99, "54 63"}}, {0, 100}},
        {setITFCropBits, {{0, "55 00"}, {50, "55 32"}}, {-1, 51}},
        {setLEDLevel, {{10, "47 0A"}}, {-1, 11}},
        {setReactionSensitivity, {{255, "65 FF"}}, {-1, 256}},
        {setSkipBarcodeHeadData, {{49, "59 31"}}, {-1, 50}},
        {setSkipBarcodeTailData, {{49, "5A 31"}}, {-1, 50}},
        {setCodeDataEndSuffix, {{0, "45 0A 00"}, {1, "45 0D 00"}, {2, "45 09 00"}, {3, "45 0A 0D"}}, {-1, 4}},
    };
    for (const auto& sample : samples) {
        for (const auto& [value, expected] : sample.sent) {
            EXPECT_EQ(sample.call(m_Handle, value), ResultSuccess) << expected;
            EXPECT_EQ(TakeSent(), expected);
        }
        for (const int32_t value : sample.refused) {
            EXPECT_EQ(sample.call(m_Handle, value), ResultBadArgument) << sample.sent[0].second << ": " << value;
            EXPECT_EQ(TakeSent(), "") << value;
        }
    }
}

TEST_F(SettingsTest, CallsOfSeveralArguments) {
    const struct {
        ResultCode (*call)(ScannerHandle);
        const char* sent;
        ResultCode withoutALink = ResultNoExist;
    } samples[] = {
        {[](auto handle) { return setGetSpecifiedRangeBarcodeData(handle, 0, 255); }, "75 00 FF"},
        {[](auto handle) { return setCodeDataPrefix(handle, ' ', 'A'); }, "52 7F 41"},
        {[](auto handle) { return setCodeDataSuffix(handle, 0xFF, ' '); }, "45 FF 7F"},
        {[](auto handle) { return setCodeDataEndSuffix(handle, 0); }, "45 0A 00"},
        {[](auto handle) { return setAnyCharacterReplacement(handle, 'a', 'b', ' ', 'd'); }, "76 0B 61, 76 0C 62"},
        {[](auto handle) { return setInsertCharacter(handle, 'A', 3); }, "5C 00 21 21 03"},
        {[](auto handle) { return setInsertCharacter(handle, -1, 255); }, "5C 00 20 1F FF"},
        {[](auto handle) { return setInsertCharacter(handle, -128, 0); }, "5C 00 1E 20 00"},
        {[](auto handle) { return setHIDLeadingControlCharacterForm(handle, 3, 13); }, "74 01 03 02 00 0D 03", 0},
        {[](auto handle) { return setHIDPostControlCharacterForm(handle, 3, 13); }, "74 02 03 02 00 0D 03", 0},
        {[](auto handle) { return setHIDLeadingControlCharacterForm(handle, 0, 127); }, "74 01 00 02 00 7F 03", 0},
        {[](auto handle) { return setHIDPostControlCharacterForm(handle, 7, -1); }, "74 02 07 02 00 FF 03", 0},
        {[](auto handle) { return setHIDPostControlCharacterForm(handle, 7, -128); }, "74 02 07 02 FF 00 03", 0},
    };
    for (const auto& sample : samples) {
        SCOPED_TRACE(sample.sent);
        EXPECT_EQ(sample.call(nullptr), ResultBadArgument);
        g_Link.results = {ResultSuccess};
        EXPECT_EQ(sample.call(m_Handle), ResultSuccess);
        EXPECT_EQ(TakeSent(), sample.sent);
        g_Link.results = {ResultNoExist};
        EXPECT_EQ(sample.call(m_Handle), sample.withoutALink);
        EXPECT_EQ(TakeSent(), sample.sent);
    }
    for (const int32_t wrong : {-1, 256, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(setGetSpecifiedRangeBarcodeData(m_Handle, wrong, 0), ResultBadArgument);
        EXPECT_EQ(setGetSpecifiedRangeBarcodeData(m_Handle, 0, wrong), ResultBadArgument);
        EXPECT_EQ(setHIDLeadingControlCharacterForm(m_Handle, wrong, 13), ResultBadArgument);
    }
    EXPECT_EQ(setHIDPostControlCharacterForm(m_Handle, 8, 13), ResultBadArgument);
    EXPECT_EQ(TakeSent(), "");
}

TEST_F(SettingsTest, ReplacementStopsAtASpaceAndGoesOnAfterAFailure) {
    g_Link.results = {ResultNoExist, ResultSuccess};
    EXPECT_EQ(setAnyCharacterReplacement(m_Handle, ' ', 'b', ' ', 'd'), ResultSuccess);
    EXPECT_EQ(TakeSent(), "76 0B 20, 76 0C 62");

    g_Link.results = {ResultSuccess, ResultNoExist, ResultSuccess, ResultNoExist};
    EXPECT_EQ(setAnyCharacterReplacement(m_Handle, 'a', 'b', 'c', ' '), ResultNoExist);
    EXPECT_EQ(TakeSent(), "76 0B 61, 76 0C 62, 76 0D 63, 76 0E 20");
}

TEST_F(SettingsTest, EveryNumberIsEitherSentInOnePacketOrRefused) {
    std::vector<int32_t> values{INT32_MIN, INT32_MIN + 1, -256, INT32_MAX, 65536, 1 << 24};
    for (int32_t value = -300; value <= 10'000; ++value) values.push_back(value);

    for (const NumberSetting& setting : NumberSettings()) {
        const ResultCode withoutALink = setting.call == setRS232BaudRate ? ResultSuccess : ResultNoExist;
        size_t accepted = 0;
        std::string command;
        for (const int32_t value : values) {
            SCOPED_TRACE(std::string(setting.name) + ' ' + std::to_string(value));
            ASSERT_EQ(setting.call(nullptr, value), ResultBadArgument);
            g_Link.results = {ResultSuccess};
            const ResultCode result = setting.call(m_Handle, value);
            ASSERT_EQ(g_Link.sent.size(), result == ResultSuccess ? 1u : 0u);
            if (result != ResultSuccess) {
                ASSERT_EQ(result, ResultBadArgument);
                continue;
            }
            ASSERT_GE(value, 0);
            const std::string sent = TakeSent();
            // Only the value, the last parameter, may differ between two packets of a call.
            if (command.empty()) command = sent.substr(0, sent.size() - 2);
            ASSERT_EQ(sent, command + sent.substr(sent.size() - 2));
            g_Link.results = {ResultNoExist};
            ASSERT_EQ(setting.call(m_Handle, value), withoutALink);
            ASSERT_EQ(TakeSent(), sent);
            ++accepted;
        }
        EXPECT_GE(accepted, 2u) << setting.name;
    }
}

// The table of the page; a difference is printed by lines, to be put there or to be mended here.
TEST_F(SettingsTest, ThePageListsEachSettingWithItsCalls) {
    using Commands = std::map<std::string, std::string>;  // by name of the call, "opcode number" of what it sends
    std::vector<std::pair<std::string, std::string>> calls;
    for (const TruthSetting& setting : TruthSettings()) {
        setting.call(m_Handle, 1);
        const std::string sent = TakeSent();
        calls.emplace_back(setting.name, sent.substr(0, sent.size() - (setting.call == setMSI ? 6 : 3)));
    }
    for (const NumberSetting& setting : NumberSettings()) {
        for (const int32_t value : {0, 1, 500}) setting.call(m_Handle, value);
        const std::string sent = Split(TakeSent(), ',').at(0);
        calls.emplace_back(setting.name, sent.substr(0, sent.size() - 3));
    }
    // By their bytes these would be listed with the call of another setting too, or with none.
    const std::map<CommandId, std::string> named{{111, "setOCRPassportTranslate"},
                                                 {125, "setCodeDataPrefix"},
                                                 {132, "setReadOnlyNumericBarcodes"},
                                                 {140, "setInsertCharacter"},
                                                 {146, "setCodeDataSuffix"},
                                                 {148, "setHIDLeadingControlCharacterForm"},
                                                 {149, "setHIDPostControlCharacterForm"}};
    const auto cell = [](const std::string& text) { return text.empty() ? " |" : " " + text + " |"; };

    Commands unlisted(calls.begin(), calls.end());
    std::string table;
    for (const CommandRow& row : CommandCatalogue()) {
        EXPECT_EQ(FindCommand(row.id), &row);
        const std::string opcode = ToHexText({reinterpret_cast<const char*>(&row.opcode), 1});
        const std::string number = ToHexText(row.NumberBytes());
        const std::string sent = opcode + (number.empty() ? "" : " " + number);
        std::string names = named.contains(row.id) ? "`" + named.at(row.id) + "`" : "";
        for (const auto& [name, command] : calls) {
            if (row.form == CommandForm::None || named.contains(row.id) || command != sent) continue;
            names.append(names.empty() ? "`" : ", `").append(name).append("`");
            unlisted.erase(name);
        }
        const std::string form(1, "-VSLPH"[static_cast<size_t>(row.form)]);
        table += "|" + cell(std::to_string(row.id)) + cell(form) + cell(opcode) + cell(number) + cell(names) + "\n";
    }
    const std::string page = ReadFile(QUILLET_DOCUMENTATION "/setting-codes.md");
    EXPECT_EQ(page.substr(page.find("| 0 |")), table);
    EXPECT_EQ(unlisted, (Commands{{"setGATTMode", "71"},
                                  {"setHIDAutoStorageMode", "70 06"},
                                  {"setHIDStorageMode", "66"},
                                  {"setMicroQRCode", "40 29"},
                                  {"setOCRPassportTranslate", "50 0A 75"},
                                  {"setReadOnlyNumericBarcodes", "50 0A 75"}}));
}

}  // namespace
}  // namespace test
}  // namespace quillet
