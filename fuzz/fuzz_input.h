// SPDX-License-Identifier: MIT
// What every fuzz target needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace quillet::fuzz {

// Ends the process, which is how a fuzzer learns of a finding.
inline void Require(bool condition) {
    if (!condition) std::abort();
}

// The input lies in a heap block of just its size, so that a sanitizer sees the first byte read past it.
inline std::string_view Text(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

}  // namespace quillet::fuzz
