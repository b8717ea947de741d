// SPDX-License-Identifier: MIT
// Statistics and health operations of the device model, which no exported call reaches (docs/architecture.md).
#include <mutex>
#include <string>
#include <utility>

#include "foundation/log.h"
#include "foundation/scope_exit.h"
#include "service/scanner.h"
#include "service/statistics_text.h"

namespace quillet {
namespace {

constexpr uint32_t kStatisticsTimeoutMs = 3000;

struct HealthLevel {
    uint32_t level;
    const char* text;
};

constexpr HealthLevel kHealthLevels[] = {
    {1, "Internal HCheck: Complete"},
    {2, "External HCheck: Complete"},
    {3, "Interactive HCheck: Complete"},
};

}  // namespace

ResultCode CScanner::CheckHealth(uint32_t level) {
    LogTrace trace("CScanner::CheckHealth");
    LogInfo("    | Level: ", level);
    std::string text;
    for (const HealthLevel& row : kHealthLevels) {
        if (row.level == level) text = row.text;
    }
    m_ResultCode = text.empty() ? ResultIllegal : ResultSuccess;
    if (text.empty()) {
        LogWarning("Invalid CheckHealth level specified.");
        text = "[Error]";
    }
    {
        std::lock_guard lock(m_TextMutex);
        m_CheckHealthText = text;
    }
    LogInfo("    | ResultCode: %d", m_ResultCode.load());
    return m_ResultCode;
}

ResultCode CScanner::ResetStatistics(const std::string& statisticsBuffer) {
    LogTrace trace("CScanner::ResetStatistics");
    return RefuseTextOperation("    | statisticsBuffer = ", statisticsBuffer, "    | ResultCode: %d");
}

ResultCode CScanner::UpdateStatistics(const std::string& statisticsBuffer) {
    LogTrace trace("CScanner::UpdateStatistics");
    return RefuseTextOperation("    | statisticsBuffer = ", statisticsBuffer, "    | ResultCode: %d");
}

ResultCode CScanner::CompareFirmwareVersion(const std::string& firmwareFileName) {
    LogTrace trace("CScanner::CompareFirmwareVersion");
    return RefuseTextOperation("    | firmwareFileName = ", firmwareFileName, "    | ResultCode: ");
}

ResultCode CScanner::UpdateFirmware(const std::string& firmwareFileName) {
    LogTrace trace("CScanner::UpdateFirmware");
    return RefuseTextOperation("    | firmwareFileName = ", firmwareFileName, "    | ResultCode: ");
}

// These operations stand in the device model and do nothing for this scanner.
ResultCode CScanner::RefuseTextOperation(const char* key, const std::string& text, const char* resultFormat) {
    LogInfo(key, text);
    DecodeBinaryText(text,
                     ConversionMode());  // its complaint about a text of a wrong length is the only effect
    const ResultCode result = m_ResultCode = ResultIllegal;
    LogInfo(resultFormat, result);
    return result;
}

ResultCode CScanner::RetrieveStatistics(std::string* statisticsBuffer) {
    LogTrace trace("CScanner::RetrieveStatistics");
    LogInfo("    | String: ", *statisticsBuffer);
    if (!m_Status.Has(StatusClaimed)) {
        LogWarning("Attempt to retrieve statistics before the device is claimed.");
        return m_ResultCode = ResultNotClaimed;
    }
    if (!m_Status.Has(StatusEnabled)) {
        LogWarning("Attempt to retrieve statistics before the device is enabled.");
        return m_ResultCode = ResultDisabled;
    }
    m_Exchange.ForgetReplies();
    m_Status.Set(StatusStatistics);
    RequestStatistics();
    const bool replied = m_Exchange.AwaitAnyReply(kStatisticsTimeoutMs) && !m_Closing;
    m_Status.Clear(StatusStatistics);
    if (!replied) {
        LogWarning("RetrieveStatistics: timeout on attempt to retrieve statistics from scanner.");
        return m_ResultCode = ResultTimeout;
    }
    const StatisticsSelection selection = SelectStatistics(*statisticsBuffer);
    m_ResultCode = selection.unknownName ? ResultIllegal : ResultSuccess;
    const std::string equipment;  // no scanner tells about itself in a form that is known, so the defaults show
    std::string text = WriteStatistics(ReadEquipmentInfo(Kind(), equipment), selection);
    {
        std::lock_guard lock(m_TextMutex);
        m_StatisticsText = std::move(text);
    }
    LogInfo("    | ResultCode;: ", m_ResultCode.load());
    return m_ResultCode;
}

// Sends nothing: only a reply to some other exchange ends the wait early.
void CScanner::RequestStatistics() {
    LogTrace trace("CScanner::RequestStatistics");
    if (Kind().statisticsSupported) return;
    LogWarning(
        "Attempt to RequestStatistics through an interface for which this method is not presently supported "
        "and/or tested.");
}

}  // namespace quillet
