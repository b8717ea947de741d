// SPDX-License-Identifier: MIT
#include "service/statistics_text.h"

#include <string_view>
#include <vector>

#include "foundation/text.h"

namespace quillet {
namespace {

constexpr size_t kSerialNumberSize = 10;

struct StatisticName {
    const char* name;
    bool StatisticsSelection::*chosen;
};

// In the order of the text.
constexpr StatisticName kStatistics[] = {
    {"HoursPoweredCount", &StatisticsSelection::hoursPoweredCount},
    {"CommunicationErrorCount", &StatisticsSelection::communicationErrorCount},
    {"GoodScanCount", &StatisticsSelection::goodScanCount},
};

struct EquipmentElement {
    const char* name;
    std::string EquipmentInfo::*value;
};

constexpr EquipmentElement kEquipmentElements[] = {
    {"ManufacturerName", &EquipmentInfo::manufacturerName},
    {"ModelName", &EquipmentInfo::modelName},
    {"SerialNumber", &EquipmentInfo::serialNumber},
    {"ManufactureDate", &EquipmentInfo::manufactureDate},
    {"MechanicalRevision", &EquipmentInfo::mechanicalRevision},
    {"FirmwareRevision", &EquipmentInfo::firmwareRevision},
    {"Interface", &EquipmentInfo::interfaceName},
    {"InstallationDate", &EquipmentInfo::installationDate},
};

// Week and year stand inside the serial number; a week that no year has leaves the date as it was.
void ReadManufactureDate(EquipmentInfo& info) {
    const std::string& serial = info.serialNumber;
    if (serial.size() != kSerialNumberSize || serial == EquipmentInfo().serialNumber) return;
    const std::string week = serial.substr(4, 2);
    const std::string year = serial.substr(2, 2);
    if (week.find_first_not_of("0123456789") != std::string::npos) return;
    const int number = (week[0] - '0') * 10 + (week[1] - '0');
    if (number < 1 || number > 54) return;
    info.manufactureDate = (year[0] == '9' ? "19" : "20") + year + "-mm-dd (Week " + week + ")";
}

void TakeIf(bool condition, std::string& field, const std::string& piece) {
    if (condition) field = piece;
}

// Pieces are numbered from 1.
void ReadPiece(EquipmentInfo& info, size_t number, const std::string& piece) {
    switch (number) {
        case 1: {
            const size_t digit = piece.find_first_of("0123456789");
            if (digit != std::string::npos) info.unifiedPosVersion = piece.substr(digit);
            break;
        }
        case 2: TakeIf(!piece.empty(), info.deviceCategory, piece); break;
        case 3: TakeIf(!piece.empty(), info.manufacturerName, piece); break;
        case 4: TakeIf(!piece.empty(), info.modelName, piece); break;
        case 5: TakeIf(piece.size() > 9, info.serialNumber, piece); break;
        case 6: ReadManufactureDate(info); break;  // the piece itself isn't used
        case 7: TakeIf(!piece.empty(), info.mechanicalRevision, piece); break;
        case 8: TakeIf(piece.size() >= 5, info.firmwareRevision, piece); break;
        case 9: TakeIf(!piece.empty(), info.interfaceName, piece); break;
        default: break;
    }
}

std::string Element(std::string_view name, std::string_view value) {
    std::string text = "<";
    text.append(name).append(">").append(value).append("</").append(name).append(">");
    return text;
}

constexpr std::string_view kHead =
    "<?xml version=\"1.0\"?>"
    "<UPOSStat version=\"1.8.0\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
    " xmlns=\"http://www.nrf-arts.org/UnifiedPOS/namespace/\""
    " xsi:schemaLocation=\"http://www.nrf-arts.org/UnifiedPOS/namespace/ UPOSStat.xsd\">";

}  // namespace

EquipmentInfo ReadEquipmentInfo(const LinkKind& kind, const std::string& reply) {
    EquipmentInfo info;
    info.interfaceName = kind.interfaceName;
    std::vector<std::string> pieces = Split(reply, ',');
    if (!pieces.empty()) pieces.pop_back();  // no comma stands behind it
    for (size_t i = 0; i < pieces.size(); ++i) ReadPiece(info, i + 1, pieces[i]);
    return info;
}

StatisticsSelection SelectStatistics(const std::string& names) {
    if (names.empty()) return {true, true, true, true, false};
    if (names == "U_") return {true, true, true, false, false};
    StatisticsSelection selection;
    if (names == "M_") {
        selection.manufacturerSpecific = true;
        return selection;
    }
    for (const std::string& name : Split(names, ',')) {
        bool known = false;
        for (const StatisticName& statistic : kStatistics) {
            if (name != statistic.name) continue;
            selection.*statistic.chosen = true;
            known = true;
        }
        if (!known) selection.unknownName = true;
    }
    return selection;
}

std::string WriteStatistics(const EquipmentInfo& info, const StatisticsSelection& selection) {
    std::string xml(kHead);
    xml += "<Event>";
    for (const StatisticName& statistic : kStatistics) {
        if (selection.*statistic.chosen) {
            xml += Element("Parameter", Element("Name", statistic.name) + Element("Value", "0"));
        }
    }
    if (selection.manufacturerSpecific) xml += Element("ManufacturerSpecific", "");
    xml += "</Event><Equipment>";
    xml += Element("UnifiedPOSVersion", info.unifiedPosVersion);
    xml += "<DeviceCategory UPOS=\"" + info.deviceCategory + "\" />";
    for (const EquipmentElement& element : kEquipmentElements) xml += Element(element.name, info.*element.value);
    xml += "</Equipment></UPOSStat>";
    return xml;
}

}  // namespace quillet
