// SPDX-License-Identifier: MIT
// Numbers of the service's properties.
#pragma once

#include <cstdint>

namespace quillet {

enum Property : int32_t {
    PropClaimed = 1,
    PropDataEventEnabled = 2,
    PropDeviceEnabled = 3,
    PropFreezeEvents = 4,
    PropResultCode = 6,
    PropResultCodeExtended = 7,
    PropServiceObjectVersion = 8,
    PropState = 9,
    PropAutoDisable = 10,
    PropBinaryConversion = 11,
    PropDataCount = 12,
    PropPowerNotify = 13,
    PropPowerState = 14,
    PropCapPowerReporting = 501,
    PropCapStatisticsReporting = 502,
    PropCapUpdateStatistics = 503,
    PropScanDecodeData = 10001,
    PropScanDataType = 10002,
    PropCacheCount = 10003,
    PropCheckHealthText = 1000001,
    PropDeviceDescription = 1000002,
    PropDeviceName = 1000003,
    PropServiceName = 1000004,
    PropScanData = 1010001,
    PropScanDataLabel = 1010002
};

}  // namespace quillet
