// SPDX-License-Identifier: MIT
// Setting calls against a fake link: the bytes of a sample of each kind, and what all of them must fulfil.
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <vector>

#include <quillet/quillet.h>

#include "api/fake_link.h"
#include "api/settings/setting_rows.h"
#include "protocol/packet.h"
#include "support/hex.h"

namespace quillet::test {
namespace {

class SettingsTest : public testing::Test {
  protected:
    SettingsTest() { RenewFakeLink(); }

    FakeLink& m_Link = TheFakeLink();
    const ScannerHandle m_Handle = SomeHandle();
};

TEST_F(SettingsTest, TruthValues) {
    const struct {
        ResultCode (*call)(ScannerHandle, uint8_t);
        const char* off;
        const char* on;
    } samples[] = {
        {setAimAtPrasing, "53 00", "53 01"},
        {setMSI, "40 15 00 00", "40 15 01 00"},
        {setConvertEAN_8ToEAN_13, "40 2E 01", "40 2E 00"},
        {setUPC_ACheckBit, "50 00 28 01", "50 00 28 00"},
        {setUPC_ECheckBit, "50 00 29 01", "50 00 29 00"},
        {setGATTMode, "71 00", "71 01"},
        {setHIDAutoStorageMode, "70 06 00", "70 06 01"},
        {setHIDStorageMode, "66 00", "66 01"},
        {setMicroQRCode, "40 29 00", "40 29 01"},
    };
    for (const auto& sample : samples) {
        EXPECT_EQ(sample.call(m_Handle, 0), ResultSuccess);
        EXPECT_EQ(m_Link.TakeCommand(), sample.off);
        EXPECT_EQ(sample.call(m_Handle, 1), ResultSuccess);
        EXPECT_EQ(m_Link.TakeCommand(), sample.on);
    }
    // The low byte decides, of whatever a caller passes.
    for (const auto& [wide, expected] : {std::pair{256, "40 0B 00"}, {2, "40 0B 01"}, {-1, "40 0B 01"}}) {
        std::invoke(setCode39, m_Handle, wide);
        EXPECT_EQ(m_Link.TakeCommand(), expected) << wide;
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
            EXPECT_EQ(m_Link.TakeCommand(), expected);
        }
        for (const int32_t value : sample.refused) {
            EXPECT_EQ(sample.call(m_Handle, value), ResultBadArgument) << sample.sent[0].second << ": " << value;
            EXPECT_EQ(m_Link.TakeCommand(), "nothing") << value;
        }
    }
}

TEST_F(SettingsTest, CallsOfSeveralArguments) {
    const struct {
        ResultCode result;
        const char* sent;
    } samples[] = {
        {setGetSpecifiedRangeBarcodeData(m_Handle, 0, 255), "75 00 FF"},
        {setCodeDataPrefix(m_Handle, ' ', 'A'), "52 7F 41"},
        {setCodeDataSuffix(m_Handle, 0xFF, ' '), "45 FF 7F"},
        {setInsertCharacter(m_Handle, 'A', 3), "5C 00 21 21 03"},
        {setInsertCharacter(m_Handle, -1, 255), "5C 00 20 1F FF"},
        {setInsertCharacter(m_Handle, -128, 0), "5C 00 1E 20 00"},
        {setHIDLeadingControlCharacterForm(m_Handle, 3, 13), "74 01 03 02 00 0D 03"},
        {setHIDPostControlCharacterForm(m_Handle, 3, 13), "74 02 03 02 00 0D 03"},
        {setHIDLeadingControlCharacterForm(m_Handle, 0, 127), "74 01 00 02 00 7F 03"},
        {setHIDPostControlCharacterForm(m_Handle, 7, -1), "74 02 07 02 00 FF 03"},
        {setHIDPostControlCharacterForm(m_Handle, 7, -128), "74 02 07 02 FF 00 03"},
    };
    const std::vector<std::string> sent = m_Link.TakeCommands();
    ASSERT_EQ(sent.size(), std::size(samples));
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(samples[i].result, ResultSuccess) << samples[i].sent;
        EXPECT_EQ(sent[i], samples[i].sent);
    }

