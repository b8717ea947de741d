// SPDX-License-Identifier: MIT
// The log: one file for the process, off until the application asks for it.
//
// Every line goes through the functions at the end of this file. They may be called from any thread, never
// wait for the disk, and cost one comparison while the log is off. The log's own worker must not call them.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/format.h"
#include "foundation/log_file.h"
#include "foundation/no_destroy.h"
#include "foundation/text.h"
#include "foundation/thread_pool.h"

namespace quillet {

// The order is the filter's: a line is kept if its level is not below the threshold. Trace and detail lines
// rank above failures.
enum LogLevel : int32_t {
    LLAll = 0,  // a threshold only
    LLDebug = 1,
    LLWarnings = 2,
    LLError = 3,
    LLCritical = 4,
    LLFatal = 5,
    LLTraceIn = 6,
    LLTraceOut = 7,
    LLInfo = 8,
    LLOFF = 9  // a threshold that lets nothing through
};

// Parts of a message, which stand one behind the other in the line.
using MessagePieces = std::array<std::string_view, 3>;

class LogHold;

class LogManager {
  public:
    LogManager() = default;
    virtual ~LogManager();
    LogManager(const LogManager&) = delete;
    LogManager& operator=(const LogManager&) = delete;

    // Takes effect at the next opening of the file.
    void SetFilePrefix(const std::string& prefix);
    void SetLevel(int32_t level);
    // Opens the file, if it isn't open, and starts the worker, if there is none.
    void Start();
    // Ends the worker; lines still queued are lost and the file stays open.
    void Stop();
    // Stop, and closes the file: the next Start opens one named by the time of that Start.
    void ShutDown();

    void Log(int32_t level, std::string_view module, std::string_view message);
    // The same for a message in pieces.
    void LogPieces(int32_t level, std::string_view module, const MessagePieces& message);
    // Runs on the worker. Virtual for tests that want to know when a line is written.
    virtual void WriteLine(std::string_view line);

    // False if a line of this level would be dropped at once.
    bool Wants(int32_t level) const noexcept {
        return m_Running.load(std::memory_order_relaxed) && level >= m_Level.load(std::memory_order_relaxed);
    }

  private:
    friend class LogHold;
    template <typename Line>
    struct LineTask {  // made where the line is composed, and moved into the queue once
        void operator()() { log->WriteLine(line); }
        LogManager* log;
        Line line;
    };
    template <typename Line>
    void Enqueue(LineTask<Line>& task);  // moved from
    bool KeepBack(std::string_view line);

