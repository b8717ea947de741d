// SPDX-License-Identifier: MIT
// From a number of the connection string to an integer.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace quillet {

// Cut toward zero; beyond the range, the nearest end of it; 0 for what is no number.
inline int32_t TruncateToInt32(double value) {
    constexpr double kLowest = std::numeric_limits<int32_t>::min();
    constexpr double kHighest = std::numeric_limits<int32_t>::max();
    if (std::isnan(value)) return 0;
    if (value <= kLowest) return std::numeric_limits<int32_t>::min();
    if (value >= kHighest) return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(value);
}

}  // namespace quillet
