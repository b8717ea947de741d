// SPDX-License-Identifier: MIT
// Debuggers take the name of a thread from an exception that the thread raises.
#include <windows.h>

#include "platform/thread.h"

namespace quillet::platform {
namespace {

constexpr DWORD kThreadNameException = 0x406D1388;
constexpr DWORD kRecordType = 0x1000;

struct ThreadNameRecord {
    DWORD type;
    const char* name;
    DWORD threadId;
    DWORD flags;
};

constexpr DWORD kRecordWords = sizeof(ThreadNameRecord) / sizeof(ULONG_PTR);
static_assert(kRecordWords == 3);

LONG CALLBACK GoOn(EXCEPTION_POINTERS* exception) {
    return exception->ExceptionRecord->ExceptionCode == kThreadNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                             : EXCEPTION_CONTINUE_SEARCH;
}

// In place only while a name is told, so that the host's own handlers and exceptions aren't met. It is asked
// about the exceptions of all threads, and takes this one alone.
class ExceptionHandler {
  public:
    ExceptionHandler() noexcept : m_Handle(::AddVectoredExceptionHandler(1, &GoOn)) {}
    ~ExceptionHandler() {
        if (IsInPlace()) ::RemoveVectoredExceptionHandler(m_Handle);
    }
    ExceptionHandler(const ExceptionHandler&) = delete;
    ExceptionHandler& operator=(const ExceptionHandler&) = delete;
    bool IsInPlace() const noexcept { return m_Handle != nullptr; }

  private:
    void* m_Handle;
};

}  // namespace

void SetCurrentThreadName(const char* name) noexcept {
    const ThreadNameRecord record{kRecordType, name, ::GetCurrentThreadId(), 0};
    const ExceptionHandler handler;
    if (name == nullptr || !handler.IsInPlace()) return;
    ::RaiseException(kThreadNameException, 0, kRecordWords, reinterpret_cast<const ULONG_PTR*>(&record));
}

}  // namespace quillet::platform
