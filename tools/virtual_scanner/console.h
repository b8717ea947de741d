// SPDX-License-Identifier: MIT
// The line commands of the virtual scanner's program, and the lines that it writes.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/virtual_scanner/virtual_scanner.h"

namespace quillet::tools {

// The bytes of a text with the escapes of C: \n \r \t \a \b \f \v \\ \' \" \?, up to three octal digits, and
// \x with one or two hexadecimal digits. Throws std::invalid_argument for anything else behind a backslash.
std::string Unescape(std::string_view text);

// Lines to one stream, whole and at once, from any thread.
class LineOutput {
  public:
    explicit LineOutput(std::FILE* stream) : m_Stream(stream) {}
    void Write(const std::string& line);

  private:
    std::mutex m_Mutex;  // held for one line
    std::FILE* m_Stream;
};

// Writes what hosts do.
class EventWriter final : public ScannerObserver {
  public:
    explicit EventWriter(LineOutput& output) : m_Output(output) {}
    void OnPacket(const HostPacket& packet) override;
    void OnAnswer(const std::string& frame) override;
    void OnHost(bool connected) override;

  private:
    LineOutput& m_Output;
};

// Carries out commands. Used by one thread.
class Console {
  public:
    Console(VirtualScanner& scanner, LineOutput& output) : m_Scanner(scanner), m_Output(output) {}

    // False after "quit". A line that is wrong writes a line "error ..." and changes nothing.
    bool Execute(std::string_view line);
    // True after such a line.
    bool HadError() const { return m_HadError; }
    void Plug(std::string_view rest);

    // Commands and output lines, for the program's help.
    static std::string Help();

  private:
    struct Command;
    static const Command kCommands[];

    void Scan(std::string_view rest);
    void Plain(std::string_view rest);
    void Unplug(std::string_view rest);
    void SetFault(std::string_view rest);
    void SetDelay(std::string_view rest);
    void SetSilent(std::string_view rest);
    void SetRefuse(std::string_view rest);
    void SetPieces(std::string_view rest);
    void SetInterrupt(std::string_view rest);
    void Store(std::string_view rest);
    void ListSettings(std::string_view rest);
    void ShowHelp(std::string_view rest);
    void Quit(std::string_view rest);
    void Report(Delivery delivery, const std::string& what);

    VirtualScanner& m_Scanner;
    LineOutput& m_Output;
    bool m_Quit = false;
    bool m_HadError = false;
};

}  // namespace quillet::tools
