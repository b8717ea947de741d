// SPDX-License-Identifier: MIT
// The process-wide side of the library: which handles live, and how everything ends at unload.
#pragma once

namespace quillet {

struct ScannerObject;

// Registers the routine that takes everything down when the library is unloaded or the process ends. To be called
// before anything is made that has a thread, from any thread. A child of fork that has only inherited its parent's
// handles takes nothing down.
void PrepareEnd();

// Handles that live, so that what they hold can be given up at unload. Any thread.
void AddLiveObject(ScannerObject* object);
void RemoveLiveObject(ScannerObject* object);

}  // namespace quillet
