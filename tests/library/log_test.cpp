// SPDX-License-Identifier: MIT
// The log of a whole session, held against session.log: the steps of two threads, a line each, with the details and the ends
// that they log on the way behind them. What the other threads log depends on their timing.
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "library/library_test.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

std::string LogText() {
    std::string text;
    for (const auto& file : LogFilesOf("Quillet")) text += ReadFile(file);
    return text;
}

// Asking the library how far it is would be logged as well.
bool IsLogged(const std::string& line, int times) {
    return Eventually([&] {
        const std::string text = LogText();
        int found = 0;
        for (size_t at = 0; (at = text.find(line, at)) != std::string::npos; ++at) ++found;
        return found >= times;
    });
}

// Lines are "[time]  Thread Id: 42, LLInfo\t\t:text", with more blanks ahead of a detail.
std::map<std::string, std::string> StepsOfThreads(const std::string& log) {
    std::map<std::string, std::string> threads;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        while (line.ends_with(' ') || line.ends_with('\t') || line.ends_with('\r')) line.pop_back();
        for (char& byte : line) byte = byte >= ' ' || byte == '\t' ? byte : '?';
        const size_t id = line.find("Id: "), level = line.find(", ", id) + 2, text = line.find(':', level) + 1;
        std::string& steps = threads[line.substr(id, level - id)];
        const std::string name = line.substr(level, line.find('\t', level) - level);
        const bool indented = line.compare(text, 4, "    ") == 0;
        steps += indented || line.compare(text, 3, "<<<") == 0 ? " " : "\n";
        if (name != "LLInfo" && !name.starts_with("LLTrace")) steps += name + ": ";
        steps += line.substr(indented ? text + 4 : text);
    }
    return threads;
}

TEST(LogTest, ASessionIsLoggedAsEver) {
    for (const auto& file : LogFilesOf("Quillet")) std::filesystem::resize_file(file, 0);  // the log may have it open
    ASSERT_EQ(setLogLevel(0), ResultSuccess);
    const std::string blockIsDone = "<<< CScanner::ProcessDataEvent";
    {
        const auto scanner = NewScanner(ScannerLink::VirtualSerial);
        const Handle handle;
        ASSERT_EQ(Open(handle, ScannerLink::VirtualSerial), ResultSuccess);
        scanner->Scan(11, "4006381333931");
        ASSERT_TRUE(IsLogged(blockIsDone, 1));
        EXPECT_EQ(handle.Take().text, "4006381333931");
        EXPECT_EQ(setCode39(handle, 1), ResultSuccess);
        ASSERT_TRUE(IsLogged(blockIsDone, 2));
        uint8_t value[8];
        int32_t length = 0;
        EXPECT_EQ(QueryCommandSetting(handle, 35, sizeof value, value, &length), ResultSuccess);
        ASSERT_TRUE(IsLogged(blockIsDone, 3));
        EXPECT_EQ(closeScanner(handle), ResultSuccess);
        EXPECT_TRUE(IsLogged("<<< CScanner::CloseService", 1));  // lines that aren't in the file yet are lost
        setLogLevel(9);
    }
    std::string told;
    for (const auto& [thread, steps] : StepsOfThreads(LogText())) {
        if (steps.find("CScanner::Open") != std::string::npos) {
            told = "The application's thread:" + steps + "\n\n" + told;
        }
        if (steps.find("RunReadThread") != std::string::npos) told += "The reading thread:" + steps + "\n";
    }
    EXPECT_EQ(told, ReadFile(SESSION_LOG));
}

}  // namespace
}  // namespace quillet::test
