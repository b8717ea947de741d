// The registry keys that make a serial port one that hosts find.
#pragma once

#include <string>

namespace quillet::tools {

struct PortKeys {
    std::string instance;  // such as USB\VID_18D1&PID_0009\1234
    std::string port;
    std::string description;
    std::string manufacturer;
};

// Throws std::system_error.
void WritePortKeys(const PortKeys& keys);
void DeletePortKeys(const std::string& instance) noexcept;

}  // namespace quillet::tools