    LogFile m_File;                      // opened under m_Mutex before a worker exists; written by the worker alone
    std::shared_ptr<ThreadPool> m_Pool;  // guarded by m_Mutex; empty while the log is stopped
    std::recursive_mutex m_Mutex;        // held to swap m_Pool, to enqueue, and while Stop joins the worker
    std::atomic<int32_t> m_Level{LLWarnings};
    std::atomic<bool> m_Running{false};  // mirrors m_Pool for the test that takes no lock
    // The threads that keep lines back. Changed under m_Mutex; no thread_local, which leaks on Windows.
    std::atomic<LogHold*> m_Holds{nullptr};
};

namespace log_detail {

// Constructed when the library is loaded: construction on first use would add a check to every
// log line and could throw.
extern NoDestroy<LogManager> g_Log;

}  // namespace log_detail

// The process's log. Never destroyed, as threads may still log while the library is being unloaded.
inline LogManager& TheLog() noexcept {
    return log_detail::g_Log.Get();
}

inline bool LogWanted(int32_t level) noexcept {
    return TheLog().Wants(level);
}

// Bytes that are made into log text only if the line is kept.
struct HexOf {
    std::string_view bytes;
};
struct AsciiOf {
    std::string_view bytes;
};

namespace log_detail {

inline std::string ValueText(HexOf value) {
    return ToHexText(value.bytes);
}
inline std::string ValueText(AsciiOf value) {
    return ToAsciiText(value.bytes);
}
template <typename T>
const T& ValueText(const T& value) {
    return value;
}

// If there is no memory for a line, the line is lost; the operation that logs it goes on.
void WritePieces(int32_t level, const MessagePieces& message) noexcept;
// The value at the format's placeholder; directly behind the format if it holds none.
void WriteFilled(int32_t level, std::string_view format, const FormatValue& value) noexcept;

inline void Write(int32_t level, std::string_view text) noexcept {
    if (LogWanted(level)) WritePieces(level, {text});
}
inline void WritePair(int32_t level, std::string_view first, std::string_view second) noexcept {
    if (LogWanted(level)) WritePieces(level, {first, second});
}

template <typename T>
void WriteJoined(int32_t level, std::string_view format, const T& value) noexcept {
    if (!LogWanted(level)) return;
    try {
        WriteFilled(level, format, FormatValue(ValueText(value)));
    } catch (...) {  // as in WritePieces
    }
}

}  // namespace log_detail

inline void LogDebug(std::string_view text) noexcept {
    log_detail::Write(LLDebug, text);
}
inline void LogWarning(std::string_view text) noexcept {
    log_detail::Write(LLWarnings, text);
}
inline void LogError(std::string_view text) noexcept {
    log_detail::Write(LLError, text);
}
inline void LogCritical(std::string_view text) noexcept {
    log_detail::Write(LLCritical, text);
}
inline void LogInfo(std::string_view text) noexcept {
    log_detail::Write(LLInfo, text);
}

// A format and one value: a number, a truth value, a character, a text, HexOf or AsciiOf.
template <typename T>
void LogDebug(std::string_view format, const T& value) noexcept {
    log_detail::WriteJoined(LLDebug, format, value);
}
template <typename T>
void LogWarning(std::string_view format, const T& value) noexcept {
    log_detail::WriteJoined(LLWarnings, format, value);
}
template <typename T>
void LogError(std::string_view format, const T& value) noexcept {
    log_detail::WriteJoined(LLError, format, value);
}
template <typename T>
void LogCritical(std::string_view format, const T& value) noexcept {
    log_detail::WriteJoined(LLCritical, format, value);
}
template <typename T>
void LogInfo(std::string_view format, const T& value) noexcept {
    log_detail::WriteJoined(LLInfo, format, value);
}

inline void LogTraceIn(std::string_view prefix, std::string_view name) noexcept {
    log_detail::WritePair(LLTraceIn, prefix, name);
}
inline void LogTraceOut(std::string_view prefix, std::string_view name) noexcept {
    log_detail::WritePair(LLTraceOut, prefix, name);
}

// Writes ">>> name" now, and "<<< name" when the scope is left, by an exception too.
class LogTrace {
  public:
    explicit LogTrace(const char* name) noexcept : m_Name(name) { LogTraceIn(">>> ", m_Name); }
    ~LogTrace() { LogTraceOut("<<< ", m_Name); }
    LogTrace(const LogTrace&) = delete;
    LogTrace& operator=(const LogTrace&) = delete;

  private:
    const char* m_Name;
};

// Holds back the lines that the calling thread logs, for an attempt that is repeated for as long as it fails: lines are
// written only after LetGo, and dropped without it. At most one per thread at a time.
class LogHold {
  public:
    explicit LogHold(bool hold) noexcept;
    ~LogHold() { End(); }
    LogHold(const LogHold&) = delete;
    LogHold& operator=(const LogHold&) = delete;

    // Writes the lines held back so far, and ends the holding.
    void LetGo() noexcept;

  private:
    friend class LogManager;
    void End() noexcept;

    bool m_Holding;
    const uint32_t m_Thread;
    LogHold* m_Next = nullptr;         // of the log's list; guarded by its mutex
    std::vector<std::string> m_Lines;  // the thread's own
};

}  // namespace quillet
