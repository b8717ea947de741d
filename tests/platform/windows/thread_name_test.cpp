// SPDX-License-Identifier: MIT
// What a debugger learns of a thread's name.
#include <windows.h>
#include <gtest/gtest.h>
#include <string>

#include "platform/thread.h"
#include "platform/windows/unique_handle.h"

namespace quillet::test {
using namespace platform;
namespace {

TEST(ThreadName, IsToldToADebuggerByAnExceptionThatTheProgramSurvives) {
    constexpr DWORD kThreadNameException = 0x406D1388;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    ASSERT_TRUE(::CreateProcessA(CHILD, nullptr, nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                                 &startup, &started));
    const UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    EXCEPTION_RECORD naming{};
    char name[64] = {};
    DWORD exitCode = STILL_ACTIVE;
    DEBUG_EVENT event{};
    while (exitCode == STILL_ACTIVE && ::WaitForDebugEvent(&event, 30000) != FALSE) {
        DWORD answer = DBG_CONTINUE;
        const EXCEPTION_RECORD& record = event.u.Exception.ExceptionRecord;
        if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) exitCode = event.u.ExitProcess.dwExitCode;
        if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT && record.ExceptionCode == kThreadNameException) {
            naming = record;
            ::ReadProcessMemory(process.Get(), reinterpret_cast<const void*>(record.ExceptionInformation[1]), name,
                                sizeof name - 1, nullptr);
            answer = DBG_EXCEPTION_NOT_HANDLED;  // it is the program's own
        }
        ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
    }
    EXPECT_EQ(exitCode, 0U);
    EXPECT_EQ(naming.ExceptionFlags, 0U);
    ASSERT_EQ(naming.NumberParameters, 3U);
    EXPECT_EQ(naming.ExceptionInformation[0] & 0xFFFFFFFF, 0x1000U);
    EXPECT_STREQ(name, "a name for the debugger");
    EXPECT_EQ(naming.ExceptionInformation[2], started.dwThreadId) << "the id, and flags of 0 above it";
}

int g_Seen = 0;
LONG CALLBACK CountThem(EXCEPTION_POINTERS* /*exception*/) {
    ++g_Seen;
    return EXCEPTION_CONTINUE_SEARCH;
}

TEST(ThreadName, NeverReachesTheHostsOwnHandlers) {
    void* handler = ::AddVectoredExceptionHandler(1, &CountThem);
    SetCurrentThreadName("host");
    SetCurrentThreadName(nullptr);
    StartThread("thread", [] {}).Join();
    ::RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(g_Seen, 0);
}

}  // namespace
}  // namespace quillet::test
