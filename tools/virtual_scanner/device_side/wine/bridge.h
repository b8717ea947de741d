// The program beside Wine that makes terminals and maps COM names to them; see tests/wine/terminals.py. Failures are
// thrown as std::runtime_error.
#pragma once

#include <string>

#include "tools/virtual_scanner/device_side/wine/handles.h"

namespace quillet::tools {

struct BridgeTerminal {
    UniqueSocket socket;   // carries the terminal's bytes
    std::string hostPath;  // what hosts open
};

BridgeTerminal NewBridgeTerminal();
// Hosts that have the terminal open find it hung up from the return on.
void PullBridgeTerminal(const std::string& hostPath);

void LinkPort(const std::string& port, const std::string& hostPath);
void UnlinkPort(const std::string& port);

}  // namespace quillet::tools
