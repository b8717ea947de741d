// SPDX-License-Identifier: MIT
#include "platform/linux/claim_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

#include "platform/linux/small_file.h"
#include "platform/linux/trusted_folder.h"

namespace quillet::platform {
namespace {

// O_PATH, since a folder made for a group may allow entering without reading.
UniqueFd OpenFolder(const std::string& path, int extraFlags) {
    const int flags = O_PATH | O_DIRECTORY | O_CLOEXEC | extraFlags;
    UniqueFd fd(RetryInterrupted([&] { return ::open(path.c_str(), flags); }));
    if (!fd.IsOpen()) ThrowIfExhausted();
    return fd;
}

UniqueFd OpenOfRoot(const std::string& path) {
    UniqueFd fd = OpenFolder(path, O_NOFOLLOW);
    struct stat found {};
    const bool ofRoot = fd.IsOpen() && ::fstat(fd.Get(), &found) == 0 && found.st_uid == 0;
    return ofRoot ? std::move(fd) : UniqueFd();
}

UniqueFd OpenWritable(const std::string& path) {
    UniqueFd fd = OpenFolder(path, 0);
    const bool writable = fd.IsOpen() && ::faccessat(fd.Get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    return writable ? std::move(fd) : UniqueFd();
}

}  // namespace

UniqueFd OpenClaimFolder(const ClaimRoots& roots) {
    UniqueFd fd;
    if (!roots.runtime.empty()) fd = OpenTrustedFolder(roots.runtime + "/quillet/locks");
    if (!fd.IsOpen()) fd = OpenOfRoot(roots.locks + "/quillet");
    if (!fd.IsOpen()) fd = OpenWritable(roots.locks);
    return fd.IsOpen() ? std::move(fd) : OpenFolder(roots.temporary, 0);
}

}  // namespace quillet::platform
