// SPDX-License-Identifier: MIT
// A link that keeps what the calls send, in place of the one that a scanner's handle leads to.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <quillet/quillet.h>

namespace quillet::test {

struct FakeLink {
    std::vector<std::string> sent;   // wire forms
    std::deque<ResultCode> results;  // of the next sendings; then lastResult
    ResultCode lastResult = ResultSuccess;

    // The only packet since the last look, as "opcode parameters" in hexadecimal; "nothing", or how many.
    std::string TakeCommand();
    std::vector<std::string> TakeCommands();
};

// The one that SendOnHandle sends to, whatever the handle; a fresh one for each test.
FakeLink& TheFakeLink();
void RenewFakeLink();

// Any handle but null will do.
ScannerHandle SomeHandle();

}  // namespace quillet::test
