// SPDX-License-Identifier: MIT
// A claim is a lock on a file of the claim's name. The file stays for good: removing it would split those who
// have it open from those who make it anew.
#include "platform/named_mutex.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/linux/claim_folder.h"
#include "platform/linux/linux_roots.h"
#include "platform/linux/unique_fd.h"
#include "platform/process_origin.h"
#include "platform/thread.h"

namespace quillet::platform {
namespace {

constexpr const char* kFilePrefix = "quillet-claim-";
constexpr int kOpenFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr uint32_t kRetryMs = 10;
constexpr int kOpenAttempts = 3;

bool IsFileName(const std::string& name) {
    return name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

UniqueFd OpenFile(int folder, const std::string& file, int extraFlags) {
    UniqueFd fd(RetryInterrupted([&] { return ::openat(folder, file.c_str(), kOpenFlags | extraFlags, 0666); }));
    struct stat found {};
    if (fd.IsOpen() && (::fstat(fd.Get(), &found) != 0 || !S_ISREG(found.st_mode))) {
        errno = EPERM;
        return {};
    }
    return fd;
}

// The plain open comes first: in a folder that all can write to, the kernel refuses O_CREAT on a file of another user.
UniqueFd OpenOrMakeFile(int folder, const std::string& file) {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        UniqueFd fd = OpenFile(folder, file, 0);
        if (fd.IsOpen() || errno != ENOENT) return fd;
        fd = OpenFile(folder, file, O_CREAT | O_EXCL);
        if (fd.IsOpen()) {
            ::fchmod(fd.Get(), 0666);  // whatever the host's umask says, other users lock the same file
            return fd;
        }
        if (errno != EEXIST) return {};
    }
    return {};
}

template <typename OpenIn>
UniqueFd OpenClaimFile(const std::string& name, OpenIn openIn) {
    if (!IsFileName(name)) return {};
    const UniqueFd folder = OpenClaimFolder(SystemRoots().claims);
    return folder.IsOpen() ? openIn(folder.Get(), kFilePrefix + name) : UniqueFd();
}

}  // namespace

struct NamedMutex::Impl {
    explicit Impl(UniqueFd fd) : file(std::move(fd)) {}
    ~Impl() {
        // By name, as a child that the host forked has the lock too as long as it lives; but not in that child itself.
        if (depth > 0 && origin.IsHere()) ::flock(file.Get(), LOCK_UN);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    bool TryTake();
    bool Release();

    const UniqueFd file;
    std::mutex mutex;  // guards what follows, and the lock on the file against the threads of this process
    uint32_t depth = 0;
    uint32_t ownerThread = 0;
    const ProcessOrigin origin;
};

// The owner may take it again and has to release it as often. flock alone wouldn't keep out another thread
// that comes through the same object.
bool NamedMutex::Impl::TryTake() {
    if (!origin.IsHere()) {
        return false;  // a copy of the process has the lock as soon as the original has it
    }
    const std::lock_guard lock(mutex);
    const uint32_t caller = CurrentThreadId();
    if (depth > 0) {
        if (ownerThread != caller) return false;
        ++depth;
        return true;
    }
    if (RetryInterrupted([this] { return ::flock(file.Get(), LOCK_EX | LOCK_NB); }) != 0) return false;
    depth = 1;
    ownerThread = caller;
    return true;
}

bool NamedMutex::Impl::Release() {
    const std::lock_guard lock(mutex);
    if (depth == 0 || ownerThread != CurrentThreadId() || !origin.IsHere()) return false;
    if (depth > 1) {
        --depth;
        return true;
    }
    if (::flock(file.Get(), LOCK_UN) != 0) return false;
    depth = 0;
    return true;
}

NamedMutex::NamedMutex(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

NamedMutex::~NamedMutex() = default;

std::unique_ptr<NamedMutex> NamedMutex::OpenExisting(const std::string& name) noexcept try {
    UniqueFd fd = OpenClaimFile(name, [](int folder, const std::string& file) { return OpenFile(folder, file, 0); });
    if (!fd.IsOpen()) return nullptr;
    return std::unique_ptr<NamedMutex>(new NamedMutex(std::make_unique<Impl>(std::move(fd))));
} catch (...) {
    return nullptr;
}

std::unique_ptr<NamedMutex> NamedMutex::Create(const std::string& name) noexcept try {
    UniqueFd fd = OpenClaimFile(name, OpenOrMakeFile);
    if (!fd.IsOpen()) return nullptr;
    return std::unique_ptr<NamedMutex>(new NamedMutex(std::make_unique<Impl>(std::move(fd))));
} catch (...) {
    return nullptr;
}

// A lock on a file has no wait with a limit, so it is tried again and again.
bool NamedMutex::Take(uint32_t timeoutMs) noexcept try {
    const int64_t start = TheClock().NowNs();
    for (;;) {
        if (m_Impl->TryTake()) return true;
        const int64_t waitedMs = (TheClock().NowNs() - start) / 1000000;
        if (timeoutMs != kNoLimitMs && waitedMs >= timeoutMs) return false;
        const int64_t leftMs = timeoutMs == kNoLimitMs ? kRetryMs : timeoutMs - waitedMs;
        TheClock().SleepMs(static_cast<uint32_t>(std::min<int64_t>(leftMs, kRetryMs)));
    }
} catch (...) {
    return false;
}

bool NamedMutex::Release() noexcept try { return m_Impl->Release(); } catch (...) {
    return false;
}

}  // namespace quillet::platform
