// SPDX-License-Identifier: MIT
// A claim is a mutex of the system, shared by name among the processes of a logon session.
#include "platform/named_mutex.h"

#include <windows.h>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "platform/no_destroy.h"
#include "platform/thread.h"
#include "platform/windows/unique_handle.h"

namespace quillet::platform {
namespace {

// Which object of this process holds which name. The system's mutex knows threads alone: to it, two objects on
// one thread are one owner, and either could release what the other has taken.
class HeldNames {
  public:
    // False if another object has the name, or if there is no memory to note it.
    bool Add(const std::string& name, const void* holder) noexcept try {
        const std::lock_guard lock(m_Mutex);
        return m_Holders.emplace(name, holder).first->second == holder;
    } catch (...) {
        return false;
    }
    void Remove(const std::string& name) {
        const std::lock_guard lock(m_Mutex);
        m_Holders.erase(name);
    }

  private:
    std::mutex m_Mutex;  // guards m_Holders; nothing is waited for inside it
    std::map<std::string, const void*> m_Holders;
};

HeldNames& TheHeldNames() {
    static NoDestroy<HeldNames> names;
    return names.Get();
}

}  // namespace

struct NamedMutex::Impl {
    Impl(UniqueHandle systemMutex, std::string systemName)
        : handle(std::move(systemMutex)), name(std::move(systemName)) {}
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    bool IsOwner() const { return depth > 0 && ownerThread == CurrentThreadId(); }
    bool Take(uint32_t timeoutMs);
    bool Release();

    const UniqueHandle handle;
    const std::string name;
    std::mutex mutex;  // guards what follows; nothing is waited for inside it
    uint32_t depth = 0;
    uint32_t ownerThread = 0;
};

// A claim that another thread took can't be released here: the system leaves it to that thread. Its name goes free.
NamedMutex::Impl::~Impl() {
    while (IsOwner() && Release()) {
    }
    if (depth > 0) TheHeldNames().Remove(name);
}

// A wait that ends with 128 has obtained the mutex of an owner who died with it. That counts as refused; the
// next try gets it.
bool NamedMutex::Impl::Take(uint32_t timeoutMs) {
    const DWORD waited = ::WaitForSingleObject(handle.Get(), timeoutMs);
    if (waited == WAIT_ABANDONED) ::ReleaseMutex(handle.Get());
    if (waited != WAIT_OBJECT_0) return false;
    const std::lock_guard lock(mutex);
    if (!TheHeldNames().Add(name, this)) {
        ::ReleaseMutex(handle.Get());
        return false;
    }
    ++depth;
    ownerThread = CurrentThreadId();
    return true;
}

bool NamedMutex::Impl::Release() {
    const std::lock_guard lock(mutex);
    if (!IsOwner()) return false;
    if (depth > 1) {
        if (::ReleaseMutex(handle.Get()) == FALSE) return false;
        --depth;
        return true;
    }
    // Before the release: once the mutex is free, another object of this process may have it and its name.
    TheHeldNames().Remove(name);
    bool released = false;
    // As often as this thread has it: also for objects that were destroyed elsewhere while they had it.
    while (::ReleaseMutex(handle.Get()) != FALSE) released = true;
    if (released) depth = 0;
    return released;
}

NamedMutex::NamedMutex(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}

NamedMutex::~NamedMutex() = default;

std::unique_ptr<NamedMutex> NamedMutex::OpenExisting(const std::string& name) noexcept try {
    UniqueHandle handle(::OpenMutexA(SYNCHRONIZE, FALSE, name.c_str()));
    if (!handle.IsOpen()) return nullptr;
    return std::unique_ptr<NamedMutex>(new NamedMutex(std::make_unique<Impl>(std::move(handle), name)));
} catch (...) {
    return nullptr;
}

std::unique_ptr<NamedMutex> NamedMutex::Create(const std::string& name) noexcept try {
    UniqueHandle handle(::CreateMutexA(nullptr, FALSE, name.c_str()));
    if (!handle.IsOpen()) return nullptr;
    return std::unique_ptr<NamedMutex>(new NamedMutex(std::make_unique<Impl>(std::move(handle), name)));
} catch (...) {
    return nullptr;
}

bool NamedMutex::Take(uint32_t timeoutMs) noexcept try { return m_Impl->Take(timeoutMs); } catch (...) {
    return false;
}

bool NamedMutex::Release() noexcept try { return m_Impl->Release(); } catch (...) {
    return false;
}

}  // namespace quillet::platform