    for (const int32_t wrong : {-1, 256, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(setGetSpecifiedRangeBarcodeData(m_Handle, wrong, 0), ResultBadArgument);
        EXPECT_EQ(setGetSpecifiedRangeBarcodeData(m_Handle, 0, wrong), ResultBadArgument);
        EXPECT_EQ(setHIDLeadingControlCharacterForm(m_Handle, wrong, 13), ResultBadArgument);
    }
    EXPECT_EQ(setHIDPostControlCharacterForm(m_Handle, 8, 13), ResultBadArgument);
    EXPECT_EQ(m_Link.TakeCommand(), "nothing");
}

TEST_F(SettingsTest, ReplacementStopsAtASpaceAndGoesOnAfterAFailure) {
    using Commands = std::vector<std::string>;
    m_Link.results = {ResultNoExist, ResultSuccess};
    EXPECT_EQ(setAnyCharacterReplacement(m_Handle, ' ', 'b', ' ', 'd'), ResultSuccess);
    EXPECT_EQ(m_Link.TakeCommands(), (Commands{"76 0B 20", "76 0C 62"}));

    m_Link.results = {ResultSuccess, ResultNoExist, ResultSuccess, ResultNoExist};
    EXPECT_EQ(setAnyCharacterReplacement(m_Handle, 'a', 'b', 'c', ' '), ResultNoExist);
    ASSERT_EQ(m_Link.sent.size(), 4u);
    EXPECT_EQ(Hex(m_Link.sent[3]), "05 76 04 00 0E 20 52");  // a checksum of its own
    EXPECT_EQ(m_Link.TakeCommands(), (Commands{"76 0B 61", "76 0C 62", "76 0D 63", "76 0E 20"}));
}

TEST_F(SettingsTest, ANullHandleSendsNothing) {
    for (const TruthSetting& setting : TruthSettings()) {
        EXPECT_EQ(setting.call(nullptr, 1), ResultBadArgument) << setting.name;
    }
    for (const NumberSetting& setting : NumberSettings()) {
        for (int32_t value = 0; value <= 1000; ++value) {
            ASSERT_EQ(setting.call(nullptr, value), ResultBadArgument) << setting.name << ' ' << value;
        }
    }
    EXPECT_EQ(setGetSpecifiedRangeBarcodeData(nullptr, 0, 0), ResultBadArgument);
    EXPECT_EQ(setCodeDataPrefix(nullptr, 'a', 'b'), ResultBadArgument);
    EXPECT_EQ(setCodeDataSuffix(nullptr, 'a', 'b'), ResultBadArgument);
    EXPECT_EQ(setCodeDataEndSuffix(nullptr, 0), ResultBadArgument);
    EXPECT_EQ(setAnyCharacterReplacement(nullptr, 'a', 'b', 'c', 'd'), ResultBadArgument);
    EXPECT_EQ(setInsertCharacter(nullptr, 'A', 0), ResultBadArgument);
    EXPECT_EQ(setHIDLeadingControlCharacterForm(nullptr, 0, 'A'), ResultBadArgument);
    EXPECT_EQ(setHIDPostControlCharacterForm(nullptr, 0, 'A'), ResultBadArgument);
    EXPECT_TRUE(m_Link.sent.empty());
}

TEST_F(SettingsTest, WithoutALinkThreeCallsGive0AndTheOthersTellIt) {
    m_Link.lastResult = ResultNoExist;
    for (const TruthSetting& setting : TruthSettings()) {
        EXPECT_EQ(setting.call(m_Handle, 1), ResultNoExist) << setting.name;
    }
    for (const NumberSetting& setting : NumberSettings()) {
        const bool tells = setting.call != setRS232BaudRate;
        const int32_t accepted = setting.call == setDecodeTimeOut ? 500 : setting.call == setScanMulti ? 2 : 1;
        const int32_t value = setting.call == setControlCharacterOutput ? 0 : accepted;
        EXPECT_EQ(setting.call(m_Handle, value), tells ? ResultNoExist : ResultSuccess) << setting.name;
    }
    EXPECT_EQ(setHIDLeadingControlCharacterForm(m_Handle, 0, 'A'), ResultSuccess);
    EXPECT_EQ(setHIDPostControlCharacterForm(m_Handle, 0, 'A'), ResultSuccess);
    EXPECT_EQ(setCodeDataPrefix(m_Handle, 'a', 'b'), ResultNoExist);
    EXPECT_EQ(setInsertCharacter(m_Handle, 'A', 0), ResultNoExist);
}

// Length and checksum as a scanner checks them.
bool IsWhole(const std::string& wire) {
    const auto sum = std::accumulate(wire.begin(), wire.end(), 0u,
                                     [](unsigned total, char byte) { return total + static_cast<uint8_t>(byte); });
    return wire.size() == static_cast<uint8_t>(wire[0]) + 2u && (sum & 0xFF) == 0xFF;
}

TEST_F(SettingsTest, EveryNumberIsEitherSentInOnePacketOrRefused) {
    std::vector<int32_t> values{INT32_MIN, INT32_MIN + 1, -256, INT32_MAX, 65536, 1 << 24};
    for (int32_t value = -300; value <= 10'000; ++value) values.push_back(value);

    for (const NumberSetting& setting : NumberSettings()) {
        size_t accepted = 0;
        std::string first;
        for (const int32_t value : values) {
            SCOPED_TRACE(std::string(setting.name) + ' ' + std::to_string(value));
            const ResultCode result = setting.call(m_Handle, value);
            if (result != ResultSuccess) {
                ASSERT_EQ(result, ResultBadArgument);
                ASSERT_TRUE(m_Link.sent.empty());
                continue;
            }
            ASSERT_EQ(m_Link.sent.size(), 1u);
            const std::string wire = m_Link.sent[0];
            m_Link.sent.clear();
            ASSERT_TRUE(IsWhole(wire)) << Hex(wire);
            ASSERT_GE(value, 0);
            if (first.empty()) first = wire;
            // Only the value, the last parameter, may differ between two packets of a call.
            ASSERT_EQ(wire.substr(0, wire.size() - 2), first.substr(0, first.size() - 2));
            ++accepted;
        }
        EXPECT_GE(accepted, 2u) << setting.name;
    }
}

TEST_F(SettingsTest, OnAndOffDifferInOneByteOfAWholePacket) {
    for (const TruthSetting& setting : TruthSettings()) {
        setting.call(m_Handle, 0);
        setting.call(m_Handle, 0x80);
        ASSERT_EQ(m_Link.sent.size(), 2u) << setting.name;
        const std::string& off = m_Link.sent[0];
        const std::string& on = m_Link.sent[1];
        EXPECT_TRUE(IsWhole(off) && IsWhole(on)) << setting.name;
        ASSERT_EQ(off.size(), on.size()) << setting.name;
        size_t different = 0;
        for (size_t i = 0; i + 1 < off.size(); ++i) {
            if (off[i] == on[i]) continue;
            ++different;
            EXPECT_EQ(off[i] ^ on[i], 1) << setting.name;
        }
        EXPECT_EQ(different, 1u) << setting.name;
        m_Link.sent.clear();
    }
}

}  // namespace
}  // namespace quillet::test
