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

namespace quillet::test {

enum class ScannerLink { Usb, VirtualSerial, Serial };

void PrintTo(ScannerLink link, std::ostream* out);

struct ScannerOptions {
    ScannerLink link = ScannerLink::Usb;
    int port = 97;  // number of the COM port; not used over USB
    std::string serialNumber = "1234567890";
};

// The program as this system runs it. On Windows that is outside Wine, where nothing can play a device.
class ScannerProgram {
  public:
    // Started unplugged. Throws std::runtime_error if it can't be.
    explicit ScannerProgram(const ScannerOptions& options);
    ~ScannerProgram();
    ScannerProgram(const ScannerProgram&) = delete;
    ScannerProgram& operator=(const ScannerProgram&) = delete;

    void Write(const std::string& text);
    // The next line of its output without its end; empty once it has ended. Read by one thread, beside all the others.
    std::string ReadLine();
    void CloseInput();  // ends the program
    void Kill();        // ends a read that waits as well, whatever the program does

    // Hosts find the scanner that is plugged in from the return of the one to the call of the other.
    void Announce();
    void Withdraw();

  private:
    struct Impl;
    const std::unique_ptr<Impl> m_Impl;
};

// Its command line.
std::vector<std::string> ArgumentsOf(const ScannerOptions& options);

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

    ScannerProgram m_Program;
    std::mutex m_TellMutex;      // one command and its answer at a time; taken before m_Mutex
    mutable std::mutex m_Mutex;  // guards the next three
    std::deque<std::string> m_Answers;
    std::vector<HostPacket> m_Packets;
    bool m_Ended = false;
    std::condition_variable m_Changed;  // an answer has come, or the end
    std::thread m_Listener;
};

}  // namespace quillet::test
