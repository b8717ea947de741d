// SPDX-License-Identifier: MIT
#include "transport/comm_arbiter.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

#include "foundation/log.h"
#include "foundation/no_destroy.h"
#include "foundation/text.h"
#include "platform/clock.h"
#include "transport/link_kinds.h"

namespace quillet {
namespace {

// How often RemoveAll asks for the lock, breaking off the write that holds it each time.
constexpr uint32_t kRetryLockMs = 5;

// Made when the library is loaded: the first use may be anywhere, and must not fail.
NoDestroy<CCommArbiter> g_Arbiter;

void LogKey(const LinkKey& key) {
    LogInfo("    | DeviceType:         ", key.deviceType);
    LogInfo("    | LinkType:         ", key.linkType);
    LogInfo("    | ComPort:            ", key.port);
}

}  // namespace

std::shared_ptr<CComm> CCommArbiter::AddDevice(const LinkSetup& setup) {
    LogTrace trace("CCommArbiter::AddDevice");
    std::lock_guard lock(m_Mutex);
    LogKey(setup.key);
    if (m_Links.size() >= static_cast<size_t>(kMaxLinks)) return nullptr;
    try {
        if (std::shared_ptr<CComm> link = FindLink(setup.key)) {
            LogInfo("Device already in use.");
            link->EnableDevice();
            return link;
        }
        return AddNewLink(setup);
    } catch (const QuilletError& error) {
        throw QuilletError(error.what(), error.Code());
    }
}

std::shared_ptr<CComm> CCommArbiter::AddNewLink(const LinkSetup& setup) {
    std::shared_ptr<CComm> link;
    try {
        link = KindOf(setup.key.linkType).make(setup);
    } catch (const std::bad_alloc&) {
        LogCritical("not enough memory...");
        return nullptr;
    }
    Links place(1, link);  // before the opening: listing it can't fail then
    link->EnableDevice();
    if (link->IsEnabled()) {
        m_Links.splice(m_Links.end(), place);
        link->SetListed(true);
    }
    return link;
}

void CCommArbiter::RemoveDevice(const LinkKey& key) {
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::RemoveDevice");
    LogKey(key);
    const std::shared_ptr<CComm> link = FindLink(key);
    if (link == nullptr) {
        LogWarning("No Find ComDevice...  ");
        return;
    }
    link->Reset();
    if (link->IsReadyToReConnect()) return;
    link->SetListed(false);
    m_Links.remove(link);
}

std::shared_ptr<CComm> CCommArbiter::FindLink(const LinkKey& key) {
    const int32_t number = key.Number();
    if (number > kMaxLinks) return nullptr;
    std::lock_guard lock(m_Mutex);
    for (const std::shared_ptr<CComm>& link : m_Links) {
        if (link->Number() == number) return link;
    }
    LogError("No Find ComDevice...");
    return nullptr;
}

std::shared_ptr<CComm> CCommArbiter::Usable(const HeldLink& held) {
    std::shared_ptr<CComm> link = held.Get().lock();
    return link != nullptr && link->IsListed() && link->Number() <= kMaxLinks ? link : nullptr;
}

bool CCommArbiter::ReopenLink(const HeldLink& held) {
    std::lock_guard lock(m_Mutex);
    const std::shared_ptr<CComm> link = Usable(held);
    if (link == nullptr || !link->HasLostReader()) return false;
    try {
        link->Reopen();
        return true;
    } catch (const std::exception&) {  // the power thread asks again
        return false;
    }
}

// Names the link that a write is under way on, for RemoveAll to break off.
class CCommArbiter::WriteMark {
  public:
    WriteMark(CCommArbiter& arbiter, CComm& link) : m_Arbiter(arbiter) { Set(&link); }
    ~WriteMark() { Set(nullptr); }
    WriteMark(const WriteMark&) = delete;
    WriteMark& operator=(const WriteMark&) = delete;

  private:
    void Set(CComm* link) {
        std::lock_guard lock(m_Arbiter.m_WritingMutex);
        m_Arbiter.m_Writing = link;
    }

