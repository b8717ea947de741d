// SPDX-License-Identifier: MIT
// The service object behind a ScannerHandle: opened, claimed, enabled; hands out barcodes; runs exchanges.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "events/event_record.h"
#include "foundation/text.h"
#include "platform/write_limit.h"
#include "protocol/packet.h"
#include "service/barcode_assembly.h"
#include "service/barcode_cache.h"
#include "service/device.h"
#include "service/exchange.h"
#include "transport/held_link.h"
#include "transport/link_kinds.h"

namespace quillet {

// A buffer of the caller's, filled as everywhere in this library: zeros over its whole length, then the result.
struct CallerBuffer {
    uint8_t* bytes;
    uint32_t size;
    int32_t* written;  // may be null

    bool Fits(const std::string& result) const { return result.size() <= size; }
    void Fill(const std::string& result) const;
};

// What several threads do here:
// - application threads: everything public. Open, CloseService, ClaimDevice and ReleaseDevice by one at a time.
// - the link's power thread: ProcessStatusEvent, and from there DeviceEnable; ReopenLink.
// - the link's read thread: ProcessDataEvent. It takes the locks of the parts that a block goes to, for no longer than
//   that block, and never m_EnableMutex or the arbiter's.
// Locks, in the order in which they may be nested: m_EnableMutex, the arbiter's lock, then those of m_Exchange,
// m_Assembly and m_Cache.
class CScanner : public CDevice, private BarcodeAssembly::Sink {
  public:
    CScanner();
    ~CScanner();

    // Properties by number (scanner_properties.cpp).
    ResultCode SetPropertyString(int32_t number, const char* text);
    ResultCode SetPropertyNumber(int32_t number, int32_t value);
    ResultCode GetPropertyString(int32_t number, const CallerBuffer& buffer);
    ResultCode GetPropertyNumber(int32_t number, int32_t* value);

    ResultCode ReleaseDevice();
    ResultCode GetOpenResult();

    // Sends a command of the device model and hands the reply over; waits up to 18 s for one that is answered.
    ResultCode DirectIO(int32_t command, const int32_t* data, const char* text, const CallerBuffer& buffer);
    ResultCode COFreezeEvents(int16_t freeze);
    ResultCode CloseService();
    ResultCode ClearInput();
    ResultCode ClaimDevice(uint32_t timeoutMs);

    // Statistics and health (scanner_statistics.cpp).
    ResultCode CheckHealth(uint32_t level);
    ResultCode Open(const std::string& connection);
    ResultCode ResetStatistics(const std::string& statisticsBuffer);
    ResultCode RetrieveStatistics(std::string* statisticsBuffer);
    ResultCode UpdateStatistics(const std::string& statisticsBuffer);
    ResultCode CompareFirmwareVersion(const std::string& firmwareFileName);
    ResultCode UpdateFirmware(const std::string& firmwareFileName);

    // Makes the calls of OnDataEvent that barcodes have left to be made on the thread that constructed the object. Does
    // nothing on another thread.
    ResultCode Update();

    // Whoever is about to close this service, or to open it once more, holds this from before it waits for any lock of
    // the handle: from then on all writes of its link have 2 s together, also one that holds a lock because its device
    // takes nothing. Neither a poll nor an opening takes the limit away.
    platform::WriteLimitScope LimitWrites() { return {m_WriteLimit, kClosingWriteMs}; }
    // Open, and at this moment without a link that works: what an opening has to give up first.
    bool IsOpenAndNotEnabled() const { return m_State == StateOpen; }

    // Sends on this handle's own link. 0, also for a write that failed inside the link; 109 without a link.
    ResultCode SendPacket(CommandPacket& packet);
    void SendBytes(std::string bytes);

    const LinkKind& Kind() const { return KindOf(m_LinkType); }

    // Sends raw bytes and waits for the reply: 300 ms in any case, then at most timeoutMs. One at a time; a second is
    // refused with 106. Ends with 112 when the service closes meanwhile.
    ExchangeOutcome ExchangeBytes(std::string bytes, uint32_t timeoutMs);

