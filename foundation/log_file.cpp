// SPDX-License-Identifier: MIT
#include "foundation/log_file.h"

#include <cstdio>

#include "foundation/format.h"
#include "foundation/paths.h"

namespace quillet {

void LogFile::Open() {
    const std::string directory = GetExecutableDirectory() + "\\log\\" + GetExecutableTitle();
    MakeDirectory(directory, true);
    if (IsOpen()) return;
    m_Stream = platform::AppendFile::Open(directory + '\\' + NameFor(m_Prefix, platform::TheClock().Local()));
}

void LogFile::Close() {
    m_Stream.reset();
}

void LogFile::Write(std::string_view line) {
    if (m_Stream) m_Stream->Write(line);
}

std::string LogFile::NameFor(const std::string& prefix, const platform::LocalTime& time) {
    char name[256];
    std::snprintf(name, sizeof name, "%d-%02d-%02d%c%d.%s", time.year, time.month, time.day, '_', time.hour, "log");
    return prefix.empty() ? std::string(name) : Format("%s_%s", prefix, name);
}

}  // namespace quillet
