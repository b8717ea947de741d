// Barcode retrieval calls.
#include "api/handle/scanner_object.h"
#include "platform/clock.h"
#include "service/property.h"
#include "service/scope_exit.h"

namespace quillet {
namespace {

// The instants at which a time-out is looked at lie this far apart.
constexpr int64_t kPollMs = 100;

// Waits for barcodes in slices of kPollMs, on one stopwatch.
class BarcodeWait {
  public:
    BarcodeWait(CScanner& scanner, int64_t timeoutMs)
        : m_Scanner(scanner), m_TimeoutMs(timeoutMs), m_StartNs(platform::TheClock().NowNs()) {}

    // Takes a barcode, waiting for it; 112 at the time-out, or when the handle is about to go.
    int32_t Take(int32_t* codeType, const CallerBuffer& buffer) {
        int32_t result = ResultTimeout;
        for (;;) {
            if (m_Scanner.TakeBarcode(codeType, buffer, result)) return result;
            if (m_Scanner.WaitsAreEnded() || (m_TimeoutMs >= 0 && ElapsedMs() > m_TimeoutMs)) return ResultTimeout;
            if (WaitSlice(codeType, buffer, result)) return result;
        }
    }

  private:
    // One slice, or the whole wait if it has no limit. A barcode ends it at once; if another thread takes it
    // first, the rest of the slice goes on. True with a barcode taken.
    bool WaitSlice(int32_t* codeType, const CallerBuffer& buffer, int32_t& result) {
        const int64_t sliceEnd = ElapsedMs() + kPollMs;
        for (;;) {
            const int64_t leftMs = m_TimeoutMs < 0 ? platform::kNoLimitMs : sliceEnd - ElapsedMs();
            if (leftMs <= 0 || m_Scanner.WaitsAreEnded()) return false;
            m_Scanner.WaitForBarcode(static_cast<uint32_t>(leftMs));
            if (m_Scanner.TakeBarcode(codeType, buffer, result)) return true;
        }
    }

    int64_t ElapsedMs() const { return (platform::TheClock().NowNs() - m_StartNs) / 1'000'000; }

    CScanner& m_Scanner;
    const int64_t m_TimeoutMs;
    const int64_t m_StartNs;
};

int32_t GetBarcode(CScanner& scanner, int32_t* codeType, const CallerBuffer& buffer, int64_t timeoutMs) {
    int32_t result = ResultSuccess;
    if (scanner.TakeBarcode(codeType, buffer, result)) return result;  // DataEventEnabled isn't touched
    BarcodeWait wait(scanner, timeoutMs);
    scanner.SetPropertyNumber(PropDataEventEnabled, 1);
    ScopeExit disarm([&] { scanner.SetPropertyNumber(PropDataEventEnabled, 0); });
    return wait.Take(codeType, buffer);
}

}  // namespace
}  // namespace quillet

using namespace quillet;

ResultCode getBarCode(ScannerHandle handle, int32_t* codeType, uint8_t* buffer, int32_t bufferSize, int32_t* length,
                      int64_t timeoutMs) {
    if (handle == nullptr || buffer == nullptr || bufferSize <= 0 || length == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] {
        const CallerBuffer result{buffer, CallerLength(bufferSize), length};
        return GetBarcode(HandleCall(handle).Scanner(), codeType, result, timeoutMs);
    });
}

ResultCode getBarCodeCacheCount(ScannerHandle handle, int32_t* count) {
    if (handle == nullptr || count == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return HandleCall(handle).Scanner().GetPropertyNumber(PropDataCount, count); });
}
