// SPDX-License-Identifier: MIT
// What a debugger learns of a thread's name.
#include <windows.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "platform/thread.h"
#include "platform/windows/unique_handle.h"

namespace quillet::platform {
namespace {

constexpr DWORD kThreadNameException = 0x406D1388;

// The program of THREAD_NAMER under this debugger.
class Debuggee {
  public:
    Debuggee() {
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        if (::CreateProcessA(THREAD_NAMER, nullptr, nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                             &startup, &started) == FALSE) {
            throw std::runtime_error("CreateProcessA");
        }
        m_Process = UniqueHandle(started.hProcess);
        m_Thread = UniqueHandle(started.hThread);
        m_ThreadId = started.dwThreadId;
    }

    // Runs it to its end, noting the naming exception down and leaving it to the program.
    DWORD Run() {
        DEBUG_EVENT event{};
        while (::WaitForDebugEvent(&event, 30000) != FALSE) {
            const bool ended = event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT;
            if (ended) m_ExitCode = event.u.ExitProcess.dwExitCode;
            ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, Answer(event));
            if (ended) break;
        }
        return m_ExitCode;
    }

    std::string TextAt(ULONG_PTR address) const {
        char text[64] = {};
        ::ReadProcessMemory(m_Process.Get(), reinterpret_cast<const void*>(address), text, sizeof text - 1, nullptr);
        return text;
    }
    DWORD ThreadId() const { return m_ThreadId; }

    EXCEPTION_RECORD m_Naming{};
    std::string m_Name;

  private:
    DWORD Answer(const DEBUG_EVENT& event) {
        if (event.dwDebugEventCode != EXCEPTION_DEBUG_EVENT) return DBG_CONTINUE;
        const EXCEPTION_RECORD& record = event.u.Exception.ExceptionRecord;
        if (record.ExceptionCode != kThreadNameException) return DBG_CONTINUE;
        m_Naming = record;
        m_Name = TextAt(record.ExceptionInformation[1]);
        return DBG_EXCEPTION_NOT_HANDLED;
    }

    UniqueHandle m_Process;
    UniqueHandle m_Thread;
    DWORD m_ThreadId = 0;
    DWORD m_ExitCode = STILL_ACTIVE;
};

TEST(ThreadName, IsToldToADebuggerByAnExceptionThatTheProgramSurvives) {
    Debuggee program;
    EXPECT_EQ(program.Run(), 0U);
    EXPECT_EQ(program.m_Naming.ExceptionFlags, 0U);
    ASSERT_EQ(program.m_Naming.NumberParameters, 3U);
    EXPECT_EQ(program.m_Naming.ExceptionInformation[0] & 0xFFFFFFFF, 0x1000U);
    EXPECT_EQ(program.m_Name, "a name for the debugger");
    EXPECT_EQ(program.m_Naming.ExceptionInformation[2], program.ThreadId()) << "the id, and flags of 0 above it";
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
}  // namespace quillet::platform
