// SPDX-License-Identifier: MIT
// One command and its reply, on a link whose only way in is its read thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <quillet/quillet.h>

#include "foundation/sync.h"
#include "service/barcode_assembly.h"
#include "service/status_bits.h"

namespace quillet {

// How an exchange ended, handed to its own caller.
struct ExchangeOutcome {
    ResultCode result = ResultSuccess;
    std::string reply;
};

// What differs between exchanges.
struct ExchangePlan {
    std::function<void()> send;  // the command; what it throws ends the exchange
    uint32_t timeoutMs = 0;      // after the 300 ms that every exchange takes; platform::kNoLimitMs: for ever
    bool waits = true;           // some commands are never answered
    uint32_t eventNumber = 1;    // 0: a reply with a payload is a failure
    bool rawReply = true;        // where a reply has no payload, all received bytes are the reply
};

// The calling thread sends and sleeps; the read thread gives what it receives to TakeBlock, which recognises the reply
// and wakes it. This object alone sets StatusExchange, by one atomic step that only one caller can win, and clears it
// when the rest of the exchange's state is cleared; the read thread sends blocks here while it is set. A block that set
// out while it was set and finds it cleared in TakeBlock comes from an exchange that has ended, and is dropped.
//
// The lock is held for a moment or for one block, never while something is sent or waited for. Inside it the lock of
// the BarcodeAssembly may be taken.
class Exchange {
  public:
    // Both must outlive this object. Of the status StatusEnabled is asked.
    Exchange(StatusBits& status, BarcodeAssembly& barcodes) : m_Status(status), m_Barcodes(barcodes) {}

    // Any thread, one at a time. Takes 300 ms in any case, and what the plan allows for the reply. 106 with nothing
    // sent if another exchange is running, the device isn't enabled, or exchanges are closed; 112 without a whole reply
    // in time and where the exchange is broken off.
    ExchangeOutcome Run(const ExchangePlan& plan);

    // On the read thread. A block outside of an exchange, that is, a late one, is dropped. Throws for want of memory;
    // then the exchange under way gets no reply.
    void TakeBlock(std::string_view block, uint32_t linkType);

    // Breaks off the exchange under way if it would wait for ever: its link is lost or closed. Called after
    // StatusEnabled was cleared, or again until the link works.
    void BreakUnlimited();
    // Breaks off what is under way and waits for its end; until Open none begins.
    void Close();
    void Open();
    // Breaks off what is under way; none begins any more.
    void CloseForGood();

    // For a wait for the replies of others' exchanges: forgets those that came so far, then waits for one at most
    // timeoutMs. A broken exchange counts as a reply.
    void ForgetReplies() { m_AnyReply.Reset(); }
    bool AwaitAnyReply(uint32_t timeoutMs) { return m_AnyReply.TimedWait(timeoutMs) == OsEventSignalled; }

  private:
    bool Begin(const ExchangePlan& plan);
    void End();
    void Break();
    ExchangeOutcome AwaitReply(const ExchangePlan& plan);
    std::optional<ExchangeOutcome> TakeReply(const ExchangePlan& plan);
    ExchangeOutcome TakePayload(uint32_t eventNumber);
    bool TakeOneReply(std::string& bytes, uint32_t linkType);
    void Wake();

    StatusBits& m_Status;
    BarcodeAssembly& m_Barcodes;
    // Guards what stands up to m_Unlimited, the resets of m_Reply and m_Broken, and the clearing of StatusExchange.
    std::mutex m_Mutex;
    std::string m_Raw;         // everything received during the exchange
    std::string m_Payload;     // of good replies
    bool m_ReplyLost = false;  // something of it is missing: there will be no reply
    bool m_Closed = false;
    bool m_ClosedForGood = false;
    bool m_Unlimited = false;         // the exchange under way would wait for ever
    std::condition_variable m_Ended;  // StatusExchange was cleared
    OsEvent m_Reply{kManualResetEvent};
    OsEvent m_Broken{kManualResetEvent};
    OsEvent m_AnyReply{kManualResetEvent};  // set with m_Reply, reset by who waits for it
};

}  // namespace quillet
