// The one place that makes, finds and writes to links, and keeps the names that this process has claimed.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/parameter_list.h"
#include "protocol/packet.h"
#include "transport/comm.h"

namespace quillet {

// Results of writes, in the numbers of the public header.
inline constexpr int32_t kWriteDone = 0;  // also for a write that failed inside the link
inline constexpr int32_t kWriteNoLink = 109;

inline constexpr int32_t kNoDeviceKey = 255;
inline constexpr int32_t kMaxLinks = 132;

// Number under which a link is listed: the port number of a serial link; one number for every USB link of a
// device type; kNoDeviceKey if none can be made.
int32_t MakeDeviceKey(uint32_t deviceType, uint32_t linkType, uint32_t comPort);

// Threads: any thread but a link's read thread. The lock is held across every open, close and write of a
// link, so a device that stalls a write holds up all of them until it goes on, its poll finds it gone, or its own handle
// is closed, which gives the write 2 s more.
class CCommArbiter {
  public:
    // The open link of the key: made and opened, or the listed one, which keeps the callback, owner and
    // parameters that it was made with. Empty if there are 132 links. Throws ZelmarError if the device won't
    // open, and mylib::StringError for line settings that are no numbers. `limit`, the owner's, may be null: see CComm.
    std::shared_ptr<CComm> AddDevice(uint32_t deviceType, uint32_t linkType, uint32_t comPort, std::string modelNumber,
                                     const ParameterList& params, void* owner, DataCallback dataCallback,
                                     const platform::WriteLimit* limit = nullptr);
    // Closes the link for everybody; it stays listed if it waits for its device to come back.
    void RemoveDevice(uint32_t deviceType, uint32_t linkType, uint32_t comPort);
    // Keys above 132 are never found.
    std::shared_ptr<CComm> FindLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort);

    // kWriteDone or kWriteNoLink. Another owner's link counts as none: between the sender's look at its own numbers and
    // the lock, its link may have been closed and somebody else's have got the key.
    int32_t WriteData(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner,
                      CommandPacket& packet);
    // Always kWriteDone. On a USB link the caller's bytes are replaced by the block that carries them; bytes
    // that don't fit a block aren't written.
    int32_t WriteData(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner, std::string& bytes);

    void setReadyToReConnect(uint32_t deviceType, uint32_t linkType, uint32_t comPort, bool ready);
    void StartPowerReporting(uint32_t deviceType, uint32_t linkType, uint32_t comPort, PowerCallback power,
                             ReopenCallback reopen = nullptr);
    void StopPowerReporting(uint32_t deviceType, uint32_t linkType, uint32_t comPort);

    // Opens a link of the owner's again whose reader is lost: the same link, the same path, and nobody is told. False
    // if there is none, or if its device won't open; the link stays listed then. On the link's power thread.
    bool ReopenLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner);

    // Takes out every link of an owner that is about to go, whatever its key and state: closed, both threads
    // joined, not listed any more. Not on a thread of such a link.
    void RemoveLinksOf(const void* owner);
    // The same for all links, at the library's end. The links are stopped without the lock.
    void RemoveAll();

    bool IsClaimed(const std::string& name);
    void AddClaim(const std::string& name);
    void RemoveClaim(const std::string& name);

  private:
    std::shared_ptr<CComm> MakeLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort, std::string modelNumber,
                                    const ParameterList& params, void* owner, DataCallback dataCallback);
    std::shared_ptr<CComm> AddNewLink(uint32_t deviceType, uint32_t linkType, uint32_t comPort, std::string modelNumber,
                                      const ParameterList& params, void* owner, DataCallback dataCallback,
                                      const platform::WriteLimit* limit);
    std::list<std::shared_ptr<CComm>> TakeOutLinksOf(const void* owner);
    // Without a word in the log. A null owner stands for any.
    std::shared_ptr<CComm> Look(int32_t key, const void* owner);
    // As FindLink, for an owner's link alone.
    std::shared_ptr<CComm> Find(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner);
    std::shared_ptr<CComm> FindForWrite(uint32_t deviceType, uint32_t linkType, uint32_t comPort, const void* owner);
    class WriteMark;
    // A failure shows in the log alone.
    void RunWrite(CComm& link, const std::function<void()>& write);
    void EndRunningWrite();
    // All links, unlisted; breaks off a write that holds the lock.
    std::list<std::shared_ptr<CComm>> TakeOutAll();

    std::recursive_mutex m_Mutex;  // guards m_Links, and serialises all use of links
    std::list<std::shared_ptr<CComm>> m_Links;
    std::mutex m_WritingMutex;   // guards m_Writing and keeps the link alive for who looks; taken inside m_Mutex too
    CComm* m_Writing = nullptr;  // the link that a write is under way on
    std::mutex m_ClaimsMutex;    // guards m_ClaimedNames; nothing else is taken inside it
    std::vector<std::string> m_ClaimedNames;
};

// The process's arbiter.
CCommArbiter& TheCommArbiter() noexcept;

}  // namespace quillet
