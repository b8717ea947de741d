// SPDX-License-Identifier: MIT
#include "library/library_test.h"

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "foundation/text.h"

namespace quillet::test {

void PrintTo(const Barcode& barcode, std::ostream* out) {
    *out << "result " << barcode.result << ", type " << barcode.type << ", " << barcode.text.size()
         << " bytes: " << ToAsciiText(barcode.text.substr(0, 80));
}

void Handle::Destroy() {
    if (m_Handle != nullptr) destoryScanner(m_Handle);
    m_Handle = nullptr;
}

int32_t Handle::State() const {
    int32_t state = 0;
    getScannnerState(m_Handle, &state);
    return state;
}

int32_t Handle::CacheCount() const {
    int32_t count = -1;
    getBarCodeCacheCount(m_Handle, &count);
    return count;
}

Barcode Handle::Take(int64_t timeoutMs, int32_t bufferSize) const {
    Barcode barcode;
    std::vector<uint8_t> buffer(static_cast<size_t>(bufferSize), 0xCC);
    int32_t length = 0;
    barcode.result = getBarCode(m_Handle, &barcode.type, buffer.data(), bufferSize, &length, timeoutMs);
    if (barcode.result == ResultSuccess) barcode.text.assign(buffer.begin(), buffer.begin() + length);
    return barcode;
}

std::unique_ptr<VirtualScanner> LibraryTest::NewScanner(ScannerLink link, int port, const std::string& serialNumber) {
    return std::make_unique<VirtualScanner>(ScannerOptions{link, port, serialNumber});
}

std::string LibraryTest::ConnectionOf(ScannerLink link) {
    const std::string port = std::to_string(kPort);
    switch (link) {
        case ScannerLink::Usb: return "protocol=usb";
        case ScannerLink::VirtualSerial: return "protocol=virtual serial port,serialport=" + port;
        default: return "protocol=serial port,serialport=" + port + ",baudrate=115200";
    }
}

void ScanAndWait(VirtualScanner& scanner, const Handle& handle, uint8_t codeType, const std::string& text) {
    const int32_t before = handle.CacheCount();
    scanner.Scan(codeType, text);
    EXPECT_TRUE(Eventually([&] { return handle.CacheCount() > before; })) << "not received: " << ToAsciiText(text);
}

bool Eventually(const std::function<bool()>& condition, int timeoutMs) {
    const int64_t end = MonotonicMs() + timeoutMs;
    while (!condition()) {
        if (MonotonicMs() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

int64_t MonotonicMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int Repetitions(const char* variable, int usual) {
    const char* wanted = std::getenv(variable);
    return wanted != nullptr ? std::atoi(wanted) : usual;
}

std::string LinkName(const ::testing::TestParamInfo<ScannerLink>& info) {
    return ::testing::PrintToString(info.param);
}

}  // namespace quillet::test
