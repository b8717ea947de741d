// SPDX-License-Identifier: MIT
// The end of the library: unloaded by the host, or with the process.
#pragma once

namespace quillet::platform {

// Has the routine called once when the library is unloaded or this process ends, before any of the library's
// static objects goes, and only where threads may be joined at that moment. Not in a copy of this process, unless
// it is asked for there anew. A second call changes nothing else.
void OnUnload(void (*routine)()) noexcept;

}  // namespace quillet::platform
