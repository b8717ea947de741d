// The service object behind a ScannerHandle: opened, claimed, enabled; hands out barcodes; runs exchanges.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "events/event_record.h"
#include "foundation/text.h"
#include "platform/write_limit.h"
#include "protocol/packet.h"
#include "protocol/reply_parser.h"
#include "service/barcode_cache.h"
#include "service/device.h"
#include "transport/held_link.h"
#include "transport/link_kinds.h"

namespace quillet {

// How an exchange ended, handed to its own caller: another thread's operation may change m_ResultCode
// meanwhile.
struct ExchangeOutcome {
    ResultCode result = ResultSuccess;
    std::string reply;
};

// A buffer of the caller's, filled as everywhere in this library: zeros over its whole length, then the
// result.
struct CallerBuffer {
    uint8_t* bytes;
    uint32_t size;
    int32_t* written;  // may be null

    bool Fits(const std::string& result) const { return result.size() <= size; }
    void Fill(const std::string& result) const;
};

// What several threads do here:
// - application threads: everything public. Open, CloseService, ClaimDevice and ReleaseDevice by one at a
// time.
// - the link's power thread: ProcessStatusEvent, and from there DeviceEnable; ReopenLink.
// - the link's read thread: ProcessDataEvent. It takes m_DataMutex and never the two locks above it.
// Locks, in the order in which they may be nested: m_EnableMutex, the arbiter's lock, m_DataMutex.
class CScanner : public CDevice {
  public:
    CScanner();
    ~CScanner() override;

    void ResetState() override;

    // Properties by number (scanner_properties.cpp).
    virtual ResultCode SetPropertyString(int32_t number, const char* text);
    virtual ResultCode SetPropertyNumber(int32_t number, int32_t value);
    virtual ResultCode GetPropertyString(int32_t number, const CallerBuffer& buffer);
    virtual ResultCode GetPropertyNumber(int32_t number, int32_t* value);

    virtual ResultCode ReleaseDevice();
    virtual ResultCode GetOpenResult();

    // Sends a command of the device model and hands the reply over; waits up to 18 s for one that is
    // answered.
    virtual ResultCode DirectIO(int32_t command, const int32_t* data, const char* text, const CallerBuffer& buffer);
    virtual ResultCode COFreezeEvents(int16_t freeze);
    virtual ResultCode CloseService();
    virtual ResultCode ClearInput();
    virtual ResultCode ClaimDevice(uint32_t timeoutMs);

    // Statistics and health (scanner_statistics.cpp).
    virtual ResultCode CheckHealth(uint32_t level);
    virtual ResultCode Open(const std::string& connection);
    virtual ResultCode ResetStatistics(const std::string& statisticsBuffer);
    virtual ResultCode RetrieveStatistics(std::string* statisticsBuffer);
    virtual ResultCode UpdateStatistics(const std::string& statisticsBuffer);
    virtual ResultCode CompareFirmwareVersion(const std::string& firmwareFileName);
    virtual ResultCode UpdateFirmware(const std::string& firmwareFileName);

    // Makes the calls that barcodes have left, on the thread that made the object; nothing on another.
    virtual ResultCode Update();

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

    // Sends raw bytes and waits for the reply: 300 ms in any case, then at most timeoutMs. One at a time; a
    // second is refused with 106. Ends with 112 when the service closes meanwhile.
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
    // Makes present and later waits for barcodes return at once, and ends an exchange: the object is about to
    // go.
    void EndWaits();
    bool WaitsAreEnded() const { return m_Cache.WaitsAreEnded(); }
    // Ends the event thread before the destruction: the library is being taken down with the object still
    // there.
    void EndEventThread() { m_EventQueue.EndThread(); }
    // Then also lets go of link and claim, without a word to the scanner; the link's threads have ended. As with Open,
    // no other thread is opening or closing the object.
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
    ParseResult ParsingData(std::string& buffer, ReplyPacket& reply);
    void PostDataEvent();
    ResultCode OnDataEvent(uint32_t message, uint64_t word, int64_t longWord, bool& flag);

