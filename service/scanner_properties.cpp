// The service's state by numbered properties.
#include <string>
#include <string_view>

#include "foundation/log.h"
#include "service/property.h"
#include "service/scanner.h"

namespace quillet {
namespace {

struct PropertyLabel {
    int32_t number;
    std::string_view label;
};

constexpr std::string_view kUnknownLabel = "\t Unknown";

constexpr PropertyLabel kLabels[] = {
    {PropClaimed, "\t Claimed"},
    {PropDataEventEnabled, "\t DataEventEnabled"},
    {PropDeviceEnabled, "\t DeviceEnabled"},
    {PropFreezeEvents, "\t FreezeEvents"},
    {PropResultCode, "\t ResultCode"},
    {PropResultCodeExtended, "\t ResultCodeExtended"},
    {PropServiceObjectVersion, "\t ServiceObjectVersion"},
    {PropState, "\t State"},
    {PropAutoDisable, "\t AutoDisable"},
    {PropBinaryConversion, "\t BinaryConversion"},
    {PropDataCount, "\t DataCount"},
    {PropPowerNotify, "\t PowerNotify"},
    {PropPowerState, "\t PowerState"},
    {PropCapPowerReporting, "\t CapPowerReporting"},
    {PropCapStatisticsReporting, "\t CapStatisticsReporting"},
    {PropCapUpdateStatistics, "\t CapUpdateStatistics"},
    {PropScanDecodeData, "\t Scan_DecodeData"},
    {PropScanDataType, "\t Scan_ScanDataType"},
    {PropCheckHealthText, "\t CheckHealthText"},
    {PropDeviceDescription, "\t DeviceDescription"},
    {PropDeviceName, "\t DeviceName"},
    {PropServiceName, "\t DeviceName"},
    {PropScanData, "\t Scan_ScanData"},
    {PropScanDataLabel, "\t Scan_ScanDataLabel"},
};

// Version 1.9.3 in the device model's way of writing one.
constexpr int32_t kServiceObjectVersion = 1009003;

// Modes of BinaryConversion with the number 0x800, a mode of other device classes.
constexpr uint32_t kAllBinaryModes = StatusBinaryNone | StatusBinaryNibble | StatusBinaryDecimal | 0x800;

// Reads that leave the stored result of the last operation alone.
bool KeepsResultCode(int32_t number) {
    return number == PropResultCode || number == PropResultCodeExtended || number == PropState ||
           number == PropDataCount || number == PropPowerState || number == PropCacheCount;
}

}  // namespace

void CScanner::LogPropertyName(const char* text, int32_t number) noexcept {
    if (!LogWanted(LLInfo)) return;
    std::string_view label = kUnknownLabel;
    for (const PropertyLabel& row : kLabels) {
        if (row.number == number) label = row.label;
    }
    LogInfo(text, label);
}

ResultCode CScanner::GetPropertyNumber(int32_t number, int32_t* value) {
    LogPropertyName(">>> GetPropertyNumber", number);
    LogInfo("    | PropIndex: ", number);
    ResultCode result = ReadNumber(number, *value) ? ResultSuccess : ResultIllegal;
    if (KeepsResultCode(number)) {
        result = m_ResultCode;
    } else {
        m_ResultCode = result;
        m_ResultCodeExtended = 0;
    }
    LogInfo("    | PropIndex: ", number);
    LogInfo("    | Number: ", *value);
    LogPropertyName("<<< GetPropertyNumber", number);
    return result;
}

// False for a number that can't be read now or at all. Only the lists are read with m_DataMutex: the state must be there
// to ask for while the read thread holds it.
bool CScanner::ReadNumber(int32_t number, int32_t& value) {
    switch (number) {
        case PropClaimed: value = m_Status.Has(StatusClaimed); return true;
        case PropDataEventEnabled: value = m_Status.Has(StatusDataEventEnabled); return true;
        case PropDeviceEnabled:
            if (!m_Status.Has(StatusClaimed)) {
                LogWarning("Cannot check the device enabled property before it has been claimed.");
                return false;
            }
            value = m_Status.Has(StatusEnabled);
            return true;
        case PropFreezeEvents: value = m_Status.Has(StatusFreezeEvents); return true;
        case PropResultCode: value = m_ResultCode; return true;
        case PropResultCodeExtended: value = m_ResultCodeExtended; return true;
        case PropServiceObjectVersion: value = kServiceObjectVersion; return true;
        case PropState: value = static_cast<int32_t>(m_State.load()); return true;
        case PropAutoDisable: value = m_Status.Has(StatusAutoDisable); return true;
        case PropBinaryConversion:
            value = m_Status.Has(StatusBinaryNibble) ? 1 : m_Status.Has(StatusBinaryDecimal) ? 2 : 0;
            return true;
        case PropDataCount:
        case PropCacheCount: {
            const auto lock = LockCache();
            value = static_cast<int32_t>(m_Cache.Count());
            return true;
        }
        case PropPowerNotify: value = static_cast<int32_t>(m_PowerNotify.load()); return true;
        case PropPowerState: value = static_cast<int32_t>(m_PowerState.load()); return true;
        case PropCapPowerReporting:
        case PropCapStatisticsReporting: value = 1; return true;
        case PropCapUpdateStatistics: value = 0; return true;
        case PropScanDecodeData: value = m_Status.Has(StatusDecodeData); return true;
        case PropScanDataType: {
            const auto lock = LockCache();
            value = m_Cache.PopType();
            return true;
        }
        default:
            LogWarning("Invalid property number specified.");
            value = 0;
            return false;
    }
}

ResultCode CScanner::SetPropertyNumber(int32_t number, int32_t value) {
    LogPropertyName(">>> SetPropertyNumber", number);
    LogInfo("    | PropIndex: ", number);
    LogInfo("    | Number: ", value);
    m_ResultCode = ResultSuccess;
    m_ResultCodeExtended = 0;
    const ResultCode result = WriteNumber(number, value);
    m_ResultCode = result;
    LogPropertyName("<<< SetPropertyNumber", number);
    return result;
}

ResultCode CScanner::WriteNumber(int32_t number, int32_t value) {
    const bool flag = value != 0;
    switch (number) {
        case PropDataEventEnabled: return SetDataEventEnabled(flag);
        case PropDeviceEnabled: return SetDeviceEnabled(flag);
        case PropFreezeEvents: return SetFreezeEvents(flag);
        case PropAutoDisable:
            m_Status.Put(StatusAutoDisable, flag);
            m_EventQueue.SetAutoDisable(flag);
            return ResultSuccess;
        case PropBinaryConversion: SetBinaryConversion(value); return ResultSuccess;
        case PropPowerNotify: return SetPowerNotify(value);
        case PropScanDecodeData: return SetDecodeData(flag);
        default: LogWarning("An invalid property number was specified."); return ResultIllegal;
    }
}

ResultCode CScanner::SetDataEventEnabled(bool flag) {
    DataEventEnable(flag);
    const bool frozen = m_Status.Has(StatusFreezeEvents | StatusCOFreeze);
    // The bit is stored all the same; a barcode that came in between isn't a failure either.
    return flag && frozen ? ResultFailure : ResultSuccess;
}

ResultCode CScanner::SetDeviceEnabled(bool flag) {
    if (m_Status.Has(StatusClaimed)) return DeviceEnable(flag);
    LogWarning("The device must be claimed before it can be enabled.");
    return ResultNotClaimed;
}

ResultCode CScanner::SetFreezeEvents(bool flag) {
    m_Status.Put(StatusFreezeEvents, flag);
    m_EventQueue.SetFreeze(flag);
    OnFreezeEvents();
    return !flag && m_Status.Has(StatusFreezeEvents | StatusCOFreeze) ? ResultFailure : ResultSuccess;
}

// A value without a mode leaves none; coding is decimal then, and reads give 0.
void CScanner::SetBinaryConversion(int32_t value) {
    constexpr uint32_t kModes[] = {StatusBinaryNone, StatusBinaryNibble, StatusBinaryDecimal};
    m_Status.Clear(kAllBinaryModes);
    if (value >= 0 && value <= 2) m_Status.Set(kModes[value]);
}

ResultCode CScanner::SetPowerNotify(int32_t value) {
    if (m_Status.Has(StatusEnabled)) return ResultIllegal;
    m_PowerNotify = static_cast<uint32_t>(value);
    return ResultSuccess;
}

ResultCode CScanner::SetDecodeData(bool flag) {
    if (!m_Status.Has(StatusEnabled)) {
        LogWarning("The device must be enable before it can be enabled.");
        return ResultDisabled;
    }
    m_Status.Put(StatusDecodeData, flag);
    EnableDeocdeData(flag);
    return ResultSuccess;
}

// A closed service has no mode either; its texts are read as they are.
BinaryConversion CScanner::ConversionMode() const {
    if (m_Status.Has(StatusBinaryNone) || !m_Status.Has(StatusOpened)) return BinaryConversion::None;
    return m_Status.Has(StatusBinaryNibble) ? BinaryConversion::Nibble : BinaryConversion::Decimal;
}

bool CScanner::ReadText(int32_t number, std::string& value) {
    std::lock_guard lock(m_DataMutex);
    switch (number) {
        case PropCheckHealthText: value = m_CheckHealthText; return true;
        case PropDeviceDescription: value = m_DeviceDescription; return true;
        case PropDeviceName: value = m_DeviceName; return true;
        case PropServiceName: value = "Tovra Quillet."; return true;
        case PropScanData:
            value = m_Cache.PopText();
            LogInfo("out ScanData :", value);
            return true;
        case PropScanDataLabel:
            value = m_Cache.PopLabel();
            LogDebug("out ScanDataLabel :", value);
            return true;
        default:
            LogWarning("An invalid property number was specified.");
            value = "[Error]";
            return false;
    }
}

ResultCode CScanner::GetPropertyString(int32_t number, const CallerBuffer& buffer) {
    LogTrace trace("CScanner::GetPropertyString");
    LogInfo("    | PropIndex: ", number);
    std::string value;
    const ResultCode result = ReadText(number, value) ? ResultSuccess : ResultIllegal;
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
