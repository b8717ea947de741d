#include "support/process.h"

namespace quillet::test {

std::string ChildProcess::ReadLine() {
    std::string line;
    for (char byte = 0; ReadByte(byte) && byte != '\n';) line += byte;
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace quillet::test
