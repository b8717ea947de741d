// The process-wide side of the library: which handles live, and how everything ends at unload.
#pragma once

namespace quillet {

struct ScannerObject;

// Has everything taken down at the end of the library, in the process that calls; in a child that inherits handles
// of its parent's nothing. Before anything is made that has a thread. Any thread.
void PrepareEnd();

// Handles that live, so that what they hold can be given up at unload. Any thread.
void AddLiveObject(ScannerObject* object);
void RemoveLiveObject(ScannerObject* object);

}  // namespace quillet
