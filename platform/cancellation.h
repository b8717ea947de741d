// SPDX-License-Identifier: MIT
// Threads of the host that are cancelled.
#pragma once

namespace quillet::platform {

// Holds a cancellation of the calling thread off, where the system has such a thing, until the end of this object;
// objects nest. A thread that is cancelled in the middle of a call would leave locks held, and end the process where
// no exception may pass.
class CancellationHeldOff {
  public:
    CancellationHeldOff() noexcept;
    ~CancellationHeldOff();
    CancellationHeldOff(const CancellationHeldOff&) = delete;
    CancellationHeldOff& operator=(const CancellationHeldOff&) = delete;

  private:
    int m_Before = 0;
};

}  // namespace quillet::platform
