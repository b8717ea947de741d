// SPDX-License-Identifier: MIT
#include "support/virtual_scanner.h"

#include <array>
#include <chrono>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>

#include "foundation/text.h"
#include "support/eventually.h"

namespace quillet::test {
namespace {

// For an answer and for the end; below the limits of the tests, which are ended without a word.
constexpr std::chrono::seconds kPatience(20);

std::string Escaped(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) text += "\\x" + ToHexText({&byte, 1});
    return text;
}

// The bytes that stand behind "<name>=" in a line of the program.
std::string Field(const std::string& line, const std::string& name) {
    const size_t start = line.find(" " + name + "=");
    if (start == std::string::npos) return {};
    const size_t value = start + name.size() + 2;
    return ParseHexText(line.substr(value, line.find(' ', value) - value));
}

HostPacket PacketOf(const std::string& line) {
    if (!line.starts_with("packet ")) return {};
    return {static_cast<uint8_t>(Field(line, "opcode").at(0)), Field(line, "parameters")};
}

std::vector<std::string> ArgumentsOf(const ScannerOptions& options) {
    constexpr std::array kLinks{"usb", "virtual-serial", "serial"};
    const std::string link = kLinks[static_cast<size_t>(options.link)];
    const std::string port = "COM" + std::to_string(options.port);
    return {"--unplugged", "--gap", "0", "--link", link, "--port", port, "--serial-number", options.serialNumber};
}

}  // namespace

void PrintTo(ScannerLink link, std::ostream* out) {
    constexpr std::array kNames{"Usb", "VirtualSerial", "Serial"};
    *out << kNames[static_cast<size_t>(link)];
}

VirtualScanner::VirtualScanner(const ScannerOptions& options)
    : m_Options(options), m_Program(VIRTUAL_SCANNER, ArgumentsOf(options)), m_Listener([this] { Listen(); }) {
    try {
        Plug();
    } catch (...) {
        End();
        throw;
    }
}

VirtualScanner::~VirtualScanner() {
    m_Listed.reset();
    End();
}

void VirtualScanner::End() {
    m_Program.CloseInput();
    std::unique_lock lock(m_Mutex);
    const bool ended = m_Changed.wait_for(lock, kPatience, [this] { return m_Ended; });
    lock.unlock();
    EXPECT_TRUE(ended) << "the virtual scanner doesn't end";
    if (!ended) m_Program.Kill();
    m_Listener.join();
}

void VirtualScanner::Plug() {
    Tell("plug");
    m_Listed = ListedForHosts(m_Options);
}

void VirtualScanner::Unplug() {
    m_Listed.reset();
    Tell("unplug");
}

void VirtualScanner::Scan(uint8_t codeType, std::string_view data) {
    Tell("scan " + std::to_string(codeType) + " " + Escaped(data));
}

void VirtualScanner::Plain(std::string_view bytes) {
    Tell("plain " + Escaped(bytes));
}

std::vector<HostPacket> VirtualScanner::Packets() const {
    const std::lock_guard lock(m_Mutex);
    return m_Packets;
}

void VirtualScanner::ClearPackets() {
    const std::lock_guard lock(m_Mutex);
    m_Packets.clear();
}

bool VirtualScanner::WaitForPackets(size_t count, std::chrono::milliseconds limit) const {
    return Eventually(
        [&] {
            const std::lock_guard lock(m_Mutex);
            return m_Packets.size() >= count;
        },
        limit);
}

void VirtualScanner::Tell(const std::string& command) {
    const std::lock_guard telling(m_TellMutex);
    m_Program.Write(command + "\n");
    std::unique_lock lock(m_Mutex);
    m_Changed.wait_for(lock, kPatience, [this] { return !m_Answers.empty() || m_Ended; });
    if (m_Answers.empty()) {
        throw std::runtime_error(command + (m_Ended ? ": the virtual scanner has ended" : ": no answer"));
    }
    const std::string answer = m_Answers.front();
    m_Answers.pop_front();
    if (answer.starts_with("error")) throw std::runtime_error(command + ": " + answer);
}

// On the listener's thread, until the program ends.
void VirtualScanner::Listen() {
    for (std::string line; !(line = m_Program.ReadLine()).empty();) {
        const std::string kind = line.substr(0, line.find(' '));
        const std::lock_guard lock(m_Mutex);
        if (kind == "packet" || kind == "noise") {
            m_Packets.push_back(PacketOf(line));
        } else if (kind != "answer" && kind != "host") {
            m_Answers.push_back(line);
            m_Changed.notify_one();
        }
    }
    const std::lock_guard lock(m_Mutex);
    m_Ended = true;
    m_Changed.notify_one();
}

}  // namespace quillet::test
