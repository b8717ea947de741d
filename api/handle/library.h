// The process-wide side of the library: which handles live, and how everything ends at unload.
#pragma once

namespace quillet {

struct ScannerObject;

// Handles that live, so that their threads can be ended at unload. Any thread.
void AddLiveObject(ScannerObject* object);
void RemoveLiveObject(ScannerObject* object);

}  // namespace quillet
