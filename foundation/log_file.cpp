#include "foundation/log_file.h"

#include <cstdio>

#include "foundation/format.h"
#include "foundation/paths.h"

namespace quillet {

void LogFile::Open() {
    directory = GetExecutableDirectory() + "\\log\\" + GetExecutableTitle();
    MakeDirectory(directory, true);
    directory += '\\';
    if (IsOpen()) return;
    fileName = NameFor(prefix, platform::TheClock().Local());
    stream = platform::AppendFile::Open(directory + fileName);
}

void LogFile::Close() {
    stream.reset();
}

void LogFile::Write(std::string_view line) {
    if (stream) stream->Write(line);
}

std::string LogFile::NameFor(const std::string& prefix, const platform::LocalTime& time) {
    char name[256];
    std::snprintf(name, sizeof name, "%d-%02d-%02d%c%d.%s", time.year, time.month, time.day, '_', time.hour, "log");
    return prefix.empty() ? std::string(name) : Format("%s_%s", prefix, name);
}

}  // namespace quillet
