// SPDX-License-Identifier: MIT
// The service's state by numbered properties.
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/log.h"
#include "service/property.h"
#include "service/scanner.h"

namespace quillet {
namespace {

constexpr std::string_view kUnknownLabel = "\t Unknown";

// Version 1.9.3 in the device model's way of writing one.
constexpr int32_t kServiceObjectVersion = 1009003;

// Modes of BinaryConversion with the number 0x800, a mode of other device classes.
constexpr uint32_t kAllBinaryModes = StatusBinaryNone | StatusBinaryNibble | StatusBinaryDecimal | 0x800;

}  // namespace

// All that the properties differ in, a row each.
struct CScanner::Properties {
    // What a read does to the stored result of the last operation.
    enum AfterRead { ClearsResult, KeepsResult };

    struct Row {
        int32_t number;
        std::string_view label;  // as the log shows it
        AfterRead afterRead = ClearsResult;
        bool (*read)(CScanner&, int32_t& value) = nullptr;  // false: can't be read now, value left as it was
        ResultCode (*write)(CScanner&, int32_t value) = nullptr;
        std::string (*readText)(CScanner&) = nullptr;
    };
    static const Row kRows[];

    // Null for a number that is no property's.
    static const Row* Find(int32_t number);
    static std::string_view LabelOf(const Row* row) { return row != nullptr ? row->label : kUnknownLabel; }

    template <StatusBit bit>
    static bool ReadBit(CScanner& scanner, int32_t& value) {
        value = scanner.m_Status.Has(bit);
        return true;
    }
    template <int32_t constant>
    static bool ReadConstant(CScanner&, int32_t& value) {
        value = constant;
        return true;
    }
    // A word that several threads change, read without a lock: the state must be there to ask for at any time.
    template <auto word>
    static bool ReadWord(CScanner& scanner, int32_t& value) {
        value = static_cast<int32_t>((scanner.*word).load());
        return true;
    }
    static bool ReadDeviceEnabled(CScanner& scanner, int32_t& value) {
        if (scanner.m_Status.Has(StatusClaimed)) return ReadBit<StatusEnabled>(scanner, value);
        LogWarning("Cannot check the device enabled property before it has been claimed.");
        return false;
    }
    static bool ReadBinaryConversion(CScanner& scanner, int32_t& value) {
        value = scanner.m_Status.Has(StatusBinaryNibble) ? 1 : scanner.m_Status.Has(StatusBinaryDecimal) ? 2 : 0;
        return true;
    }
    static bool ReadCount(CScanner& scanner, int32_t& value) {
        value = static_cast<int32_t>(scanner.m_Cache.Count());
        return true;
    }
    static bool TakeType(CScanner& scanner, int32_t& value) {
        value = scanner.m_Cache.PopType();
        return true;
    }

    static ResultCode WriteDataEventEnabled(CScanner& scanner, int32_t value) {
        scanner.DataEventEnable(value != 0);
        const bool frozen = scanner.m_Status.Has(StatusFreezeEvents | StatusCOFreeze);
        // The bit is stored all the same; a barcode that came in between isn't a failure either.
        return value != 0 && frozen ? ResultFailure : ResultSuccess;
    }
    static ResultCode WriteDeviceEnabled(CScanner& scanner, int32_t value) {
        if (scanner.m_Status.Has(StatusClaimed)) return scanner.DeviceEnable(value != 0);
        LogWarning("The device must be claimed before it can be enabled.");
        return ResultNotClaimed;
    }
    static ResultCode WriteFreezeEvents(CScanner& scanner, int32_t value) {
        const bool flag = value != 0;
        scanner.m_Status.Put(StatusFreezeEvents, flag);
        scanner.m_EventQueue.SetFreeze(flag);
        scanner.OnFreezeEvents();
        return !flag && scanner.m_Status.Has(StatusFreezeEvents | StatusCOFreeze) ? ResultFailure : ResultSuccess;
    }
    static ResultCode WriteAutoDisable(CScanner& scanner, int32_t value) {
        scanner.m_Status.Put(StatusAutoDisable, value != 0);
        return ResultSuccess;
    }
    // A value that names no mode clears all of them: texts are coded as decimal then, and reads of the property give 0.
    static ResultCode WriteBinaryConversion(CScanner& scanner, int32_t value) {
        constexpr uint32_t kModes[] = {StatusBinaryNone, StatusBinaryNibble, StatusBinaryDecimal};
        scanner.m_Status.Clear(kAllBinaryModes);
        if (value >= 0 && value <= 2) scanner.m_Status.Set(kModes[value]);
        return ResultSuccess;
    }
    static ResultCode WritePowerNotify(CScanner& scanner, int32_t value) {
        if (scanner.m_Status.Has(StatusEnabled)) return ResultIllegal;
        scanner.m_PowerNotify = static_cast<uint32_t>(value);
        return ResultSuccess;
    }
    static ResultCode WriteDecodeData(CScanner& scanner, int32_t value) {
        if (!scanner.m_Status.Has(StatusEnabled)) {
            LogWarning("The device must be enable before it can be enabled.");
            return ResultDisabled;
        }
        scanner.m_Status.Put(StatusDecodeData, value != 0);
        scanner.EnableDeocdeData(value != 0);
        return ResultSuccess;
    }

