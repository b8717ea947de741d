// SPDX-License-Identifier: MIT
// What every fuzz target needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace quillet::fuzz {

// Ends the process, which is how a fuzzer learns of a finding.
inline void Require(bool condition) {
    if (!condition) std::abort();
}

// The input in a heap block of just its size, so that a sanitizer sees the first byte read past it.
class ExactInput {
  public:
    ExactInput(const uint8_t* data, size_t size) : m_Bytes(new char[size]), m_Size(size) {
        if (size != 0) std::memcpy(m_Bytes.get(), data, size);
    }
    std::string_view View() const { return {m_Bytes.get(), m_Size}; }

  private:
    std::unique_ptr<char[]> m_Bytes;
    size_t m_Size;
};

}  // namespace quillet::fuzz
