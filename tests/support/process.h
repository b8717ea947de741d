// SPDX-License-Identifier: MIT
// Processes, and what this one holds of the system: the same questions on each system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace quillet::test {

inline constexpr bool kOnWindows = std::filesystem::path::preferred_separator == '\\';
// Of a text file.
inline const std::string kLineEnd = kOnWindows ? "\r\n" : "\n";

uint32_t ProcessId();
// Of this process, at this moment.
size_t ThreadCount();
// The least of a while: a thread that was joined may show for a moment.
size_t SettledThreadCount();
// Open file descriptors; handles of the kernel on Windows.
size_t HandleCount();
// What HandleCount may rise by without a leak.
// On Windows each lock gets one when it is first contended, for its life.
inline constexpr size_t kLazyHandles = kOnWindows ? 6 : 0;
// Milliseconds that this process has had of a processor.
int64_t ProcessorTimeMs();

// A program whose standard input and output lead here; other handles aren't inherited. One that couldn't be started reads
// as one that has ended with 127.
class ChildProcess {
  public:
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();  // kills it, if it still runs
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line without its end; empty at the end of the output.
    std::string ReadLine();
    void Write(const std::string& text);
    void CloseInput();
    // Closes its input and waits for its end: the exit code, or -1 if it was killed or crashed.
    int End();
    void Kill();

  private:
    // What has come, at least a byte; 0 at the end of the output.
    size_t ReadSome(char* buffer, size_t size);
    struct Impl;
    std::unique_ptr<Impl> m_Impl;
    std::string m_Unread;  // of the last ReadSome
};

// A shared library that is loaded by its path and unloaded with the object.
class LoadedLibrary {
  public:
    explicit LoadedLibrary(const std::filesystem::path& path);  // throws std::runtime_error
    ~LoadedLibrary() { Unload(); }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    template <typename Function>
    Function Get(const char* name) const {
        return reinterpret_cast<Function>(Find(name));
    }
    void Unload();
    // Path of the loaded file that holds the code.
    static std::filesystem::path PathOf(void* code);

  private:
    void* Find(const char* name) const;
    void* m_Handle;
};

// True on Wine, where some things can't be shown.
bool IsUnderWine();

}  // namespace quillet::test
