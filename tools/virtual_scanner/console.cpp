// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/console.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "foundation/text.h"
#include "protocol/packet.h"

namespace quillet::tools {
namespace {

std::string Hex(std::string_view bytes) {
    return ReplaceAll(ToHexText(bytes), " ", "");
}
std::string Hex(uint8_t byte) {
    return Hex(std::string(1, static_cast<char>(byte)));
}

std::pair<std::string_view, std::string_view> SplitWord(std::string_view text) {
    const size_t blank = text.find(' ');
    if (blank == std::string_view::npos) return {text, {}};
    return {text.substr(0, blank), text.substr(blank + 1)};
}

uint32_t ParseNumber(std::string_view text, uint32_t highest, const char* what) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number > highest) {
        throw std::invalid_argument(std::string(what) + " is a number from 0 to " + std::to_string(highest) +
                                    ", not '" + std::string(text) + "'");
    }
    return number;
}

bool ParseSwitch(std::string_view text) {
    if (text == "on") return true;
    if (text == "off") return false;
    throw std::invalid_argument("'on' or 'off' is needed, not '" + std::string(text) + "'");
}

std::pair<uint8_t, std::string> ParseBarcode(std::string_view text) {
    const auto [type, data] = SplitWord(text);
    return {static_cast<uint8_t>(ParseNumber(type, 255, "the code type")), Unescape(data)};
}

// What stands behind a backslash for a byte, in pairs of the letter and the byte.
constexpr std::string_view kSimpleEscapes = "n\nr\rt\ta\ab\bf\fv\v\\\\''\"\"??";

struct NumberForm {
    size_t mostDigits;
    int base;
};
constexpr NumberForm kOctal{.mostDigits = 3, .base = 8};
constexpr NumberForm kHexadecimal{.mostDigits = 2, .base = 16};

// Takes the digits of a number off the front; none at all is an error.
char TakeDigits(std::string_view& text, const NumberForm& form) {
    unsigned number = 0;
    const size_t size = std::min(form.mostDigits, text.size());
    const auto [end, error] = std::from_chars(text.data(), text.data() + size, number, form.base);
    if (error != std::errc{} || number > 255) {
        throw std::invalid_argument("a number from 0 to 255 is needed behind a backslash");
    }
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return static_cast<char>(number);
}

char TakeEscape(std::string_view& text) {
    if (text.empty()) throw std::invalid_argument("nothing stands behind the last backslash");
    if (text.front() >= '0' && text.front() <= '7') return TakeDigits(text, kOctal);
    const char letter = text.front();
    text.remove_prefix(1);
    if (letter == 'x') return TakeDigits(text, kHexadecimal);
    for (size_t i = 0; i < kSimpleEscapes.size(); i += 2) {
        if (kSimpleEscapes[i] == letter) return kSimpleEscapes[i + 1];
    }
    throw std::invalid_argument(std::string("unknown escape '\\") + letter + "'");
}

std::string Describe(const HostPacket& packet) {
    switch (packet.opcode) {
        case OpcodeQuerySetting:
            return " kind=query of=" + Hex(packet.parameters.substr(0, 1)) +
                   " number=" + Hex(packet.parameters.substr(1));
        case OpcodeVersion: return " kind=version";
        case OpcodeBarcode: return " kind=pattern";
        default: break;
    }
    if (!IsSettingOpcode(packet.opcode)) return " kind=other";
    const SettingChange change = ParseSetting(packet.opcode, packet.parameters);
    return " kind=setting number=" + Hex(change.key.number) + " value=" + Hex(change.value);
}

}  // namespace

std::string Unescape(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        const char letter = text.front();
        text.remove_prefix(1);
        bytes += letter == '\\' ? TakeEscape(text) : letter;
    }
    return bytes;
}

void LineOutput::Write(const std::string& line) {
    const std::lock_guard lock(m_Mutex);
    std::fputs((line + "\n").c_str(), m_Stream);
    std::fflush(m_Stream);
}

