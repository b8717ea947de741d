// SPDX-License-Identifier: MIT
// The roots of the library's exception tree. Each layer adds its own branches where it raises them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace quillet {

// A failure of the service, the transport or the event model, with a number; 0 when none applies.
class QuilletError : public std::runtime_error {
  public:
    explicit QuilletError(const std::string& text, uint32_t code = 0) : std::runtime_error(text), m_Code(code) {}
    uint32_t Code() const noexcept { return m_Code; }

  private:
    uint32_t m_Code;
};

// A text that could not be read as a number. No QuilletError: what catches those lets it pass, up to the exported call.
class StringError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace quillet
