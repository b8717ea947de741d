// SPDX-License-Identifier: MIT
#include "api/fake_link.h"

#include "api/handle_calls.h"
#include "support/hex.h"

namespace quillet::test {
namespace {

FakeLink g_Link;

}  // namespace

FakeLink& TheFakeLink() {
    return g_Link;
}
void RenewFakeLink() {
    g_Link = {};
}

ScannerHandle SomeHandle() {
    return &g_Link;
}

std::vector<std::string> FakeLink::TakeCommands() {
    std::vector<std::string> commands;
    for (const std::string& wire : sent) commands.push_back(Hex(wire.substr(1, 1) + wire.substr(4, wire.size() - 5)));
    sent.clear();
    return commands;
}

std::string FakeLink::TakeCommand() {
    const std::vector<std::string> commands = TakeCommands();
    if (commands.empty()) return "nothing";
    return commands.size() == 1 ? commands[0] : std::to_string(commands.size()) + " packets";
}

}  // namespace quillet::test

namespace quillet {

// Takes a null handle too: the calls are to refuse it before.
int32_t SendOnHandle(void*, CommandPacket& packet) noexcept {
    test::FakeLink& link = test::TheFakeLink();
    link.sent.push_back(ToWireBytes(packet));
    if (link.results.empty()) return link.lastResult;
    const ResultCode result = link.results.front();
    link.results.pop_front();
    return result;
}

}  // namespace quillet
