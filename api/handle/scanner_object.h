// SPDX-License-Identifier: MIT
// What a ScannerHandle points to, and the frame around every exported call on one.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include <quillet/quillet.h>

#include "platform/cancellation.h"
#include "platform/process_origin.h"
#include "service/scanner.h"

namespace quillet {

// Counts the calls that threads have under way on a handle, so that destroying it can wait for them.
class CallGate {
  public:
    void Enter();
    void Leave();
    // Returns at once in a child of fork: the parent's threads don't run there, so their calls would never end.
    void WaitUntilEmpty();
    bool IsEmpty();

  private:
    std::mutex m_Mutex;  // guards m_Inside; a leaving thread's last touch of the object is its unlock
    std::condition_variable m_Left;
    const platform::ProcessOrigin m_Origin;
    uint32_t m_Inside = 0;
};

struct ScannerObject {
    CScanner scanner;
    CallGate calls;
    // Opening and closing of one handle exclude each other; taken before every lock of the service.
    // Recursive: calls that open and close on their way hold it around both.
    std::recursive_mutex lifecycle;
};

// One exported call under way on a handle that isn't null.
class HandleCall {
  public:
    explicit HandleCall(ScannerHandle handle) : m_Object(*static_cast<ScannerObject*>(handle)) {
        m_Object.calls.Enter();
    }
    ~HandleCall() { m_Object.calls.Leave(); }
    HandleCall(const HandleCall&) = delete;
    HandleCall& operator=(const HandleCall&) = delete;

    CScanner& Scanner() { return m_Object.scanner; }
    ScannerObject& Object() { return m_Object; }

  private:
    ScannerObject& m_Object;
};

// Runs the body of an exported call: whatever leaves it as an exception (no memory, mostly) becomes the given
// result. The calling thread can't be cancelled meanwhile.
template <typename Body>
int32_t Guarded(int32_t onException, Body body) noexcept {
    const platform::CancellationHeldOff heldOff;
    try {
        return body();
    } catch (...) {
        return onException;
    }
}

// The calls below, for other calls of the library: without argument checks and call counting.
int32_t OpenScanner(ScannerObject& object, const char* connection) noexcept;
int32_t CloseScanner(ScannerObject& object);

// A length of the caller's: below 0 counts as 0.
inline uint32_t CallerLength(int32_t length) {
    return length < 0 ? 0 : static_cast<uint32_t>(length);
}

}  // namespace quillet