    template <auto text>
    static std::string ReadOwnText(CScanner& scanner) {
        std::lock_guard lock(scanner.m_TextMutex);
        return scanner.*text;
    }
    static std::string ReadServiceName(CScanner&) { return "Tovra Quillet."; }
    static std::string TakeText(CScanner& scanner) { return ShownText(scanner.m_Cache.PopText()); }
    static std::string TakeLabel(CScanner& scanner) {
        std::string label = scanner.m_Cache.PopLabel();
        LogDebug("out ScanDataLabel :", label);
        return label;
    }
    static std::string ShownText(std::string text) {
        LogInfo("out ScanData :", text);
        return text;
    }
};

const CScanner::Properties::Row CScanner::Properties::kRows[] = {
    {PropClaimed, "\t Claimed", ClearsResult, ReadBit<StatusClaimed>},
    {PropDataEventEnabled, "\t DataEventEnabled", ClearsResult, ReadBit<StatusDataEventEnabled>, WriteDataEventEnabled},
    {PropDeviceEnabled, "\t DeviceEnabled", ClearsResult, ReadDeviceEnabled, WriteDeviceEnabled},
    {PropFreezeEvents, "\t FreezeEvents", ClearsResult, ReadBit<StatusFreezeEvents>, WriteFreezeEvents},
    {PropResultCode, "\t ResultCode", KeepsResult, ReadWord<&CScanner::m_ResultCode>},
    {PropResultCodeExtended, "\t ResultCodeExtended", KeepsResult, ReadConstant<0>},  // no operation sets one
    {PropServiceObjectVersion, "\t ServiceObjectVersion", ClearsResult, ReadConstant<kServiceObjectVersion>},
    {PropState, "\t State", KeepsResult, ReadWord<&CScanner::m_State>},
    {PropAutoDisable, "\t AutoDisable", ClearsResult, ReadBit<StatusAutoDisable>, WriteAutoDisable},
    {PropBinaryConversion, "\t BinaryConversion", ClearsResult, ReadBinaryConversion, WriteBinaryConversion},
    {PropDataCount, "\t DataCount", KeepsResult, ReadCount},
    {PropPowerNotify, "\t PowerNotify", ClearsResult, ReadWord<&CScanner::m_PowerNotify>, WritePowerNotify},
    {PropPowerState, "\t PowerState", KeepsResult, ReadWord<&CScanner::m_PowerState>},
    {PropCapPowerReporting, "\t CapPowerReporting", ClearsResult, ReadConstant<1>},
    {PropCapStatisticsReporting, "\t CapStatisticsReporting", ClearsResult, ReadConstant<1>},
    {PropCapUpdateStatistics, "\t CapUpdateStatistics", ClearsResult, ReadConstant<0>},
    {PropScanDecodeData, "\t Scan_DecodeData", ClearsResult, ReadBit<StatusDecodeData>, WriteDecodeData},
    {PropScanDataType, "\t Scan_ScanDataType", ClearsResult, TakeType},
    {PropCacheCount, kUnknownLabel, KeepsResult, ReadCount},
    {.number = PropCheckHealthText,
     .label = "\t CheckHealthText",
     .readText = ReadOwnText<&CScanner::m_CheckHealthText>},
    {.number = PropDeviceDescription,
     .label = "\t DeviceDescription",
     .readText = ReadOwnText<&CScanner::m_DeviceDescription>},
    {.number = PropDeviceName, .label = "\t DeviceName", .readText = ReadOwnText<&CScanner::m_DeviceName>},
    {.number = PropServiceName, .label = "\t DeviceName", .readText = ReadServiceName},
    {.number = PropScanData, .label = "\t Scan_ScanData", .readText = TakeText},
    {.number = PropScanDataLabel, .label = "\t Scan_ScanDataLabel", .readText = TakeLabel},
};

const CScanner::Properties::Row* CScanner::Properties::Find(int32_t number) {
    for (const Row& row : kRows) {
        if (row.number == number) return &row;
    }
    return nullptr;
}

// The frame of every read of a number; the value comes from the caller's step, false from which
// means that there is none.
template <typename Read>
ResultCode CScanner::AnswerNumber(int32_t number, int32_t* value, Read read) {
    const Properties::Row* const row = Properties::Find(number);
    const std::string_view label = Properties::LabelOf(row);
    LogInfo(">>> GetPropertyNumber", label);
    LogInfo("    | PropIndex: ", number);
    ResultCode result = read(row, *value) ? ResultSuccess : ResultIllegal;
    if (row != nullptr && row->afterRead == Properties::KeepsResult) {
        result = m_ResultCode;
    } else {
        m_ResultCode = result;
    }
    LogInfo("    | PropIndex: ", number);
    LogInfo("    | Number: ", *value);
    LogInfo("<<< GetPropertyNumber", label);
    return result;
}

ResultCode CScanner::GetPropertyNumber(int32_t number, int32_t* value) {
    return AnswerNumber(number, value, [this](const Properties::Row* row, int32_t& place) {
        if (row != nullptr && row->read != nullptr) return row->read(*this, place);
        LogWarning("Invalid property number specified.");
        place = 0;
        return false;
    });
}

ResultCode CScanner::SetPropertyNumber(int32_t number, int32_t value) {
    const Properties::Row* const row = Properties::Find(number);
    const std::string_view label = Properties::LabelOf(row);
    LogInfo(">>> SetPropertyNumber", label);
    LogInfo("    | PropIndex: ", number);
    LogInfo("    | Number: ", value);
    m_ResultCode = ResultSuccess;
    ResultCode result = ResultIllegal;
    if (row != nullptr && row->write != nullptr) {
        result = row->write(*this, value);
    } else {
        LogWarning("An invalid property number was specified.");
    }
    m_ResultCode = result;
    LogInfo("<<< SetPropertyNumber", label);
    return result;
}

// A closed service has no mode either; its texts are read as they are.
BinaryConversion CScanner::ConversionMode() const {
    if (m_Status.Has(StatusBinaryNone) || !m_Status.Has(StatusOpened)) return BinaryConversion::None;
    return m_Status.Has(StatusBinaryNibble) ? BinaryConversion::Nibble : BinaryConversion::Decimal;
}

// The frame of every read of a text, as AnswerNumber. A read that there is no property for answers "[Error]".
template <typename Read>
ResultCode CScanner::AnswerText(int32_t number, const CallerBuffer& buffer, Read read) {
    LogTrace trace("CScanner::GetPropertyString");
    LogInfo("    | PropIndex: ", number);
    std::string value;
    const ResultCode result = read(value) ? ResultSuccess : ResultIllegal;
    m_ResultCode = result;
    const BinaryConversion mode = ConversionMode();
    if (mode != BinaryConversion::None) value = EncodeBinaryText(value, mode);
    if (!buffer.Fits(value)) {
        LogInfo("    | the buffer not enough memory : %d", static_cast<uint64_t>(value.size()));
        return ResultBufferTooSmall;
    }
    buffer.Fill(value);
    LogInfo("    | String Ascii : ", AsciiOf{value});
    LogInfo("    | String Hex : ", HexOf{value});
    return result;
}

ResultCode CScanner::GetPropertyString(int32_t number, const CallerBuffer& buffer) {
    return AnswerText(number, buffer, [&](std::string& place) {
        const Properties::Row* const row = Properties::Find(number);
        if (row != nullptr && row->readText != nullptr) {
            place = row->readText(*this);
            return true;
        }
        LogWarning("An invalid property number was specified.");
        place = "[Error]";
        return false;
    });
}

std::optional<CachedBarcode> CScanner::PollBarcode(EmptyPoll emptyPoll) {
    std::optional<CachedBarcode> barcode = m_Cache.Take();
    if (!barcode && emptyPoll == EmptyPoll::Silent) return barcode;
    int32_t count = 0;
    AnswerNumber(PropCacheCount, &count, [&](const Properties::Row*, int32_t& place) {
        place = barcode ? static_cast<int32_t>(barcode->count) : 0;
        return true;
    });
    return barcode;
}

ResultCode CScanner::HandOver(CachedBarcode barcode, int32_t* codeType, const CallerBuffer& buffer) {
    if (codeType != nullptr) {
        AnswerNumber(PropScanDataType, codeType, [&](const Properties::Row*, int32_t& place) {
            place = barcode.codeType;
            return true;
        });
    }
    return AnswerText(PropScanData, buffer, [&](std::string& place) {
        place = Properties::ShownText(std::move(barcode.text));
        return true;
    });
}

ResultCode CScanner::SetPropertyString(int32_t number, const char* text) {
    LogTrace trace("CScanner::SetPropertyString");
    LogInfo("    | PropIndex: ", number);
    LogInfo("    | String: ", text);
    DecodeBinaryText(text,
                     ConversionMode());  // its complaint about a text of a wrong length is the only effect
    LogWarning("An invalid property number was specified.");
    return m_ResultCode = ResultIllegal;
}

ResultCode CScanner::COFreezeEvents(int16_t freeze) {
    LogTrace trace("CScanner::COFreezeEvents");
    LogInfo("    | Freeze: ", freeze);
    const bool flag = freeze != 0;
    m_Status.Put(StatusCOFreeze, flag);
    m_EventQueue.SetFreeze(flag);
    OnFreezeEvents();
    const bool frozen = m_Status.Has(StatusFreezeEvents | StatusCOFreeze);
    const ResultCode result = frozen == flag ? ResultSuccess : ResultFailure;
    m_ResultCode = result;
    LogInfo("    | ResultCode: %d", result);
    return result;
}

}  // namespace quillet
