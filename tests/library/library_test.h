// SPDX-License-Identifier: MIT
// What the tests of the whole library share: handles, scanners, barcodes.
#pragma once

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

#include <quillet/quillet.h>

#include "support/virtual_scanner.h"

namespace quillet::test {

using test::ScannerLink;
using test::VirtualScanner;

// How long a test waits for what is to happen at once: a busy machine may take its time.
inline constexpr int kPatienceMs = 20'000;

struct Barcode {
    ResultCode result = ResultFailure;
    int32_t type = -1;
    std::string text;

    friend bool operator==(const Barcode&, const Barcode&) = default;
};

void PrintTo(const Barcode& barcode, std::ostream* out);

// A scanner handle that is destroyed with the object.
class Handle {
  public:
    Handle() : m_Handle(createScanner()) {}
    ~Handle() { Destroy(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator ScannerHandle() const { return m_Handle; }
    void Destroy();
    // Somebody else has destroyed it.
    void Forget() { m_Handle = nullptr; }

    int32_t State() const;
    int32_t CacheCount() const;
    Barcode Take(int64_t timeoutMs = kPatienceMs, int32_t bufferSize = 8192) const;

  private:
    ScannerHandle m_Handle;
};

inline constexpr int kPort = 100;

class LibraryTest : public ::testing::Test {
  protected:
    // Plugged in.
    static std::unique_ptr<VirtualScanner> NewScanner(ScannerLink link, int port = kPort,
                                                      const std::string& serialNumber = "1234567890");
    static std::string ConnectionOf(ScannerLink link);
};

// Scans one barcode and waits until it is in the cache. Over a serial line two that follow each other too
// fast are one read, and the second is dropped; with the wait a busy machine does no harm.
void ScanAndWait(VirtualScanner& scanner, const Handle& handle, uint8_t codeType, const std::string& text);

// True as soon as the condition holds; false after the time.
bool Eventually(const std::function<bool()>& condition, int timeoutMs = kPatienceMs);

int64_t MonotonicMs();

// How often a test repeats itself; the environment variable asks for a longer run than the usual one.
int Repetitions(const char* variable, int usual);

std::string LinkName(const ::testing::TestParamInfo<ScannerLink>& info);

}  // namespace quillet::test
