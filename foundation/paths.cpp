// SPDX-License-Identifier: MIT
#include "foundation/paths.h"

#include <cstddef>
#include <string>

#include "foundation/text.h"
#include "platform/files.h"

namespace quillet {
namespace {

constexpr char kSeparators[] = "/\\";

}  // namespace

std::string GetDirectoryOf(const std::string& path) {
    const size_t at = path.find_last_of(kSeparators);
    if (at == 0 && path.size() == 1) return {};
    if (at == 0 || at == std::string::npos) return path;
    return path.substr(0, at + 1);
}

std::string GetFileTitle(const std::string& path) {
    const size_t at = path.find_last_of(kSeparators);
    const std::string name = at == std::string::npos ? path : path.substr(at + 1);
    return name.substr(0, name.rfind('.'));
}

std::string GetExecutablePath() {
    return platform::ExecutablePath();
}

std::string GetExecutableDirectory() {
    const std::string path = GetExecutablePath();
    // GetDirectoryOf takes a file that lies in the root for a bare name.
    if (path.find_last_of(kSeparators) == 0) return {};
    std::string directory = ReplaceAll(ReplaceAll(GetDirectoryOf(path), "\\\\", "/"), "\\", "/");
    if (!directory.empty() && directory.back() == '/') directory.pop_back();
    return directory;
}

std::string GetExecutableTitle() {
    return GetFileTitle(GetExecutablePath());
}

void MakeDirectory(const std::string& path, bool recursive) {
    if (path.empty()) return;
    if (!recursive) {
        if (!platform::IsDirectory(path)) platform::MakeDirectory(path);
        return;
    }
    std::string grown;
    for (const std::string& piece : Split(path, '\\')) {
        grown += piece;
        MakeDirectory(grown, false);
        grown += '\\';
    }
}

}  // namespace quillet
