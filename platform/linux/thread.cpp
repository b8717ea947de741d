// SPDX-License-Identifier: MIT
// Threads of the library.
#include "platform/thread.h"

#include <cxxabi.h>
#include <pthread.h>
#include <signal.h>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "platform/process_origin.h"

namespace quillet::platform {
namespace {

// All signals blocked in the calling thread, for as long as it lives. A thread inherits the mask of its
// creator, so that a new thread never runs with signals open.
class SignalsBlocked {
  public:
    SignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_Before);
    }
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t m_Before{};
};

void RunBody(const std::string& name, const std::function<void()>& body) {
    SetCurrentThreadName(name.c_str());
    try {
        body();
    } catch (const abi::__forced_unwind&) {
        throw;  // the end of a cancelled thread; the C library aborts the process if it is swallowed
    } catch (...) {
        // There is nobody to report it to, and it must not end the host.
    }
}

// The system is asked once a thread. The only thread of a child of fork has another id than its original.
thread_local uint32_t g_ThreadId = 0;
const bool kForgetsAtFork = ::pthread_atfork(nullptr, nullptr, [] { g_ThreadId = 0; }) == 0;

}  // namespace

struct Thread::Impl {
    std::thread thread;
    const ProcessOrigin origin;
};

Thread::Thread() noexcept = default;
Thread::Thread(std::unique_ptr<Impl> impl) noexcept : m_Impl(std::move(impl)) {}
Thread::Thread(Thread&& other) noexcept = default;

Thread& Thread::operator=(Thread&& other) noexcept {
    Join();
    m_Impl = std::move(other.m_Impl);
    return *this;
}

Thread::~Thread() {
    Join();
}

void Thread::Join() noexcept {
    if (m_Impl == nullptr) return;
    if (m_Impl->origin.IsHere()) {
        m_Impl->thread.join();
        m_Impl.reset();
    } else {
        // Not even detached: the C library has given the thread's memory to others in this copy of the process.
        static_cast<void>(m_Impl.release());
    }
}

bool Thread::IsCurrent() const noexcept {
    return m_Impl != nullptr && m_Impl->thread.get_id() == std::this_thread::get_id();
}

Thread StartThread(const char* name, std::function<void()> body) {
    std::string label = name != nullptr ? name : "quillet";
    auto impl = std::make_unique<Thread::Impl>();
    const SignalsBlocked blocked;
    impl->thread = std::thread([label = std::move(label), body = std::move(body)] { RunBody(label, body); });
    return Thread(std::move(impl));
}

uint32_t CurrentThreadId() noexcept {
    if (g_ThreadId != 0) return g_ThreadId;
    const auto id = static_cast<uint32_t>(::gettid());
    if (kForgetsAtFork) g_ThreadId = id;
    return id;
}

void SetCurrentThreadName(const char* name) noexcept {
    if (name != nullptr) {
        ::prctl(PR_SET_NAME, name);  // cuts at 15 bytes, where pthread_setname_np would refuse
    }
}

}  // namespace quillet::platform
