// SPDX-License-Identifier: MIT
// What ends a line of a text file on this system.
#pragma once

#include <string>

#include "support/process.h"

namespace quillet::test {

inline const std::string kLineEnd = kOnWindows ? "\r\n" : "\n";

}  // namespace quillet::test