void EventWriter::OnPacket(const HostPacket& packet) {
    if (!packet.valid) {
        m_Output.Write("noise bytes=" + Hex(packet.received));
        return;
    }
    m_Output.Write("packet opcode=" + Hex(packet.opcode) + " status=" + Hex(packet.status) +
                   " parameters=" + Hex(packet.parameters) + Describe(packet));
}

void EventWriter::OnAnswer(const std::string& frame) {
    m_Output.Write("answer bytes=" + Hex(frame));
}

void EventWriter::OnHost(bool connected) {
    m_Output.Write(connected ? "host connected" : "host disconnected");
}

struct Console::Command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    void (Console::*run)(std::string_view rest);
};

const Console::Command Console::kCommands[] = {
    {"scan", "<code type> <data>", "sends a barcode", &Console::Scan},
    {"plain", "<data>", "sends bytes as they are, without a frame", &Console::Plain},
    {"unplug", "", "pulls the scanner", &Console::Unplug},
    {"plug", "", "plugs it in again, settings kept", &Console::Plug},
    {"fault", "checksum|length|truncate", "spoils the next barcode or answer", &Console::SetFault},
    {"delay", "<ms>", "answers so much later", &Console::SetDelay},
    {"silent", "on|off", "doesn't answer", &Console::SetSilent},
    {"refuse", "on|off", "answers with an error, changes no setting", &Console::SetRefuse},
    {"pieces", "<bytes>", "answers in pieces of so many bytes; 0 for whole", &Console::SetPieces},
    {"interrupt", "<code type> <data>", "sends a barcode before the next answer", &Console::SetInterrupt},
    {"store", "<opcode> <number> <value>", "keeps a setting, all in hexadecimal", &Console::Store},
    {"settings", "", "lists the settings that hosts have set", &Console::ListSettings},
    {"help", "", "lists the commands", &Console::ShowHelp},
    {"quit", "", "ends the program, as the end of the input does", &Console::Quit},
};

std::string Console::Help() {
    std::string text = "Commands, one a line on standard input; <data> takes the escapes of C, such as \\x1d:\n";
    for (const Command& command : kCommands) {
        std::string usage = std::string(command.name) + " " + std::string(command.arguments);
        usage.resize(std::max<size_t>(usage.size() + 1, 32), ' ');
        text += "  " + usage + std::string(command.help) + "\n";
    }
    return text +
           "\nLines on standard output; bytes and opcodes are hexadecimal. Each command writes one of "
           "these:\n"
           "  plugged path=<path>             what hosts open\n"
           "  unplugged\n"
           "  sent type=<n> length=<n>        a barcode is with the system; type=- for a plain one\n"
           "  lost type=<n> length=<n> reason=no-host|unplugged\n"
           "  settings count=<n>              after one line a setting:\n"
           "    setting opcode=<> number=<> value=<>\n"
           "  ok <command>\n"
           "  error <text>\n"
           "and a host causes these:\n"
           "  host connected                  over USB alone\n"
           "  host disconnected\n"
           "  packet opcode=<> status=<> parameters=<> kind=setting number=<> value=<>\n"
           "         or kind=query of=<opcode> number=<>, kind=version, kind=pattern, kind=other\n"
           "  noise bytes=<>                  bytes that are no packet\n"
           "  answer bytes=<>                 the scanner has answered\n"
           "\nExit status: 0; 1 if a command wrote an error, or the scanner couldn't be made; 2 for a wrong option.\n";
}

bool Console::Execute(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const auto [name, rest] = SplitWord(line);
    if (name.empty() || name.front() == '#') return true;
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [&name = name](const Command& row) { return row.name == name; });
    try {
        if (command == std::end(kCommands)) {
            throw std::invalid_argument("unknown command '" + std::string(name) + "'; 'help' lists them");
        }
        if (command->arguments.empty() && !rest.empty()) {
            throw std::invalid_argument("'" + std::string(name) + "' takes nothing behind it");
        }
        (this->*command->run)(rest);
    } catch (const std::exception& error) {
        m_HadError = true;
        m_Output.Write(std::string("error ") + error.what());
    }
    return !m_Quit;
}

