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
#include "transport/hid_link.h"
#include "transport/serial_link.h"

namespace quillet {
namespace {

// How often RemoveAll asks for the lock, breaking off the write that holds it each time.
constexpr uint32_t kRetryLockMs = 5;

bool IsSerial(uint32_t linkType) {
    return linkType == LinkSerial || linkType == LinkVirtualSerial;
}

// Made when the library is loaded: the first use may be anywhere, and must not fail.
NoDestroy<CCommArbiter> g_Arbiter;

void LogKey(uint32_t deviceType, uint32_t linkType, uint32_t comPort) {
    LogInfo("    | DeviceType:         ", deviceType);
    LogInfo("    | LinkType:         ", linkType);
    LogInfo("    | ComPort:            ", comPort);
}

}  // namespace

int32_t MakeDeviceKey(uint32_t deviceType, uint32_t linkType, uint32_t comPort) {
    if (IsSerial(linkType)) return static_cast<int32_t>(comPort);
    return deviceType < DeviceBluetooth ? static_cast<int32_t>(deviceType) + 128 : kNoDeviceKey;
}

std::shared_ptr<CComm> CCommArbiter::AddDevice(uint32_t deviceType, uint32_t linkType, uint32_t comPort,
                                               std::string modelNumber, const ParameterList& params, void* owner,
                                               DataCallback dataCallback, const platform::WriteLimit* limit) {
    LogTrace trace("CCommArbiter::AddDevice");
    std::lock_guard lock(m_Mutex);
    LogKey(deviceType, linkType, comPort);
    if (m_Links.size() >= static_cast<size_t>(kMaxLinks)) return nullptr;
    try {
        if (std::shared_ptr<CComm> link = FindLink(deviceType, linkType, comPort)) {
            LogInfo("Device already in use.");
            link->EnableDevice();
            return link;
        }
        return AddNewLink(deviceType, linkType, comPort, std::move(modelNumber), params, owner, dataCallback, limit);
    } catch (const ZelmarError& error) {
        throw ZelmarError(error.what(), error.Code());
    }
}

std::shared_ptr<CComm> CCommArbiter::AddNewLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort,
                                                std::string modelNumber, const ParameterList& params, void* owner,
                                                DataCallback dataCallback, const platform::WriteLimit* limit) {
    std::shared_ptr<CComm> link;
    try {
        link = MakeLink(deviceType, linkType, comPort, std::move(modelNumber), params, owner, dataCallback);
    } catch (const std::bad_alloc&) {
        LogCritical("not enough memory...");
        return nullptr;
    }
    link->SetWriteLimit(limit);
    std::list<std::shared_ptr<CComm>> place(1, link);  // before the opening: listing it can't fail then
    link->EnableDevice();
    if (link->IsEnabled()) m_Links.splice(m_Links.end(), place);
    return link;
}

std::shared_ptr<CComm> CCommArbiter::MakeLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort,
                                              std::string modelNumber, const ParameterList& params, void* owner,
                                              DataCallback dataCallback) {
    if (IsSerial(linkType)) {
        return std::make_shared<SerialLink>(deviceType, linkType, comPort, params, owner, dataCallback);
    }
    const int32_t key = MakeDeviceKey(deviceType, linkType, comPort);
    if (key == kNoDeviceKey) {
        throw CommError("RemoveSerialDevice faild because invalid number :" + NumToString(key));
    }
    return std::make_shared<HidLink>(deviceType, static_cast<uint32_t>(key), std::move(modelNumber), params, owner,
                                     dataCallback);
}

void CCommArbiter::RemoveDevice(uint32_t deviceType, uint32_t linkType, uint32_t comPort) {
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::RemoveDevice");
    LogKey(deviceType, linkType, comPort);
    const std::shared_ptr<CComm> link = FindLink(deviceType, linkType, comPort);
    if (link == nullptr) {
        LogWarning("No Find ComDevice...  ");
        return;
    }
    link->Reset();
    if (link->IsReadyToReConnect()) return;
    const auto place = std::find(m_Links.begin(), m_Links.end(), link);
    if (place != m_Links.end()) m_Links.erase(place);
}

std::shared_ptr<CComm> CCommArbiter::Look(int32_t key, const void* owner) {
    if (key > kMaxLinks) return nullptr;
    std::lock_guard lock(m_Mutex);
    const auto place = std::find_if(m_Links.begin(), m_Links.end(), [&](const std::shared_ptr<CComm>& link) {
        return static_cast<int32_t>(link->ComPort()) == key && (owner == nullptr || link->Owner() == owner);
    });
    return place != m_Links.end() ? *place : nullptr;
}

std::shared_ptr<CComm> CCommArbiter::Find(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner) {
    const int32_t key = MakeDeviceKey(deviceType, linkType, comPort);
    std::shared_ptr<CComm> link = Look(key, owner);
    if (link == nullptr && key <= kMaxLinks) LogError("No Find ComDevice...");
    return link;
}

