// SPDX-License-Identifier: MIT
// Where the log is written, and under which name.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/files.h"

namespace quillet {

// One thread at a time, but for Write, which may run beside the other operations once the file is open.
class LogFile {
  public:
    void SetPrefix(const std::string& prefix) { m_Prefix = prefix; }

    // Works out the directory beside the host's executable and makes it; opens the file, if none is open, under a name
    // made of the prefix and the local time. A file that can't be opened stays closed without an error.
    void Open();
    void Close();
    bool IsOpen() const { return m_Stream != nullptr; }

    // Hands the line to the system at once.
    void Write(std::string_view line);

    // "<prefix>_<year>-<month>-<day>_<hour>.log"; the hour isn't padded. Without a prefix, without its "_" too.
    static std::string NameFor(const std::string& prefix, const platform::LocalTime& time);

  private:
    std::string m_Prefix;
    std::unique_ptr<platform::AppendFile> m_Stream;  // null while the file is closed
};

}  // namespace quillet