    // What a consumer of barcodes does: it polls, and hands over what it got. The log shows both as the reads of the
    // properties for count, type and text, and they leave the stored results as those reads do; yet the poll takes type
    // and text as one step, so that several consumers can share the barcodes.
    enum class EmptyPoll { Shown, Silent };
    std::optional<CachedBarcode> PollBarcode(EmptyPoll emptyPoll);
    // The type is dropped if codeType is null. 11 if the text is longer than the buffer; then it is lost.
    ResultCode HandOver(CachedBarcode barcode, int32_t* codeType, const CallerBuffer& buffer);
    // As BarcodeCache::Wait.
    void WaitForBarcode(uint32_t timeoutMs) { m_Cache.Wait(timeoutMs); }
    // Makes present and later waits for barcodes return at once, and ends an exchange: the object is about to go.
    void EndWaits();
    bool WaitsAreEnded() const { return m_Cache.WaitsAreEnded(); }
    // Ends the event thread before the destruction: the library is being taken down with the object still there.
    void EndEventThread() { m_EventQueue.EndThread(); }
    // For the same end, after EndEventThread and with the link's threads ended: gives up link and claim and sends
    // nothing to the scanner. As with Open, no other thread is opening or closing the object.
    void GiveUp();

  protected:
    // Enabling (scanner_enable.cpp).
    ResultCode DeviceEnable(bool enable);
    bool DeviceCommEnable(bool enable);
    void EnableDeocdeData(bool enable);
    void ProcessStatusEvent(uint32_t status);
    void StatusChanged(uint32_t& status);
    void ReopenLink(bool repeated);

    // Received data (scanner_data.cpp).
    int32_t ProcessDataEvent(std::string& block, uint32_t status);
    ResultCode ProcessEvent(EventRecord& record);
    void HandleDataEvent(const EventRecord& record);
    void PostDataEvent();
    ResultCode OnDataEvent(uint32_t message, uint64_t word, int64_t longWord, bool& flag);

    // Exchanges (scanner_exchange.cpp).
    ExchangeOutcome ExchangePacket(CommandPacket& packet, uint32_t timeoutMs);
    void HandleDirectIOEvent(const EventRecord& record);
    void HandleStatusUpdateEvent(const EventRecord& record);

    void RequestStatistics();

    // Names this handle's link to the arbiter. The device type is DeviceUsb for every kind of link.
    LinkKey Key() const { return {.deviceType = DeviceUsb, .linkType = m_LinkType, .port = m_ComPort}; }

  private:
    static constexpr uint32_t kClosingWriteMs = 2000;

    struct Properties;

    static int32_t DataCallbackEntry(void* owner, std::string& block, uint32_t status);
    static void PowerCallbackEntry(void* owner, uint32_t status);
    static void ReopenCallbackEntry(void* owner, bool repeated);
    static void EventCallbackEntry(void* context, EventRecord* record);

    void ResetState();

    // Open, step by step.
    ResultCode OpenConnection(const std::string& connection);
    const LinkKind* ChooseKind(const DiscoveredLists& found);
    void StoreOpened(const LinkKind& kind);
    ResultCode ReleaseService(ReleaseBy who);
    void TakeDown(ReleaseBy who);

    ResultCode EnableLink();
    void UndoEnabling() noexcept;
    ResultCode DisableLink();
    void ReportPowerAtEnabling();
    bool LockForPowerReport(std::unique_lock<std::recursive_mutex>& lock);
    void LinkLost();
    void LinkBack();

    template <typename Read>
    ResultCode AnswerNumber(int32_t number, int32_t* value, Read read);
    template <typename Read>
    ResultCode AnswerText(int32_t number, const CallerBuffer& buffer, Read read);
    BinaryConversion ConversionMode() const;

    void OnBarcode(std::string text, int32_t codeType) override;
    void OnBarcodePart() override;

    ExchangeOutcome RunExchange(const ExchangePlan& plan);
    ResultCode RefuseTextOperation(const char* key, const std::string& text, const char* resultFormat);

    // Each with a lock of its own.
    BarcodeCache m_Cache;
    BarcodeAssembly m_Assembly{*this};
    Exchange m_Exchange{m_Status, m_Assembly};
    // Calls of OnDataEvent that Update owes, all alike. Added by the read thread alone.
    std::atomic<uint32_t> m_PendingCalls{0};
    const uint32_t m_CreatorThread;
    platform::WriteLimit m_WriteLimit;  // of this handle's link; has a lock of its own
    // What a send writes to, without m_EnableMutex, which an opening holds. Set at each enabling and left alone at
    // disabling: a lost link is still listed and takes writes, which fail in silence. Has a lock of its own.
    HeldLink m_SendLink;
    // Set by a thread that holds m_EnableMutex to join the power thread: that one then gives up its try.
    std::atomic<bool> m_JoiningPowerThread{false};
    std::recursive_mutex m_EnableMutex;  // serialises enabling, disabling and reactions to power reports
    std::shared_ptr<CComm> m_Link;       // keeps the link alive while enabled; guarded by m_EnableMutex
};

}  // namespace quillet
