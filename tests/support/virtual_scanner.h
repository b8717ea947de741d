// SPDX-License-Identifier: MIT
// A scanner without hardware that a test works: the virtual scanner's program, told by its own commands.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/process.h"

namespace quillet::test {

enum class ScannerLink { Usb, VirtualSerial, Serial };

void PrintTo(ScannerLink link, std::ostream* out);

struct ScannerOptions {
    ScannerLink link = ScannerLink::Usb;
    int port = 97;  // number of the COM port; not used over USB
    std::string serialNumber = "1234567890";
};

// Hosts find the scanner as long as the result lives, if it is plugged in.
std::shared_ptr<void> ListedForHosts(const ScannerOptions& options);

// What a host has sent; nothing of what is no packet.
struct HostPacket {
    uint8_t opcode = 0;
    std::string parameters;
};

// Calls may come from any thread; one command is under way at a time. They throw std::runtime_error if the scanner
// refuses, has ended or doesn't answer. One that doesn't end with the object fails the test.
class VirtualScanner {
  public:
    explicit VirtualScanner(const ScannerOptions& options);  // plugged in
    ~VirtualScanner();
    VirtualScanner(const VirtualScanner&) = delete;
    VirtualScanner& operator=(const VirtualScanner&) = delete;

    // One of the program's commands: "refuse on", "delay 100".
    void Tell(const std::string& command);

    // Plugging in a scanner that is plugged in does nothing, nor does the opposite.
    void Plug();
    void Unplug();

    // Return once everything is on its way to the host.
    void Scan(uint8_t codeType, std::string_view data);
    void Plain(std::string_view bytes);  // without a frame

    // What hosts have sent since the start or the last ClearPackets.
    std::vector<HostPacket> Packets() const;
    void ClearPackets();
    bool WaitForPackets(size_t count, std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

  private:
    void Listen();
    void End();

    const ScannerOptions m_Options;
    ChildProcess m_Program;
    std::shared_ptr<void> m_Listed;
    std::mutex m_TellMutex;      // one command and its answer at a time; taken before m_Mutex
    mutable std::mutex m_Mutex;  // guards the next three
    std::deque<std::string> m_Answers;
    std::vector<HostPacket> m_Packets;
    bool m_Ended = false;
    std::condition_variable m_Changed;  // an answer has come, or the end
    std::thread m_Listener;
};

}  // namespace quillet::test
