// SPDX-License-Identifier: MIT
// What the tests of the whole library share: handles, scanners, barcodes.
#pragma once

#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <quillet/quillet.h>

#include "foundation/text.h"
#include "support/eventually.h"
#include "support/process.h"
#include "support/virtual_scanner.h"

namespace quillet::test {

// How long a test waits for what is to happen at once: a busy machine may take its time.
inline constexpr int kPatienceMs = 20'000;
inline constexpr int kPort = 100;

struct Barcode {
    ResultCode result = ResultFailure;
    int32_t type = -1;
    std::string text;

    friend bool operator==(const Barcode&, const Barcode&) = default;
};

inline void PrintTo(const Barcode& barcode, std::ostream* out) {
    *out << "result " << barcode.result << ", type " << barcode.type << ", " << barcode.text.size()
         << " bytes: " << ToAsciiText(barcode.text.substr(0, 80));
}

// A scanner handle that is destroyed with the object.
class Handle {
  public:
    Handle() : m_Handle(createScanner()) {}
    ~Handle() { Destroy(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator ScannerHandle() const { return m_Handle; }
    void Destroy() {
        if (m_Handle != nullptr) destoryScanner(m_Handle);
        Forget();
    }
    // Somebody else has destroyed it.
    void Forget() { m_Handle = nullptr; }

    int32_t State() const {
        int32_t state = 0;
        getScannnerState(m_Handle, &state);
        return state;
    }
    int32_t CacheCount() const {
        int32_t count = -1;
        getBarCodeCacheCount(m_Handle, &count);
        return count;
    }
    Barcode Take(int64_t timeoutMs = kPatienceMs, int32_t bufferSize = 8192) const {
        Barcode barcode;
        std::vector<uint8_t> buffer(static_cast<size_t>(bufferSize), 0xCC);
        int32_t length = 0;
        barcode.result = getBarCode(m_Handle, &barcode.type, buffer.data(), bufferSize, &length, timeoutMs);
        if (barcode.result == ResultSuccess) barcode.text.assign(buffer.begin(), buffer.begin() + length);
        return barcode;
    }

  private:
    ScannerHandle m_Handle;
};

// Plugged in.
inline std::unique_ptr<VirtualScanner> NewScanner(ScannerLink link, int port = kPort,
                                                  const std::string& serialNumber = "1234567890") {
    return std::make_unique<VirtualScanner>(ScannerOptions{link, port, serialNumber});
}

inline std::string ConnectionOf(ScannerLink link) {
    const std::string port = std::to_string(kPort);
    switch (link) {
        case ScannerLink::Usb: return "protocol=usb";
        case ScannerLink::VirtualSerial: return "protocol=virtual serial port,serialport=" + port;
        default: return "protocol=serial port,serialport=" + port + ",baudrate=115200";
    }
}

inline ResultCode Open(const Handle& handle, ScannerLink link) {
    return openScanner(handle, ConnectionOf(link).c_str());
}

// Scans one barcode and waits until it is in the cache. Over a serial line two that follow each other too
// fast are one read, and the second is dropped; with the wait a busy machine does no harm.
inline void ScanAndWait(VirtualScanner& scanner, const Handle& handle, uint8_t codeType, const std::string& text) {
    const int32_t before = handle.CacheCount();
    scanner.Scan(codeType, text);
    EXPECT_TRUE(Eventually([&] { return handle.CacheCount() > before; })) << "not received: " << ToAsciiText(text);
}

inline int64_t MonotonicMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// A scanner over the link of the parameter.
class LinkTest : public ::testing::TestWithParam<ScannerLink> {
  protected:
    const std::string m_Connection = ConnectionOf(GetParam());
    const std::unique_ptr<VirtualScanner> m_Scanner = NewScanner(GetParam());
};

// The same, with a handle that has opened it.
class OpenLinkTest : public LinkTest {
  protected:
    OpenLinkTest() { EXPECT_EQ(Open(m_Handle, GetParam()), ResultSuccess); }

    Handle m_Handle;
};

inline const auto kAllLinks = ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial, ScannerLink::Serial);
inline const auto kBothParsers = ::testing::Values(ScannerLink::Usb, ScannerLink::VirtualSerial);

}  // namespace quillet::test