    // Exchanges (scanner_exchange.cpp).
    ExchangeOutcome ExchangePacket(CommandPacket& packet, uint8_t opcode, uint32_t timeoutMs);
    void HandleDirectIOEvent(const EventRecord& record);
    void OnDirectIOEventSync(uint8_t opcode, uint32_t code, const EventRecord& record);
    ExchangeOutcome OnDirectIOEvent(uint32_t number, uint32_t code);
    void HandleStatusUpdateEvent(const EventRecord& record);

    void RequestStatistics();

    // Of every arbiter call; the device type is the same whatever the link.
    LinkKey Key() const { return {.deviceType = DeviceUsb, .linkType = m_LinkType, .port = m_ComPort}; }

  private:
    static constexpr uint32_t kClosingWriteMs = 2000;

    struct ExchangePlan;
    struct Properties;

    static int32_t DataCallbackEntry(void* owner, std::string& block, uint32_t status);
    static void PowerCallbackEntry(void* owner, uint32_t status);
    static void ReopenCallbackEntry(void* owner, bool repeated);
    static void EventCallbackEntry(void* context, EventRecord* record);

    // Open, step by step.
    ResultCode OpenConnection(const std::string& connection);
    const LinkKind* ChooseKind(const DiscoveredLists& found);
    void StoreOpened(const LinkKind& kind);
    ResultCode ReleaseService(ReleaseBy who);
    void TakeDown(ReleaseBy who);
    void EndRunningExchange();

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

    static bool AppendWithinReason(std::string& bytes, std::string_view more);
    void TakeFrame(std::string_view block);
    void TakePlainBarcode(std::string_view block);
    void TakeBarcodePart(const ReplyPacket& reply);
    void LoseBarcode(uint8_t firstParameterOfPart);
    void AddBarcode(std::string text, int32_t codeType);
    ParseResult ParseCatching(std::string& buffer, ReplyPacket& reply);

    ExchangeOutcome RunExchange(const ExchangePlan& plan);
    ExchangeOutcome AwaitReply(const ExchangePlan& plan);
    std::optional<ExchangeOutcome> TakeReply(const ExchangePlan& plan);
    void BeginExchange();
    void EndExchange();
    void BreakExchange();
    bool HandleOneReply(std::string& bytes, const EventRecord& record);
    ResultCode RefuseTextOperation(const char* key, const std::string& text, const char* resultFormat);

    BarcodeCache m_Cache;  // has a lock of its own
    // Guarded by m_DataMutex:
    bool m_BarcodeLost = false;               // the barcode under way is dropped up to its last part
    bool m_ReplyLost = false;                 // something of the exchange under way is missing: there will be no reply
    std::atomic<uint32_t> m_DirectIOCode{0};  // code of the last reply; decides nothing
    std::string m_StatisticsReply;            // what a scanner tells about itself; nothing fills it at present
    // Calls of OnDataEvent that Update owes, all alike; added under m_DataMutex.
    std::atomic<uint32_t> m_PendingCalls{0};
    const uint32_t m_CreatorThread;
    OsEvent m_ReplyEvent{kManualResetEvent};       // set by the read thread, reset before each exchange
    OsEvent m_StatisticsEvent{kManualResetEvent};  // set together with it, for the wait of statistics
    OsEvent m_BreakEvent{kManualResetEvent};       // ends the exchange under way
    platform::WriteLimit m_WriteLimit;             // of this handle's link; has a lock of its own
    // What a send writes to, without m_EnableMutex, which an opening holds. Set at each enabling and left alone at
    // disabling: a lost link is still listed and takes writes, which fail in silence. Has a lock of its own.
    HeldLink m_SendLink;
    // Set by a thread that holds m_EnableMutex to join the power thread: that one then gives up its try.
    std::atomic<bool> m_JoiningPowerThread{false};
    std::atomic<bool> m_ExchangeWithoutLimit{false};  // the exchange under way would outlast a lost link
    std::recursive_mutex m_EnableMutex;  // serialises enabling, disabling and reactions to power reports; guards m_Comm
    std::recursive_mutex m_DataMutex;    // guards the cache and the three byte strings of CDevice
    std::condition_variable_any m_ExchangeEnded;  // with m_DataMutex: StatusExchange has been cleared
};

}  // namespace quillet
