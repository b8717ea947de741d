// SPDX-License-Identifier: MIT
// What of the machine a test process has for itself.
#pragma once

#include <string>

namespace quillet::test {

// The directory for virtual scanners, where the library of this process looks.
std::string DevicesDirectory();

// Number of a serial port that no other test process uses: claims are shared by all of them.
int OwnPort();

}  // namespace quillet::test
