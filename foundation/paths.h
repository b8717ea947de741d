// SPDX-License-Identifier: MIT
// Paths of the host process, and directories. Both "/" and "\" separate on every system.
#pragma once

#include <string>

namespace quillet {

// Up to and including the last separator that stands at index 1 or later; the path itself if there is none;
// empty for the paths "/" and "\".
std::string GetDirectoryOf(const std::string& path);
// Behind the last separator, up to the last "." there; the whole part if it holds no ".".
std::string GetFileTitle(const std::string& path);

// The host's executable: its path (at most 259 bytes), its directory with "/" only and none at the end, its title.
std::string GetExecutablePath();
std::string GetExecutableDirectory();
std::string GetExecutableTitle();

// Makes a directory where there is none, reporting nothing. Recursive: every level, cut at "\" only.
void MakeDirectory(const std::string& path, bool recursive);

}  // namespace quillet