std::shared_ptr<CComm> CCommArbiter::FindLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort) {
    return Find(deviceType, linkType, comPort, nullptr);
}

bool CCommArbiter::ReopenLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner) {
    std::lock_guard lock(m_Mutex);
    const std::shared_ptr<CComm> link = Look(MakeDeviceKey(deviceType, linkType, comPort), owner);
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
} catch (const ZelmarError& error) {
    LogCritical("Error: WriteData", error.what());
}

std::shared_ptr<CComm> CCommArbiter::FindForWrite(uint32_t deviceType, uint32_t linkType, uint32_t comPort,
                                                  const void* owner) {
    LogInfo("    | ComPort: ", comPort);
    std::shared_ptr<CComm> link = Find(deviceType, linkType, comPort, owner);
    if (link == nullptr) LogWarning("No Find ComDevice...  WriteData Failed!");
    return link;
}

int32_t CCommArbiter::WriteData(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner,
                                CommandPacket& packet) {
    LogInfo("try lock!!!!!!!!!!!!!!");
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::WriteData");
    const std::shared_ptr<CComm> link = FindForWrite(deviceType, linkType, comPort, owner);
    if (link == nullptr) return kWriteNoLink;
    RunWrite(*link, [&] { link->WritePacket(packet); });
    return kWriteDone;
}

int32_t CCommArbiter::WriteData(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner,
                                std::string& bytes) {
    LogInfo("try lock!!!!!!!!!!!!!!");
    std::lock_guard lock(m_Mutex);
    LogTrace trace("CCommArbiter::WriteData");
    const std::shared_ptr<CComm> link = FindForWrite(deviceType, linkType, comPort, owner);
    if (link == nullptr) return kWriteDone;
    if (link->Port().LinkType == LinkUsbHid) {
        if (!HidLink::CheckBlockSize(bytes)) return kWriteDone;
        bytes = ToHidBlock(bytes);
    }
    RunWrite(*link, [&] { link->WriteString(bytes); });
    return kWriteDone;
}

void CCommArbiter::setReadyToReConnect(uint32_t deviceType, uint32_t linkType, uint32_t comPort, bool ready) {
    LogTrace trace("CCommArbiter::setReadyToReConnect");
    std::lock_guard lock(m_Mutex);
    if (const std::shared_ptr<CComm> link = FindLink(deviceType, linkType, comPort)) {
        link->SetReadyToReConnect(ready);
    } else {
        LogWarning("Warning: No Find ComDevice...");
    }
}

void CCommArbiter::StartPowerReporting(uint32_t deviceType, uint32_t linkType, uint32_t comPort, PowerCallback power,
                                       ReopenCallback reopen) {
    if (const std::shared_ptr<CComm> link = FindLink(deviceType, linkType, comPort)) {
        link->SetPowerCallbacks(power, reopen);
        link->StartPowerReporting();
    } else {
        LogWarning("No Find ComDevice... ");
    }
}

void CCommArbiter::StopPowerReporting(uint32_t deviceType, uint32_t linkType, uint32_t comPort) {
    if (const std::shared_ptr<CComm> link = FindLink(deviceType, linkType, comPort)) {
        link->StopPowerReporting();
    } else {
        LogWarning("No Find ComDevice... ");
    }
}

std::list<std::shared_ptr<CComm>> CCommArbiter::TakeOutLinksOf(const void* owner) {
    std::lock_guard lock(m_Mutex);
    std::list<std::shared_ptr<CComm>> taken;
    for (auto place = m_Links.begin(); place != m_Links.end();) {
        const auto next = std::next(place);
        if ((*place)->Owner() == owner) taken.splice(taken.end(), m_Links, place);
        place = next;
    }
    return taken;
}

// Threads end without the lock, since a power thread may be waiting for it. What that thread adds before it
// has ended is found by the next look.
void CCommArbiter::RemoveLinksOf(const void* owner) {
    for (auto links = TakeOutLinksOf(owner); !links.empty(); links = TakeOutLinksOf(owner)) {
        for (const std::shared_ptr<CComm>& link : links) link->EndThreads();
    }
}

void CCommArbiter::EndRunningWrite() {
    std::lock_guard lock(m_WritingMutex);
    if (m_Writing != nullptr) m_Writing->EndWrite();
}

// A host that ends while a device stalls a write mustn't wait for that device.
std::list<std::shared_ptr<CComm>> CCommArbiter::TakeOutAll() {
    std::unique_lock lock(m_Mutex, std::try_to_lock);
    while (!lock.owns_lock()) {
        EndRunningWrite();
        platform::TheClock().SleepMs(kRetryLockMs);
        static_cast<void>(lock.try_lock());  // the loop asks
    }
    return std::exchange(m_Links, {});
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
