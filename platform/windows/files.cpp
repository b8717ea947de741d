// SPDX-License-Identifier: MIT
// The file operations of the log.
#include "platform/files.h"

#include <windows.h>
#include <array>
#include <direct.h>
#include <shlwapi.h>
#include <utility>

#include "platform/windows/unique_handle.h"

namespace quillet::platform {
namespace {

constexpr DWORD kShareWithAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string WithSystemLineEnds(std::string_view text) {
    std::string result;
    result.reserve(text.size() + 2);
    for (const char character : text) {
        if (character == '\n') result += '\r';
        result += character;
    }
    return result;
}

}  // namespace

std::string ExecutablePath() {
    std::array<char, MAX_PATH> buffer{};
    ::GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    buffer.back() = '\0';  // a path that was cut may have no end
    return buffer.data();
}

bool IsDirectory(const std::string& path) noexcept {
    return !path.empty() && ::PathIsDirectoryA(path.c_str()) != FALSE;
}

void MakeDirectory(const std::string& path) noexcept {
    ::_mkdir(path.c_str());
}

struct AppendFile::Impl {
    UniqueHandle handle;
};

AppendFile::AppendFile(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

AppendFile::~AppendFile() = default;

std::unique_ptr<AppendFile> AppendFile::Open(const std::string& path) noexcept try {
    UniqueHandle handle(::CreateFileA(path.c_str(), FILE_APPEND_DATA, kShareWithAll, nullptr, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    // A pipe of that name could hold up a write, and with it the worker of the log.
    if (!handle.IsOpen() || ::GetFileType(handle.Get()) != FILE_TYPE_DISK) return nullptr;
    return std::unique_ptr<AppendFile>(new AppendFile(std::make_unique<Impl>(Impl{std::move(handle)})));
} catch (...) {
    return nullptr;
}

void AppendFile::Write(std::string_view text) noexcept try {
    const std::string bytes = WithSystemLineEnds(text);
    std::string_view rest = bytes;
    DWORD written = 0;
    while (!rest.empty() &&
           ::WriteFile(m_Impl->handle.Get(), rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) !=
               FALSE &&
           written > 0) {
        rest.remove_prefix(written);
    }
} catch (...) {
    // Out of memory: the line is lost, as on a full disk.
}

}  // namespace quillet::platform
