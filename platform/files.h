// SPDX-License-Identifier: MIT
// The few file operations of the log. Paths are as the log tells them: '\' and '/' both separate, on every system.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace quillet::platform {

// Full path of the host's executable (never of this library), cut as a buffer of 260 bytes with its final
// zero would cut it: 259 bytes. Empty if the system doesn't tell.
std::string ExecutablePath();

// False for an empty path.
bool IsDirectory(const std::string& path) noexcept;
// Makes one level; failures are ignored.
void MakeDirectory(const std::string& path) noexcept;

// A text file open for appending, shared with other processes, not inherited by child processes.
class AppendFile {
  public:
    // Continues an existing file or makes a new one, which its owner alone may write; null if it can't be opened, and
    // for what is no plain file.
    static std::unique_ptr<AppendFile> Open(const std::string& path) noexcept;
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // Hands the text to the operating system before it returns; "\n" becomes the system's line end. Failures
    // (a full disk) are ignored.
    void Write(std::string_view text) noexcept;

  private:
    struct Impl;
    explicit AppendFile(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_Impl;
};

}  // namespace quillet::platform
