// SPDX-License-Identifier: MIT
// quillet-virtual-scanner: a barcode scanner without hardware, worked by lines on standard input.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include "tools/virtual_scanner/console.h"
#include "tools/virtual_scanner/device_side/command_input.h"
#include "tools/virtual_scanner/virtual_scanner.h"

namespace {

using quillet::tools::Console;
using quillet::tools::EventWriter;
using quillet::tools::LineOutput;
using quillet::tools::ScannerLink;
using quillet::tools::ScannerOptions;
using quillet::tools::VirtualScanner;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr uint32_t kSerialGapMs = 50;  // a host's read ends after 25 ms of quiet, later on a busy machine

struct ProgramOptions {
    ScannerOptions scanner;
    bool startUnplugged = false;
};

uint32_t ParseMode(const std::string& text) {
    uint32_t mode = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
    if (error != std::errc{} || end != text.data() + text.size() || mode > 0777) {
        throw CLI::ValidationError("--mode", "an octal number up to 0777 is needed, not '" + text + "'");
    }
    return mode;
}

void Describe(CLI::App& app, ProgramOptions& options) {
    static const std::map<std::string, ScannerLink> kLinks{
        {"usb", ScannerLink::Usb}, {"virtual-serial", ScannerLink::VirtualSerial}, {"serial", ScannerLink::Serial}};
    options.scanner.serialGapMs = kSerialGapMs;
    app.add_option("--link", options.scanner.link, "usb (default), virtual-serial or serial")
        ->transform(CLI::CheckedTransformer(kLinks).description(""))
        ->type_name("LINK");
    app.add_option("--port", options.scanner.port, "serial links: name of the port")->capture_default_str();
    app.add_option("--serial-number", options.scanner.serialNumber, "serial number that the scanner tells")
        ->capture_default_str();
    app.add_option("--devices-directory", options.scanner.devicesDirectory,
                   "where to register, instead of the user's own directory");
    app.add_option("--gap", options.scanner.serialGapMs, "serial links: ms of quiet between two sendings")
        ->capture_default_str()
        ->check(CLI::Range(0, 60'000));
    app.add_option_function<std::string>(
           "--mode", [&options](const std::string& text) { options.scanner.mode = ParseMode(text); },
           "who may open it, as permission bits in octal (default 0600, its owner alone; 0666 for all users)")
        ->type_name("OCTAL");
    app.add_flag("--unplugged", options.startUnplugged, "start unplugged");
    app.footer(Console::Help());
}

int Run(const ProgramOptions& options) {
    quillet::tools::CommandInput input;
    LineOutput output(stdout);
    EventWriter events(output);
    VirtualScanner scanner(options.scanner, &events);
    // Without this a barcode that no host takes would hold up the end of the program.
    input.WatchSignals([&scanner] { scanner.Unplug(); });
    Console console(scanner, output);
    if (!options.startUnplugged) console.Plug({});
    std::string line;
    while (input.Read(line) == quillet::tools::CommandInput::Next::Line && console.Execute(line)) {
    }
    return console.HadError() ? kExitFailure : 0;
}

}  // namespace

int main(int argc, char** argv) {
    ProgramOptions options;
    CLI::App app("A barcode scanner without hardware: applications on this machine find it among their devices.");
    Describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    try {
        return Run(options);
    } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "quillet-virtual-scanner: %s\n", error.what());
        return kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quillet-virtual-scanner: %s\n", error.what());
        return kExitFailure;
    }
}
