// Where the devices of a test process stand.
#pragma once

#include <cstdint>
#include <string>

namespace quillet::tests {

// The directory for virtual scanners, where the library of this process looks.
std::string DevicesDirectory();

// Process ids are multiples of this.
#ifdef _WIN32
inline constexpr uint32_t kProcessIdStep = 4;
#else
inline constexpr uint32_t kProcessIdStep = 1;
#endif

}  // namespace quillet::tests
