// SPDX-License-Identifier: MIT
// Threads of the library. Each holds a reference on the module whose code it runs, so that unloading the library with a
// scanner still open takes no code away from under it: the module goes when the last of its threads has ended.
#include "platform/thread.h"

#include <windows.h>
#include <string>
#include <system_error>
#include <utility>

#include "platform/windows/unique_handle.h"

namespace quillet::platform {
namespace {

struct StartRecord {
    std::string name;
    std::function<void()> body;
    HMODULE module = nullptr;
};

[[noreturn]] void ThrowLastError(const char* call) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), call);
}

// A handle of the module that holds this code, with its reference count raised by one.
HMODULE ReferToThisModule() {
    HMODULE module = nullptr;
    const auto address = reinterpret_cast<const char*>(&ReferToThisModule);
    if (::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, address, &module) == FALSE) {
        ThrowLastError("GetModuleHandleExA");
    }
    return module;
}

void RunBody(const StartRecord& record) noexcept {
    SetCurrentThreadName(record.name.c_str());
    try {
        record.body();
    } catch (...) {
        // There is nobody to report it to, and it must not end the host.
    }
}

// Everything of this module is destroyed before the last call, which may be the one that unloads it.
DWORD WINAPI RunThread(void* parameter) {
    HMODULE module = nullptr;
    {
        const std::unique_ptr<StartRecord> record(static_cast<StartRecord*>(parameter));
        module = record->module;
        RunBody(*record);
    }
    ::FreeLibraryAndExitThread(module, 0);  // doesn't return
}

}  // namespace

struct Thread::Impl {
    UniqueHandle handle;
    DWORD id = 0;
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
    if (m_Impl != nullptr) ::WaitForSingleObject(m_Impl->handle.Get(), INFINITE);
    m_Impl.reset();
}

bool Thread::IsCurrent() const noexcept {
    return m_Impl != nullptr && m_Impl->id == ::GetCurrentThreadId();
}

Thread StartThread(const char* name, std::function<void()> body) {
    auto impl = std::make_unique<Thread::Impl>();
    auto record = std::make_unique<StartRecord>();
    record->name = name != nullptr ? name : "quillet";
    record->body = std::move(body);
    record->module = ReferToThisModule();
    impl->handle = UniqueHandle(::CreateThread(nullptr, 0, &RunThread, record.get(), 0, &impl->id));
    if (!impl->handle.IsOpen()) {
        const DWORD error = ::GetLastError();
        ::FreeLibrary(record->module);
        ::SetLastError(error);
        ThrowLastError("CreateThread");
    }
    static_cast<void>(record.release());  // the thread's own from here on
    return Thread(std::move(impl));
}

uint32_t CurrentThreadId() noexcept {
    return ::GetCurrentThreadId();
}

}  // namespace quillet::platform
