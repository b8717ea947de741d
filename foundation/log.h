// The log: one file for the process, off until the application asks for it.
//
// Every line goes through the functions at the end of this file. They may be called from any thread, never
// wait for the disk, and cost one comparison while the log is off. The log's own worker must not call them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/format.h"
#include "foundation/log_file.h"
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

class ILog {
  public:
    virtual ~ILog() = default;
    virtual void SetLevel(int32_t level) = 0;
    virtual void Log(int32_t level, const std::string& module, const std::string& message) = 0;
    virtual void WriteLine(const std::string& line) = 0;
};

class myLogManager : public ILog {
  public:
    myLogManager() = default;
    ~myLogManager() override;

    // Takes effect at the next opening of the file.
    void SetFilePrefix(const std::string& prefix);
    void SetLevel(int32_t level) override;
    // Opens the file, if it isn't open, and starts the worker, if there is none.
    void Start();
    // Ends the worker; lines still queued are lost and the file stays open.
    void Stop();
    // Stop, and closes the file: the next Start opens one of a name of its own time.
    void ShutDown();

    void Log(int32_t level, const std::string& module, const std::string& message) override;
    // Runs on the worker.
    void WriteLine(const std::string& line) override;

    // False if a line of this level would be dropped at once.
    bool Wants(int32_t wantedLevel) const noexcept {
        return wantedLevel >= level.load(std::memory_order_relaxed) && running.load(std::memory_order_relaxed);
    }

  private:
    friend class LogHold;
    void Enqueue(std::string line);

    LogFile file;  // opened under `mutex` before a worker exists; written by the worker alone
    std::shared_ptr<mylib::ThreadPool> pool;  // guarded by `mutex`; empty while the log is stopped
    std::recursive_mutex mutex;               // held to swap `pool`, to enqueue, and while Stop joins the worker
    std::atomic<int32_t> level{LLWarnings};
    std::atomic<bool> running{false};  // mirrors `pool` for the test that takes no lock
};

// The process's log; lives until the library is unloaded, and past that for threads that are late.
myLogManager& TheLog() noexcept;

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

void Write(int32_t level, std::string_view text) noexcept;
// The value at the format's placeholder; directly behind the format if it holds none.
std::string Join(std::string_view format, const FormatValue& value);

template <typename T>
void WriteJoined(int32_t level, std::string_view format, const T& value) noexcept {
    if (!LogWanted(level)) return;
    try {
        Write(level, Join(format, FormatValue(ValueText(value))));
    } catch (...) {  // no memory for a line is no reason to fail the operation that it tells of
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

void LogTraceIn(std::string_view prefix, std::string_view name) noexcept;
void LogTraceOut(std::string_view prefix, std::string_view name) noexcept;

// Writes ">>> name" now and "<<< name" once, on whichever road the scope is left.
class LogTrace {
  public:
    explicit LogTrace(const char* name) noexcept : m_Name(name) { LogTraceIn(">>> ", m_Name); }
    ~LogTrace() { LogTraceOut("<<< ", m_Name); }
    LogTrace(const LogTrace&) = delete;
    LogTrace& operator=(const LogTrace&) = delete;

  private:
    const char* m_Name;
};

// Keeps back the lines of the calling thread until it is known whether they are worth writing: those of an attempt that
// is made again and again. What wasn't let go by the end is dropped. One at a time a thread.
class LogHold {
  public:
    explicit LogHold(bool hold) noexcept;
    ~LogHold();
    LogHold(const LogHold&) = delete;
    LogHold& operator=(const LogHold&) = delete;

    // Writes what was kept back; later lines are written as ever.
    void LetGo() noexcept;

  private:
    friend class myLogManager;
    bool m_Holding;
    std::vector<std::string> m_Lines;
};

}  // namespace quillet
