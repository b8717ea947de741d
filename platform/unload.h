// The end of the library: unloaded by the host, or with the process.
#pragma once

namespace quillet::platform {

// Has the routine called once when the library is unloaded or the process ends, before any of the library's
// static objects goes, and only where threads may be joined at that moment.
void OnUnload(void (*routine)()) noexcept;

}  // namespace quillet::platform
