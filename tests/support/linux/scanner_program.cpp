// SPDX-License-Identifier: MIT
#include "support/process.h"
#include "support/virtual_scanner.h"

namespace quillet::test {

struct ScannerProgram::Impl {
    ChildProcess process;
};

ScannerProgram::ScannerProgram(const ScannerOptions& options)
    : m_Impl(new Impl{{VIRTUAL_SCANNER, ArgumentsOf(options)}}) {}

ScannerProgram::~ScannerProgram() = default;

void ScannerProgram::Write(const std::string& text) {
    m_Impl->process.Write(text);
}

std::string ScannerProgram::ReadLine() {
    return m_Impl->process.ReadLine();
}

void ScannerProgram::CloseInput() {
    m_Impl->process.CloseInput();
}

void ScannerProgram::Kill() {
    m_Impl->process.Kill();
}

// It registers itself.
void ScannerProgram::Announce() {}
void ScannerProgram::Withdraw() {}

}  // namespace quillet::test
