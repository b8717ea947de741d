// SPDX-License-Identifier: MIT
// Failures of system calls as exceptions.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace quillet::tools {

[[noreturn]] inline void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

inline int Checked(int result, const std::string& what) {
    if (result < 0) ThrowErrno(what);
    return result;
}

}  // namespace quillet::tools
