// SPDX-License-Identifier: MIT
// Setting codes: the bytes of each form, what is refused, and what becomes of the caller's buffer.
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <quillet/quillet.h>

#include "foundation/text.h"

namespace quillet::test {
namespace {

constexpr int32_t kUntouched = -7;

// What is written into a buffer that begins as all EE, and is of exactly the size told, so that a byte too far is seen.
// If the call fails or leaves more than zeros behind the length that it tells, all that there is to see.
template <typename Call>
std::string Written(int32_t bufferSize, Call call) {
    std::vector<uint8_t> buffer(static_cast<size_t>(bufferSize), 0xEE);
    int32_t length = kUntouched;
    const ResultCode result = call(buffer.data(), length);
    const std::string bytes(buffer.begin(), buffer.end());
    const auto end = static_cast<size_t>(length);
    if (result == ResultSuccess && bytes.find_first_not_of('\0', end) == std::string::npos) {
        return ToHexText(bytes.substr(0, end));
    }
    return std::to_string(result) + ", " + std::to_string(length) + ": " + ToHexText(bytes);
}

std::string SettingCode(int32_t id, const std::string& value, int32_t bufferSize = 12) {
    const std::string text = ParseHexText(value);
    const std::vector<uint8_t> bytes(text.begin(), text.end());  // no byte behind them that could be read in silence
    return Written(bufferSize, [&](uint8_t* buffer, int32_t& length) {
        return getBarCodeCmd(id, bytes.data(), bufferSize, buffer, &length);
    });
}

std::string SettingListCode(const std::string& text, int32_t bufferSize = 260) {
    return Written(bufferSize, [&](uint8_t* buffer, int32_t& length) {
        return getQRBarCodeCmd(text.c_str(), bufferSize, buffer, &length);
    });
}

const std::string kRefused = std::to_string(ResultBadArgument) + ", -7: EE EE EE EE";

TEST(SettingCodesTest, ASettingInEachForm) {
    const struct {
        int32_t id;
        const char* value;
        const char* code;
    } samples[] = {
        {0, "02", "04 41 04 00 02 B4"},         // value alone
        {150, "02", "04 58 04 00 02 9D"},       // behind the id that is missing
        {35, "01", "05 40 04 00 0B 01 AA"},     // one-byte number
        {81, "01", "05 40 04 00 15 01 A0"},     // no third byte, unlike the call
        {30, "02", "06 50 04 00 00 34 02 6F"},  // two-byte number that begins with 0
        {145, "01", "06 2F 04 00 07 20 01 9E"},
        {125, "41 42", "05 52 04 00 41 42 21"},  // two characters
        {125, "20 42", "05 52 04 00 7F 42 E3"},
        {146, "20 20", "05 45 04 00 7F 7F B3"},
        {148, "03 0D", "09 74 04 00 01 03 02 00 0D 03 68"},  // control character
        {149, "07 80", "09 74 04 00 02 07 02 FF 00 03 71"},
        {49, "FF", "06 50 04 00 00 28 FF 7E"},  // any value, and none is inverted
    };
    for (const auto& sample : samples) {
        EXPECT_EQ(SettingCode(sample.id, sample.value), sample.code) << sample.id;
    }
}

TEST(SettingCodesTest, SettingsWithoutACodeLeaveEverythingAsItWas) {
    for (const int32_t id : {93, 94, 136, 140, 147, 151, 255, 256 + 35, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(SettingCode(id, "01 01", 4), kRefused) << id;
    }
}

TEST(SettingCodesTest, ABufferTooSmallIsZeroedAndItsLengthKept) {
    const std::string zeroed = std::to_string(ResultReplyTooLong) + ", -7: 00 00 00 00 00 00 00";
    EXPECT_EQ(SettingCode(30, "02", 7), zeroed);
    EXPECT_EQ(SettingListCode("# \x01", 7), zeroed);
    EXPECT_EQ(SettingCode(30, "02", 8), "06 50 04 00 00 34 02 6F");

    uint8_t byte = 1;
    int32_t length = kUntouched;
    for (const int32_t size : {0, -1, INT32_MIN}) {
        EXPECT_EQ(getBarCodeCmd(35, &byte, size, &byte, &length), ResultReplyTooLong) << size;
        EXPECT_EQ(getQRBarCodeCmd("# \x01", size, &byte, &length), ResultReplyTooLong) << size;
    }
    EXPECT_EQ(byte, 1);
    EXPECT_EQ(length, kUntouched);
}

TEST(SettingCodesTest, NullPointersAreRefused) {
    uint8_t bytes[16] = {1};
    int32_t length = kUntouched;
    EXPECT_EQ(getBarCodeCmd(35, nullptr, 16, bytes, &length), ResultBadArgument);
    EXPECT_EQ(getBarCodeCmd(35, bytes, 16, nullptr, &length), ResultBadArgument);
    EXPECT_EQ(getBarCodeCmd(35, bytes, 16, bytes, nullptr), ResultBadArgument);
    EXPECT_EQ(getQRBarCodeCmd(nullptr, 16, bytes, &length), ResultBadArgument);
    EXPECT_EQ(getQRBarCodeCmd("# \x01", 16, nullptr, &length), ResultBadArgument);
    EXPECT_EQ(getQRBarCodeCmd("# \x01", 16, bytes, nullptr), ResultBadArgument);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(length, kUntouched);
}

TEST(SettingCodesTest, AListOfSettings) {
    const struct {
        std::string text;
        const char* code;
    } samples[] = {
        {"# \x01,$ \x01", "0C 5D 04 00 03 40 0B 01 04 50 00 30 01 BE"},
        {"# \x01", "07 5D 04 00 03 40 0B 01 48"},
        {"# ", "07 5D 04 00 03 40 0B 00 49"},     // nothing behind the space is 0
        {" \x02", "06 5D 04 00 02 41 02 53"},     // and so is nothing before it
        {"} A B", "07 5D 04 00 03 52 41 42 BF"},  // id 125
        {"} A ", "07 5D 04 00 03 52 41 00 01"},
        {"}x Ayz B more", "07 5D 04 00 03 52 41 42 BF"},  // first bytes count, further tokens don't
        {"\x0C \xFF", "07 5D 04 00 03 70 02 FF 23"},      // a value is any byte
    };
    for (const auto& sample : samples) {
        EXPECT_EQ(SettingListCode(sample.text), sample.code) << ToHexText(sample.text);
    }
}

TEST(SettingCodesTest, AListWithOneBadItemIsRefusedWhole) {
    const std::string refused[] = {
        "",
        ",",
        "#",
        "# \x01,",
        ",# \x01",
        "# \x01,,# \x01",
        "# \x01,] \x01,# \x01",  // id 93 has no command
        "\xA3 \x01",
        "\x95 \x01",  // ids from 0x80 up are negative, also 149
        "} A",        // the second character is missing
        "  ,,",
    };
    for (const std::string& text : refused) {
        EXPECT_EQ(SettingListCode(text, 4), kRefused) << ToHexText(text);
    }
}

TEST(SettingCodesTest, AListHasRoomFor252Bytes) {
    std::string text = "# \x01";
    for (int items = 1; items < 63; ++items) text += ",# \x01";
    const std::string full = SettingListCode(text);  // 63 items of 4 bytes
    EXPECT_EQ(full.substr(0, 27), "FF 5D 04 00 03 40 0B 01 03 ");
    EXPECT_EQ(ParseHexText(full).size(), 257u);

    EXPECT_EQ(SettingListCode(text + ", \x01", 4), kRefused);
    EXPECT_EQ(SettingListCode(std::string(100'000, ' ') + "," + text + text, 4), kRefused);
}

}  // namespace
}  // namespace quillet::test
