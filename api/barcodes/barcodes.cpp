// SPDX-License-Identifier: MIT
// Barcode retrieval calls.
#include <optional>
#include <utility>

#include "api/handle/scanner_object.h"
#include "platform/clock.h"
#include "service/property.h"

namespace quillet {
namespace {

// How often a wait checks whether its time is over.
constexpr int64_t kPollMs = 100;

// Keeps the property DataEventEnabled on while a call waits for a barcode.
class DataEvents {
  public:
    explicit DataEvents(CScanner& scanner) : m_Scanner(scanner) {
        m_Scanner.SetPropertyNumber(PropDataEventEnabled, 1);
    }
    ~DataEvents() { SwitchOff(); }
    DataEvents(const DataEvents&) = delete;
    DataEvents& operator=(const DataEvents&) = delete;

    // Does nothing the second time. Allocates no memory, so it can't fail.
    void SwitchOff() {
        if (std::exchange(m_On, false)) m_Scanner.SetPropertyNumber(PropDataEventEnabled, 0);
    }

  private:
    CScanner& m_Scanner;
    bool m_On = true;
};

// Where a call's barcode goes, and what came of it.
struct BarcodeTaking {
    CScanner& scanner;
    int32_t* codeType;  // may be null
    const CallerBuffer& buffer;
    ResultCode result = ResultTimeout;

    // False if there is none.
    bool Try(DataEvents* armed, CScanner::EmptyPoll emptyPoll = CScanner::EmptyPoll::Shown) {
        std::optional<CachedBarcode> barcode = scanner.PollBarcode(emptyPoll);
        if (!barcode) return false;
        if (armed != nullptr) armed->SwitchOff();
        result = scanner.HandOver(*std::move(barcode), codeType, buffer);
        return true;
    }
};

// Waits for barcodes in slices of kPollMs, on one stopwatch.
class BarcodeWait {
  public:
    BarcodeWait(BarcodeTaking& taking, int64_t timeoutMs)
        : m_Taking(taking), m_TimeoutMs(timeoutMs), m_StartNs(platform::TheClock().NowNs()), m_Armed(taking.scanner) {}

    // Until a barcode is taken, the time is over, or the handle is about to go.
    void Run() {
        for (;;) {
            if (m_Taking.Try(&m_Armed)) return;
            if (m_Taking.scanner.WaitsAreEnded() || (m_TimeoutMs >= 0 && ElapsedMs() > m_TimeoutMs)) return;
            if (RunSlice()) return;
        }
    }

  private:
    // One slice, or the whole wait if it has no limit. A barcode ends it at once; if another thread takes it first, the
    // rest of the slice goes on. True with a barcode taken.
    bool RunSlice() {
        const int64_t sliceEnd = ElapsedMs() + kPollMs;
        for (;;) {
            const int64_t leftMs = m_TimeoutMs < 0 ? platform::kNoLimitMs : sliceEnd - ElapsedMs();
            if (leftMs <= 0 || m_Taking.scanner.WaitsAreEnded()) return false;
            m_Taking.scanner.WaitForBarcode(static_cast<uint32_t>(leftMs));
            if (m_Taking.Try(&m_Armed, CScanner::EmptyPoll::Silent)) return true;
        }
    }

    int64_t ElapsedMs() const { return (platform::TheClock().NowNs() - m_StartNs) / 1'000'000; }

    BarcodeTaking& m_Taking;
    const int64_t m_TimeoutMs;
    const int64_t m_StartNs;
    DataEvents m_Armed;
};

ResultCode GetBarcode(BarcodeTaking taking, int64_t timeoutMs) {
    if (!taking.Try(nullptr)) BarcodeWait(taking, timeoutMs).Run();
    return taking.result;
}

}  // namespace
}  // namespace quillet

using namespace quillet;

ResultCode getBarCode(ScannerHandle handle, int32_t* codeType, uint8_t* buffer, int32_t bufferSize, int32_t* length,
                      int64_t timeoutMs) {
    if (handle == nullptr || buffer == nullptr || bufferSize <= 0 || length == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] {
        const CallerBuffer result{buffer, CallerLength(bufferSize), length};
        HandleCall call(handle);
        return GetBarcode({call.Scanner(), codeType, result}, timeoutMs);
    });
}

ResultCode getBarCodeCacheCount(ScannerHandle handle, int32_t* count) {
    if (handle == nullptr || count == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return HandleCall(handle).Scanner().GetPropertyNumber(PropDataCount, count); });
}
