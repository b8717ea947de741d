// SPDX-License-Identifier: MIT
// The statistics text of the device model (UPOSStat XML). Pure functions.
#pragma once

#include <string>

#include "transport/link_kinds.h"

namespace quillet {

// What the text tells about the equipment, with the defaults where the scanner tells nothing.
struct EquipmentInfo {
    std::string unifiedPosVersion = "1.9.3";
    std::string deviceCategory = "Scanner";
    std::string manufacturerName = "Ostrel Inc.";
    std::string modelName = "Tovra Quillet";
    std::string serialNumber = "0000000000";
    std::string manufactureDate = "yyyy-mm-dd";
    std::string mechanicalRevision = "x";
    std::string firmwareRevision = "xxxxx";
    std::string interfaceName;  // of the kind of link
    std::string installationDate = "yyyy-mm-dd";
};

struct StatisticsSelection {
    bool hoursPoweredCount = false;
    bool communicationErrorCount = false;
    bool goodScanCount = false;
    bool manufacturerSpecific = false;
    bool unknownName = false;  // the list held a name of no statistic
};

// Defaults, then the pieces of a scanner's comma-separated reply over them; the text after the last comma is ignored.
EquipmentInfo ReadEquipmentInfo(const LinkKind& kind, const std::string& reply);

// Empty: all. "U_": the three counts. "M_": the manufacturer's. Else a comma-separated list of names.
StatisticsSelection SelectStatistics(const std::string& names);

// One line without white space between the elements. Values aren't escaped; every count is 0.
std::string WriteStatistics(const EquipmentInfo& info, const StatisticsSelection& selection);

}  // namespace quillet
