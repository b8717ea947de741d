// The driver's pipes: see tests/wine/hid_bus.
#pragma once

#include <string>

#include "tools/virtual_scanner/device_side/wine/handles.h"

namespace quillet::tools {

// Opens one of them, waiting while the driver is still busy with its last client. Throws std::system_error without
// the driver, or if another program plays its device.
platform::UniqueHandle OpenHidPipe(const char* name, DWORD flags);

// The driver's device, plugged in from construction to destruction. Hosts find it after the former and no longer
// after the latter. Throws std::runtime_error if it doesn't appear.
class HidPlug {
  public:
    HidPlug();
    ~HidPlug();
    HidPlug(const HidPlug&) = delete;
    HidPlug& operator=(const HidPlug&) = delete;

  private:
    bool Request(char request) const;

    const platform::UniqueHandle m_Pipe;
    std::string m_Path;  // that hosts open
};

}  // namespace quillet::tools
