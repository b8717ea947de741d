// What ends a line of a text file on this system.
#pragma once

#include <string>

namespace quillet::test {

#ifdef _WIN32
inline const std::string kLineEnd = "\r\n";
#else
inline const std::string kLineEnd = "\n";
#endif

}  // namespace quillet::test
