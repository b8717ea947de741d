// SPDX-License-Identifier: MIT
// Handle and connection calls.
#include <memory>
#include <mutex>

#include "api/handle/library.h"
#include "api/handle/scanner_object.h"
#include "api/handle_calls.h"
#include "foundation/log.h"
#include "platform/cancellation.h"
#include "service/property.h"

namespace quillet {
namespace {

constexpr uint32_t kClaimTimeoutMs = 1000;

int32_t ReadProperty(CScanner& scanner, int32_t number) {
    int32_t value = 0;
    scanner.GetPropertyNumber(number, &value);
    return value;
}

uint32_t ReadState(CScanner& scanner) {
    return static_cast<uint32_t>(ReadProperty(scanner, PropState));
}

// From closed through claimed to enabled; the first failure's number, or 0.
int32_t RunOpenSteps(CScanner& scanner, const char* connection, platform::WriteLimitScope& givingUp) {
    int32_t result = scanner.Open(connection);
    givingUp.End();  // the new link's writes have no limit
    if (result != ResultSuccess) return result;
    if (ReadState(scanner) < StateOpen) return ResultClosed;
    result = scanner.ClaimDevice(kClaimTimeoutMs);
    if (result != ResultSuccess) return result;
    if (ReadProperty(scanner, PropClaimed) == 0) return ResultNotClaimed;
    result = scanner.SetPropertyNumber(PropDeviceEnabled, 1);
    if (result != ResultSuccess) return result;
    return ReadState(scanner) < StateEnabled ? ResultDisabled : ResultSuccess;
}

}  // namespace

int32_t OpenScanner(ScannerObject& object, const char* connection) noexcept {
    CScanner& scanner = object.scanner;
    return Guarded(ResultOpenException, [&] {
        platform::WriteLimitScope givingUp =
            scanner.IsOpenAndNotEnabled() ? scanner.LimitWrites() : platform::WriteLimitScope();
        std::lock_guard lock(object.lifecycle);
        if (ReadState(scanner) == StateEnabled) return static_cast<int32_t>(ResultSuccess);
        const int32_t result =
            Guarded(ResultOpenException, [&] { return RunOpenSteps(scanner, connection, givingUp); });
        if (result != ResultSuccess) CloseScanner(object);
        return result;
    });
}

int32_t CloseScanner(ScannerObject& object) {
    const platform::WriteLimitScope limit = object.scanner.LimitWrites();
    std::lock_guard lock(object.lifecycle);
    return object.scanner.CloseService();
}

int32_t SendOnHandle(void* handle, CommandPacket& packet) noexcept {
    if (handle == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return HandleCall(handle).Scanner().SendPacket(packet); });
}

}  // namespace quillet

using namespace quillet;

ScannerHandle createScanner(void) {
    const platform::CancellationHeldOff heldOff;
    try {
        PrepareEnd();
        auto object = std::make_unique<ScannerObject>();
        AddLiveObject(object.get());
        return object.release();
    } catch (...) {
        return nullptr;
    }
}

ResultCode destoryScanner(ScannerHandle handle) {
    if (handle == nullptr) return ResultBadArgument;
    return Guarded(ResultSuccess, [&] {
        const std::unique_ptr<ScannerObject> object(static_cast<ScannerObject*>(handle));
        object->scanner.EndWaits();
        object->calls.WaitUntilEmpty();
        RemoveLiveObject(object.get());
        return ResultSuccess;
    });
}

ResultCode openScanner(ScannerHandle handle, const char* connection) {
    if (handle == nullptr || connection == nullptr) return ResultBadArgument;
    return OpenScanner(HandleCall(handle).Object(), connection);
}

ResultCode closeScanner(ScannerHandle handle) {
    if (handle == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return CloseScanner(HandleCall(handle).Object()); });
}

ResultCode getScannnerState(ScannerHandle handle, int32_t* state) {
    if (handle == nullptr || state == nullptr) return ResultBadArgument;
    return Guarded(ResultFailure, [&] { return HandleCall(handle).Scanner().GetPropertyNumber(PropState, state); });
}

ResultCode setScannerPattern(ScannerHandle handle, int32_t pattern) {
    if (handle == nullptr || (pattern != 0 && pattern != 1)) return ResultBadArgument;
    return Guarded(ResultFailure,
                   [&] { return HandleCall(handle).Scanner().SetPropertyNumber(PropScanDecodeData, pattern); });
}

ResultCode setLogLevel(int32_t level) {
    if (level < LLAll) return ResultBadArgument;
    return Guarded(ResultSuccess, [&] {
        if (level < LLOFF) {
            PrepareEnd();
            TheLog().SetFilePrefix("Quillet");
            TheLog().SetLevel(level);
            TheLog().Start();
        } else {
            TheLog().SetLevel(LLOFF);
            TheLog().Stop();
        }
        return ResultSuccess;
    });
}
