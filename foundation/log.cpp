#include "foundation/log.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "foundation/no_destroy.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace quillet {
namespace {

// The tabs line the messages up and are part of each line.
constexpr std::array<std::string_view, 10> kLevelNames = {
    "LLAll\t\t\t", "LLDebug\t\t",   "LLWarnings\t", "LLError\t\t", "LLCritical\t",
    "LLFatal\t\t", "LLTraceIn\t\t", "LLTraceOut\t", "LLInfo\t\t",  "LLOFF\t\t\t"};

struct LogRecord {
    int32_t level;
    const std::string& message;
    const std::string& module;
    std::string threadId;
};

std::string_view LevelName(int32_t level) {
    const bool known = level >= 0 && static_cast<size_t>(level) < kLevelNames.size();
    return known ? kLevelNames[static_cast<size_t>(level)] : std::string_view{};
}

std::string TimeStamp() {
    const platform::LocalTime now = platform::TheClock().Local();
    char text[128];
    std::snprintf(text, sizeof text, "[%02d/%02d/%04d %02d:%02d:%02d.%03d]  ", now.month, now.day, now.year, now.hour,
                  now.minute, now.second, now.millisecond);
    return text;
}

std::string ComposeLine(const LogRecord& record) {
    std::string line = TimeStamp();
    line += "Thread Id: ";
    line += record.threadId;
    line += ", ";
    line += record.module;
    line += LevelName(record.level);
    line += ':';
    line += record.message;
    line += '\n';
    return line;
}

thread_local LogHold* t_Hold = nullptr;  // of the calling thread, or null

void WritePair(int32_t level, std::string_view first, std::string_view second) noexcept {
    if (!LogWanted(level)) return;
    try {
        std::string text;
        text.reserve(first.size() + second.size());
        text += first;
        text += second;
        log_detail::Write(level, text);
    } catch (...) {  // as in Write
    }
}

}  // namespace

myLogManager::~myLogManager() {
    ShutDown();
}

void myLogManager::SetFilePrefix(const std::string& prefix) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    file.SetPrefix(prefix);
}

void myLogManager::SetLevel(int32_t newLevel) {
    level.store(newLevel, std::memory_order_relaxed);
}

void myLogManager::Start() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    file.Open();
    if (pool) return;
    auto newPool = std::make_shared<mylib::ThreadPool>();
    newPool->Start();
    pool = std::move(newPool);
    running.store(true, std::memory_order_relaxed);
}

// The worker is joined with the lock held, so nothing that runs on it may log.
void myLogManager::Stop() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    running.store(false, std::memory_order_relaxed);
    pool.reset();
}

void myLogManager::ShutDown() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    Stop();
    file.Close();
}

void myLogManager::Log(int32_t lineLevel, const std::string& module, const std::string& message) {
    if (!Wants(lineLevel)) return;
    std::string line = ComposeLine({lineLevel, message, module, NumToString(platform::CurrentThreadId())});
    if (t_Hold != nullptr) {
        t_Hold->m_Lines.push_back(std::move(line));
    } else {
        Enqueue(std::move(line));
    }
}

void myLogManager::Enqueue(std::string line) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (pool) pool->Enqueue([this, line = std::move(line)] { WriteLine(line); });
}

void myLogManager::WriteLine(const std::string& line) {
    file.Write(line);
}

myLogManager& TheLog() noexcept {
    static NoDestroy<myLogManager> log;
    return log.Get();
}

void LogTraceIn(std::string_view prefix, std::string_view name) noexcept {
    WritePair(LLTraceIn, prefix, name);
}
void LogTraceOut(std::string_view prefix, std::string_view name) noexcept {
    WritePair(LLTraceOut, prefix, name);
}

LogHold::LogHold(bool hold) noexcept : m_Holding(hold) {
    if (m_Holding) t_Hold = this;
}

LogHold::~LogHold() {
    if (m_Holding) t_Hold = nullptr;
}

void LogHold::LetGo() noexcept {
    if (!std::exchange(m_Holding, false)) return;
    t_Hold = nullptr;
    try {
        for (std::string& line : m_Lines) TheLog().Enqueue(std::move(line));
    } catch (...) {  // as in Write
    }
    m_Lines.clear();
}

namespace log_detail {

void Write(int32_t level, std::string_view text) noexcept {
    if (!LogWanted(level)) return;
    try {
        TheLog().Log(level, std::string(), std::string(text));
    } catch (...) {  // no memory for a line is no reason to fail the operation that it tells of
    }
}

std::string Join(std::string_view format, const FormatValue& value) {
    return HasPlaceholder(format) ? FillIn(std::string(format), value) : std::string(format) + value.text;
}

}  // namespace log_detail
}  // namespace quillet
