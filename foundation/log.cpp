// SPDX-License-Identifier: MIT
#include "foundation/log.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"

namespace quillet {
namespace {

// The tabs line the messages up and are part of each line.
constexpr std::array<std::string_view, 10> kLevelNames = {
    "LLAll\t\t\t:", "LLDebug\t\t:",   "LLWarnings\t:", "LLError\t\t:", "LLCritical\t:",
    "LLFatal\t\t:", "LLTraceIn\t\t:", "LLTraceOut\t:", "LLInfo\t\t:",  "LLOFF\t\t\t:"};

constexpr std::string_view kBeforeThread = "]  Thread Id: ";
constexpr std::string_view kBehindThread = ", ";
constexpr size_t kDateSize = std::string_view("[MM/DD/YYYY hh:mm:ss.mmm").size();

struct LogRecord {
    int32_t level;
    const MessagePieces& message;
    std::string_view module;
    FormatValue threadId;
};

std::string_view LevelName(int32_t level) {
    const bool known = level >= 0 && static_cast<size_t>(level) < kLevelNames.size();
    return known ? kLevelNames[static_cast<size_t>(level)] : ":";
}

// "00", "01" and so on to "99".
constexpr std::array<char, 200> kPairs = [] {
    std::array<char, 200> pairs{};
    for (size_t i = 0; i < pairs.size(); ++i) pairs[i] = static_cast<char>('0' + (i % 2 == 0 ? i / 20 : i / 2 % 10));
    return pairs;
}();

// The last two digits of the number.
char* PutPair(char* at, int number) {
    return std::copy_n(&kPairs[size_t{static_cast<unsigned>(number) % 100} * 2], 2, at);
}

char* PutText(char* at, std::string_view text) {
    return std::copy(text.begin(), text.end(), at);
}

char* PutDate(char* at, const platform::LocalTime& now) {
    at = PutPair(PutText(at, "["), now.month);
    at = PutPair(PutText(at, "/"), now.day);
    at = PutPair(PutText(at, "/"), now.year / 100);
    at = PutPair(at, now.year);
    at = PutPair(PutText(at, " "), now.hour);
    at = PutPair(PutText(at, ":"), now.minute);
    at = PutPair(PutText(at, ":"), now.second);
    *at++ = '.';
    *at++ = static_cast<char>('0' + now.millisecond / 100 % 10);
    return PutPair(at, now.millisecond);
}

// The text of a line, in memory of its own only if it is long.
class LineText {
  public:
    explicit LineText(const LogRecord& record) {
        const auto& [first, second, third] = record.message;
        const std::string_view thread = record.threadId.Text();
        const std::string_view level = LevelName(record.level);
        // One by one, and not in a loop over a list: the texts' places and sizes stay in registers.
        m_Size = kDateSize + kBeforeThread.size() + thread.size() + kBehindThread.size() + record.module.size() +
                 level.size() + first.size() + second.size() + third.size() + 1;
        if (!IsShort()) m_Long = std::make_unique_for_overwrite<char[]>(m_Size);
        char* at = PutDate(Begin(), platform::TheClock().Local());
        at = PutText(PutText(PutText(at, kBeforeThread), thread), kBehindThread);
        at = PutText(PutText(at, record.module), level);
        at = PutText(PutText(PutText(at, first), second), third);
        *at = '\n';
    }

    operator std::string_view() { return {Begin(), m_Size}; }

  private:
    bool IsShort() const { return m_Size <= m_Short.size(); }
    char* Begin() { return IsShort() ? m_Short.data() : m_Long.get(); }

    size_t m_Size;
    std::unique_ptr<char[]> m_Long;
    std::array<char, 160> m_Short;  // moved whole: cheaper than looking how much of it is used
};

}  // namespace

LogManager::~LogManager() {
    ShutDown();
}

void LogManager::SetFilePrefix(const std::string& prefix) {
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    m_File.SetPrefix(prefix);
}

void LogManager::SetLevel(int32_t level) {
    m_Level.store(level, std::memory_order_relaxed);
}

void LogManager::Start() {
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    m_File.Open();
    if (m_Pool) return;
    auto newPool = std::make_shared<ThreadPool>();
    newPool->Start();
    m_Pool = std::move(newPool);
    m_Running.store(true, std::memory_order_relaxed);
}

// The worker is joined with the lock held, so nothing that runs on it may log.
void LogManager::Stop() {
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    m_Running.store(false, std::memory_order_relaxed);
    m_Pool.reset();
}

void LogManager::ShutDown() {
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    Stop();
    m_File.Close();
}

void LogManager::Log(int32_t level, std::string_view module, std::string_view message) {
    LogPieces(level, module, {message});
}

void LogManager::LogPieces(int32_t level, std::string_view module, const MessagePieces& message) {
    if (!Wants(level)) return;
    LineTask<LineText> task{this, LineText({level, message, module, platform::CurrentThreadId()})};
    if (m_Holds.load(std::memory_order_relaxed) == nullptr || !KeepBack(task.line)) Enqueue(task);
}

// True if the calling thread holds its lines back. The relaxed load before is enough: a thread sees its own hold.
bool LogManager::KeepBack(std::string_view line) {
    const uint32_t caller = platform::CurrentThreadId();
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    for (LogHold* hold = m_Holds; hold != nullptr; hold = hold->m_Next) {
        if (hold->m_Thread != caller) continue;
        hold->m_Lines.emplace_back(line);
        return true;
    }
    return false;
}

template <typename Line>
void LogManager::Enqueue(LineTask<Line>& task) {
    std::lock_guard<std::recursive_mutex> lock(m_Mutex);
    if (m_Pool) m_Pool->Enqueue(std::move(task));
}

void LogManager::WriteLine(std::string_view line) {
    m_File.Write(line);
}

LogHold::LogHold(bool hold) noexcept : m_Holding(hold), m_Thread(platform::CurrentThreadId()) {
    if (!m_Holding) return;
    std::lock_guard<std::recursive_mutex> lock(TheLog().m_Mutex);
    m_Next = TheLog().m_Holds;
    TheLog().m_Holds = this;
}

void LogHold::End() noexcept {
    if (!std::exchange(m_Holding, false)) return;
    std::lock_guard<std::recursive_mutex> lock(TheLog().m_Mutex);
    LogHold* before = TheLog().m_Holds;
    if (before == this) TheLog().m_Holds = m_Next;
    for (; before != nullptr; before = before->m_Next) {
        if (before->m_Next == this) before->m_Next = m_Next;
    }
}

void LogHold::LetGo() noexcept {
    End();
    try {
        for (std::string& line : m_Lines) {
            LogManager::LineTask<std::string> task{&TheLog(), std::move(line)};
            TheLog().Enqueue(task);
        }
    } catch (...) {  // the line is lost, as in WritePieces
    }
    m_Lines.clear();
}

namespace log_detail {

NoDestroy<LogManager> g_Log;

void WritePieces(int32_t level, const MessagePieces& message) noexcept {
    try {
        TheLog().LogPieces(level, {}, message);
    } catch (...) {  // no memory for the line
    }
}

void WriteFilled(int32_t level, std::string_view format, const FormatValue& value) noexcept {
    try {
        const Placeholder place = FindPlaceholder(format);
        const std::string hex = place.hex ? value.Hex() : std::string();
        WritePieces(level,
                    {format.substr(0, place.at), place.hex ? hex : value.Text(), format.substr(place.at + place.size)});
    } catch (...) {  // as in WritePieces
    }
}

}  // namespace log_detail
}  // namespace quillet
