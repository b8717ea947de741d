// SPDX-License-Identifier: MIT
// A process that has run out of file descriptors.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

namespace quillet::test {

// A sanitizer's check of dynamic types takes a descriptor for itself, and calls every object false without one.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitizerNeedsDescriptors = true;
#else
inline constexpr bool kSanitizerNeedsDescriptors = false;
#endif

// While it lives this process gets no more than so many new descriptors.
class NoDescriptors {
  public:
    explicit NoDescriptors(int room = 0) {
        getrlimit(RLIMIT_NOFILE, &m_Before);
        const int next = dup(0);
        close(next);
        rlimit few = m_Before;
        few.rlim_cur = static_cast<rlim_t>(next + room);
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_Before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit m_Before{};
};

}  // namespace quillet::test
