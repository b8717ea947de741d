// SPDX-License-Identifier: MIT
// Folders and files that nobody but root and this process's own user can have written.
#pragma once

#include <string>

#include "platform/linux/unique_fd.h"

namespace quillet::platform {

// Opens a folder for reading if it is a real one (no link), owned by root or the effective user and writable by nobody
// else, and the folder above it is, too. Not open otherwise. Throws LookFailed.
UniqueFd OpenTrustedFolder(const std::string& path);

// Opens a file of such a folder for reading if it is a plain one, owned by root or the effective user. Not open
// otherwise. Throws LookFailed.
UniqueFd OpenTrustedFile(int folder, const std::string& name);

}  // namespace quillet::platform
