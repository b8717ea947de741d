// SPDX-License-Identifier: MIT
// Commands to a program that plays a device. In the library of device_side.h.
#pragma once

#include <functional>
#include <string>

#include "platform/device_access.h"
#include "platform/thread.h"

namespace quillet::tools {

// Standard input by lines, together with the signals that end a program (SIGINT, SIGTERM, SIGHUP). To be made
// before the program's other threads, which inherit that these signals are blocked. A standard output that
// nobody reads any more doesn't end the program either.
class CommandInput {
  public:
    CommandInput();
    ~CommandInput();
    CommandInput(const CommandInput&) = delete;
    CommandInput& operator=(const CommandInput&) = delete;

    // From now on a thread of this object's own waits for the signals. onSignal runs on it once, at the first
    // one, and is to end whatever the reading thread may be waiting for.
    void WatchSignals(std::function<void()> onSignal);

    enum class Next { Line, End, Signal };
    // Waits for the next line, given without its line end. A last line without one counts.
    Next Read(std::string& line);

  private:
    bool TakeLine(std::string& line);

    int m_Signals = -1;
    std::function<void()> m_OnSignal;
    platform::StopSignal m_Signalled;  // a signal has come
    platform::StopSignal m_Finished;   // the watching thread is to end
    platform::Thread m_Watcher;
    std::string m_Pending;  // read and not yet given
    bool m_Ended = false;
};

}  // namespace quillet::tools