    CCommArbiter& m_Arbiter;
};

void CCommArbiter::RunWrite(CComm& link, const std::function<void()>& write) try {
    WriteMark mark(*this, link);
    write();
} catch (const QuilletError& error) {
    LogCritical("Error: WriteData", error.what());
}

std::shared_ptr<CComm> CCommArbiter::UsableForWrite(const HeldLink& held, const LinkKey& key) {
    LogInfo("    | ComPort: ", key.port);
    std::shared_ptr<CComm> link = Usable(held);
    if (link != nullptr) return link;
    if (key.Number() <= kMaxLinks) LogError("No Find ComDevice...");
    LogWarning("No Find ComDevice...  WriteData Failed!");
    return nullptr;
}

bool CCommArbiter::WriteData(const HeldLink& held, const LinkKey& key, CommandPacket& packet) {
    LogInfo("try lock!!!!!!!!!!!!!!");
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::WriteData");
    const std::shared_ptr<CComm> link = UsableForWrite(held, key);
    if (link == nullptr) return false;
    RunWrite(*link, [&] { link->WritePacket(packet); });
    return true;
}

bool CCommArbiter::WriteData(const HeldLink& held, const LinkKey& key, std::string& bytes) {
    LogInfo("try lock!!!!!!!!!!!!!!");
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::WriteData");
    const std::shared_ptr<CComm> link = UsableForWrite(held, key);
    if (link == nullptr) return false;
    RunWrite(*link, [&] { link->WriteBytes(bytes); });
    return true;
}

void CCommArbiter::setReadyToReConnect(const LinkKey& key, bool ready) {
    LogTrace trace("CCommArbiter::setReadyToReConnect");
    std::lock_guard lock(m_Mutex);
    if (const std::shared_ptr<CComm> link = FindLink(key)) {
        link->SetReadyToReConnect(ready);
    } else {
        LogWarning("Warning: No Find ComDevice...");
    }
}

void CCommArbiter::StartPowerReporting(const LinkKey& key, PowerCallback power, ReopenCallback reopen) {
    if (const std::shared_ptr<CComm> link = FindLink(key)) {
        link->SetPowerCallbacks(power, reopen);
        link->StartPowerReporting();
    } else {
        LogWarning("No Find ComDevice... ");
    }
}

void CCommArbiter::StopPowerReporting(const LinkKey& key) {
    if (const std::shared_ptr<CComm> link = FindLink(key)) {
        link->StopPowerReporting();
    } else {
        LogWarning("No Find ComDevice... ");
    }
}

CCommArbiter::Links CCommArbiter::TakeOut(const void* owner) {
    std::lock_guard lock(m_Mutex);
    Links taken;
    for (auto place = m_Links.begin(); place != m_Links.end();) {
        const auto next = std::next(place);
        if (owner == nullptr || (*place)->Owner() == owner) {
            (*place)->SetListed(false);
            taken.splice(taken.end(), m_Links, place);
        }
        place = next;
    }
    return taken;
}

// Threads end without the lock, since a power thread may be waiting for it. That thread may add a link before it ends,
// so this repeats until none is left.
void CCommArbiter::RemoveLinksOf(const void* owner) {
    for (auto links = TakeOut(owner); !links.empty(); links = TakeOut(owner)) {
        for (const std::shared_ptr<CComm>& link : links) link->EndThreads();
    }
}

void CCommArbiter::EndRunningWrite() {
    std::lock_guard lock(m_WritingMutex);
    if (m_Writing != nullptr) m_Writing->EndWrite();
}

// A host that ends while a device stalls a write mustn't wait for that device.
CCommArbiter::Links CCommArbiter::TakeOutAll() {
    std::unique_lock lock(m_Mutex, std::try_to_lock);
    while (!lock.owns_lock()) {
        EndRunningWrite();
        platform::TheClock().SleepMs(kRetryLockMs);
        static_cast<void>(lock.try_lock());  // its result is lock.owns_lock()
    }
    return TakeOut(nullptr);
}

void CCommArbiter::RemoveAll() {
    for (auto links = TakeOutAll(); !links.empty(); links = TakeOutAll()) {
        for (const std::shared_ptr<CComm>& link : links) link->EndThreads();
    }
}

bool CCommArbiter::IsClaimed(const std::string& name) {
    std::lock_guard lock(m_ClaimsMutex);
    return std::find(m_ClaimedNames.begin(), m_ClaimedNames.end(), name) != m_ClaimedNames.end();
}

void CCommArbiter::AddClaim(const std::string& name) {
    std::lock_guard lock(m_ClaimsMutex);
    m_ClaimedNames.push_back(name);
}

void CCommArbiter::RemoveClaim(const std::string& name) {
    std::lock_guard lock(m_ClaimsMutex);
    const auto place = std::find(m_ClaimedNames.begin(), m_ClaimedNames.end(), name);
    if (place != m_ClaimedNames.end()) m_ClaimedNames.erase(place);
}

CCommArbiter& TheCommArbiter() noexcept {
    return g_Arbiter.Get();
}

}  // namespace quillet
