// SPDX-License-Identifier: MIT
#include "platform/process_origin.h"

#include <atomic>
#include <pthread.h>

namespace quillet::platform {
namespace {

// How often this process and those before it were copied.
std::atomic<uint32_t> g_Generation{0};

// Before main or in dlopen. The C library drops the handler when it unloads this one. A copy made without its
// knowledge (a bare clone call) isn't noticed.
[[maybe_unused]] const int kRegistered = ::pthread_atfork(nullptr, nullptr, [] { ++g_Generation; });

}  // namespace

ProcessOrigin::ProcessOrigin() noexcept : m_Generation(g_Generation.load(std::memory_order_relaxed)) {}

bool ProcessOrigin::IsHere() const noexcept {
    return m_Generation == g_Generation.load(std::memory_order_relaxed);
}

}  // namespace quillet::platform
