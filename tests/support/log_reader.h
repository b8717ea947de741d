// SPDX-License-Identifier: MIT
// Reads back what the process's log has written.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "foundation/log.h"
#include "foundation/paths.h"
#include "support/process.h"

namespace quillet::test {

inline std::filesystem::path LogDirectory() {
    return std::filesystem::path(GetExecutableDirectory()) / "log" / GetExecutableTitle();
}

inline std::string ReadFile(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline std::vector<std::filesystem::path> LogFilesOf(const std::string& prefix) {
    std::vector<std::filesystem::path> files;
    if (!std::filesystem::is_directory(LogDirectory())) return files;
    for (const auto& entry : std::filesystem::directory_iterator(LogDirectory())) {
        if (entry.path().filename().string().starts_with(prefix + "_")) files.push_back(entry.path());
    }
    return files;
}

inline void RemoveLogFilesOf(const std::string& prefix) {
    for (const auto& file : LogFilesOf(prefix)) std::filesystem::remove(file);
}

// Switches the process's log on, with a file of its own, for the time of its life.
class LogReader {
  public:
    explicit LogReader(int32_t level = LLAll) : m_Prefix("reader" + std::to_string(getpid())) {
        TheLog().SetFilePrefix(m_Prefix);
        TheLog().SetLevel(level);
        TheLog().Start();
    }
    ~LogReader() {
        TheLog().SetLevel(LLOFF);
        TheLog().ShutDown();
        RemoveLogFilesOf(m_Prefix);
    }
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    // The lines since the last call, from the level's name on: "LLInfo\t\t:text". Waits until the worker has written
    // them, which needs a level that keeps detail lines. What other threads log meanwhile may come with the next call.
    std::vector<std::string> Take() {
        const std::string mark = "end of part " + std::to_string(++m_Parts);
        LogInfo(mark);
        const std::string text = TextUpTo(mark);
        std::istringstream lines(text.substr(m_Read));
        m_Read = text.size();
        std::vector<std::string> taken;
        for (std::string line; std::getline(lines, line);) {
            line.resize(line.size() - (kLineEnd.size() - 1));
            taken.push_back(line.substr(line.find(", ") + 2));
        }
        taken.pop_back();
        return taken;
    }

  private:
    std::string TextUpTo(const std::string& mark) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            for (const auto& file : LogFilesOf(m_Prefix)) {
                const std::string text = ReadFile(file);
                const size_t end = text.find(mark + kLineEnd);
                if (end != std::string::npos) return text.substr(0, end + mark.size() + kLineEnd.size());
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        throw std::runtime_error("the log's worker has written no \"" + mark + "\"");
    }

    std::string m_Prefix;
    int m_Parts = 0;
    size_t m_Read = 0;
};

}  // namespace quillet::test