void Console::Report(Delivery delivery, const std::string& what) {
    switch (delivery) {
        case Delivery::Sent: m_Output.Write("sent " + what); return;
        case Delivery::NoHost: m_Output.Write("lost " + what + " reason=no-host"); return;
        case Delivery::Unplugged: m_Output.Write("lost " + what + " reason=unplugged"); return;
    }
}

void Console::Scan(std::string_view rest) {
    const auto [type, data] = ParseBarcode(rest);
    Report(m_Scanner.Scan(type, data), "type=" + std::to_string(type) + " length=" + std::to_string(data.size()));
}

void Console::Plain(std::string_view rest) {
    const std::string data = Unescape(rest);
    Report(m_Scanner.Plain(data), "type=- length=" + std::to_string(data.size()));
}

void Console::Plug(std::string_view) {
    m_Scanner.Plug();
    m_Output.Write("plugged path=" + m_Scanner.HostPath());
}

void Console::Unplug(std::string_view) {
    m_Scanner.Unplug();
    m_Output.Write("unplugged");
}

void Console::SetFault(std::string_view rest) {
    constexpr std::pair<std::string_view, Fault> kFaults[] = {
        {"checksum", Fault::Checksum}, {"length", Fault::Length}, {"truncate", Fault::Truncate}};
    for (const auto& [name, fault] : kFaults) {
        if (rest != name) continue;
        m_Scanner.SetFault(fault);
        m_Output.Write("ok fault");
        return;
    }
    throw std::invalid_argument("a fault is checksum, length or truncate, not '" + std::string(rest) + "'");
}

void Console::SetDelay(std::string_view rest) {
    constexpr uint32_t kLongestMs = 600'000;
    m_Scanner.SetDelay(ParseNumber(rest, kLongestMs, "the delay"));
    m_Output.Write("ok delay");
}

void Console::SetSilent(std::string_view rest) {
    m_Scanner.SetSilent(ParseSwitch(rest));
    m_Output.Write("ok silent");
}

void Console::SetRefuse(std::string_view rest) {
    m_Scanner.SetRefuse(ParseSwitch(rest));
    m_Output.Write("ok refuse");
}

void Console::SetPieces(std::string_view rest) {
    constexpr uint32_t kLargest = 255;
    m_Scanner.SetPieces(ParseNumber(rest, kLargest, "the size of a piece"));
    m_Output.Write("ok pieces");
}

void Console::SetInterrupt(std::string_view rest) {
    const auto [type, data] = ParseBarcode(rest);
    m_Scanner.SetInterrupt(type, data);
    m_Output.Write("ok interrupt");
}

void Console::Store(std::string_view rest) {
    const auto [opcode, key] = SplitWord(rest);
    const auto [number, value] = SplitWord(key);
    const std::string opcodeByte = ParseHexText(opcode);
    if (opcodeByte.size() != 1) throw std::invalid_argument("an opcode is one byte, not '" + std::string(opcode) + "'");
    m_Scanner.StoreSetting({static_cast<uint8_t>(opcodeByte[0]), ParseHexText(number)}, ParseHexText(value));
    m_Output.Write("ok store");
}

void Console::ListSettings(std::string_view) {
    const auto settings = m_Scanner.Settings();
    for (const auto& [key, value] : settings) {
        m_Output.Write("setting opcode=" + Hex(key.opcode) + " number=" + Hex(key.number) + " value=" + Hex(value));
    }
    m_Output.Write("settings count=" + std::to_string(settings.size()));
}

void Console::ShowHelp(std::string_view) {
    for (const std::string& line : Split(Help(), '\n')) m_Output.Write("# " + line);
    m_Output.Write("ok help");
}

void Console::Quit(std::string_view) {
    m_Quit = true;
    m_Output.Write("ok quit");
}

}  // namespace quillet::tools
