// SPDX-License-Identifier: MIT
// The one place that makes, finds and writes to links, and keeps the names that this process has claimed.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "protocol/packet.h"
#include "transport/comm.h"
#include "transport/held_link.h"

namespace quillet {

inline constexpr int32_t kMaxLinks = 132;

// Threads: any thread but a link's read thread. The lock is held across every open, close and write of a link, so a
// device that stalls a write holds up all of them until it goes on, its poll finds it gone, or its own handle is
// closed, which gives the write 2 s more.
class CCommArbiter {
  public:
    // The open link of the key: made and opened, or the listed one, which keeps the setup that it was made with. Empty
    // if there are 132 links. Throws QuilletError if the device won't open, and StringError for line settings
    // that are no numbers.
    std::shared_ptr<CComm> AddDevice(const LinkSetup& setup);
    // Closes the link for everybody; it stays listed if it waits for its device to come back.
    void RemoveDevice(const LinkKey& key);
    // Numbers above 132 are never found.
    std::shared_ptr<CComm> FindLink(const LinkKey& key);

    // False if the link isn't listed, or has a number that is never found; the key is for the log. A write that failed
    // inside the link counts as done.
    bool WriteData(const HeldLink& held, const LinkKey& key, CommandPacket& packet);
    // The same for bytes. On a USB link the caller's are replaced by the block that carries them, and those that don't
    // fit a block aren't written.
    bool WriteData(const HeldLink& held, const LinkKey& key, std::string& bytes);

    void setReadyToReConnect(const LinkKey& key, bool ready);
    void StartPowerReporting(const LinkKey& key, PowerCallback power, ReopenCallback reopen = nullptr);
    void StopPowerReporting(const LinkKey& key);

    // Opens a listed link again whose reader is lost: the same path, and nobody is told. False if there is no such
    // link, or if its device won't open; the link stays listed then. On the link's power thread.
    bool ReopenLink(const HeldLink& held);

    // Takes out every link of an owner that is about to go, whatever its key and state: closed, both threads
    // joined, not listed any more. Not on a thread of such a link.
    void RemoveLinksOf(const void* owner);
    // The same for all links, at the library's end. The links are stopped without the lock.
    void RemoveAll();

    bool IsClaimed(const std::string& name);
    void AddClaim(const std::string& name);
    void RemoveClaim(const std::string& name);

  private:
    using Links = std::list<std::shared_ptr<CComm>>;

    std::shared_ptr<CComm> AddNewLink(const LinkSetup& setup);
    // Every link of the owner, or every link if that is null, not listed any more.
    Links TakeOut(const void* owner);
    // The same for all, breaking off a write that holds the lock.
    Links TakeOutAll();
    // The link, if it can still be used. With the lock held, as the result is used.
    static std::shared_ptr<CComm> Usable(const HeldLink& held);
    static std::shared_ptr<CComm> UsableForWrite(const HeldLink& held, const LinkKey& key);
    class WriteMark;
    // Catches a QuilletError of the write and logs it: callers count such a write as done.
    void RunWrite(CComm& link, const std::function<void()>& write);
    void EndRunningWrite();

    std::recursive_mutex m_Mutex;  // guards m_Links, and serialises all use of links
    Links m_Links;
    std::mutex
        m_WritingMutex;  // guards m_Writing, and while held keeps *m_Writing from its end; taken inside m_Mutex too
    CComm* m_Writing = nullptr;  // the link that a write is under way on
    std::mutex m_ClaimsMutex;    // guards m_ClaimedNames; nothing else is taken inside it
    std::vector<std::string> m_ClaimedNames;
};

// The process's arbiter.
CCommArbiter& TheCommArbiter() noexcept;

}  // namespace quillet
