// The results of service operations, in the numbers of the public header.
#pragma once

#include <cstdint>

namespace quillet {

using ResultCode = int32_t;

inline constexpr ResultCode kResultSuccess = 0;
inline constexpr ResultCode kResultBufferTooSmall = 11;
inline constexpr ResultCode kResultClosed = 101;
inline constexpr ResultCode kResultClaimed = 102;
inline constexpr ResultCode kResultNotClaimed = 103;
inline constexpr ResultCode kResultDisabled = 105;
inline constexpr ResultCode kResultIllegal = 106;
inline constexpr ResultCode kResultNoHardware = 107;
inline constexpr ResultCode kResultNoExist = 109;
inline constexpr ResultCode kResultFailure = 111;
inline constexpr ResultCode kResultTimeout = 112;
inline constexpr ResultCode kResultBusy = 113;
inline constexpr ResultCode kResultOpenException = 403;

}  // namespace quillet
