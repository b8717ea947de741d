// SPDX-License-Identifier: MIT
// A scanner without hardware: hosts on this machine find it among their devices, open it, read barcodes from
// it and configure it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/event.h"
#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/frames.h"
#include "tools/virtual_scanner/host_stream.h"
#include "tools/virtual_scanner/settings.h"

namespace quillet::tools {

enum class ScannerLink { Usb, VirtualSerial, Serial };

struct ScannerOptions {
    ScannerLink link = ScannerLink::Usb;
    std::string port = "COM97";  // name of the serial port; not used over USB
    std::string serialNumber = "1234567890";
    std::string devicesDirectory;           // empty for the one of the user
    uint32_t mode = DeviceEnd::kOwnerOnly;  // who may open it, as the permission bits of a file
    // Quiet time between any two things that it sends over a serial line. Below 30 ms a host takes them for
    // one. The pieces of one thing have 40 ms between them at least.
    uint32_t serialGapMs = 0;
};

// What the scanner tells, on its receiving thread. No call may plug, unplug or destroy the scanner, nor send.
class ScannerObserver {
  public:
    virtual ~ScannerObserver() = default;
    virtual void OnPacket(const HostPacket& /*packet*/) {}
    virtual void OnAnswer(const std::string& /*frame*/) {}
    virtual void OnHost(bool /*connected*/) {}
};

enum class Delivery {
    Sent,      // with the system, on its way to the host
    NoHost,    // nobody has the USB device open; nothing was sent
    Unplugged  // the scanner isn't plugged in, or was pulled while sending
};

// Every operation may be called from any thread. A scanner starts unplugged.
class VirtualScanner {
  public:
    // Throws std::invalid_argument for options that make no scanner, std::runtime_error if another running
    // program has registered the same scanner. The observer, if any, must outlive the scanner.
    explicit VirtualScanner(ScannerOptions options, ScannerObserver* observer = nullptr);
    ~VirtualScanner();
    VirtualScanner(const VirtualScanner&) = delete;
    VirtualScanner& operator=(const VirtualScanner&) = delete;

    // Plugging in a scanner that is plugged in does nothing, nor does the opposite. Settings, faults and the
    // records of packets survive; what was being sent is cut off. Throw std::runtime_error if the system
    // refuses.
    void Plug();
    void Unplug();
    bool IsPlugged() const;
    // What hosts open at present; empty while unplugged.
    std::string HostPath() const;
    const ScannerOptions& Options() const { return m_Options; }

    // Block while the host takes nothing. Over a serial link barcodes wait in the system's buffer for a host.
    Delivery Scan(uint8_t codeType, std::string_view data);
    // Bytes as they are: a barcode without a frame over serial, reports of 64 bytes filled up with zeros over
    // USB.
    Delivery Plain(std::string_view data);

    // Spoils the next barcode or answer, once. A checksum fault waits for something that has one.
    void SetFault(Fault fault);
    void SetDelay(uint32_t answerDelayMs);  // every answer comes so much later
    void SetSilent(bool silent);            // no answers
    void SetRefuse(bool refuse);            // answers with an error status, and no setting changes
    void SetPieces(size_t bytes);           // answers come in pieces of so many bytes; 0 for whole
    // A barcode right before the next answer, once.
    void SetInterrupt(uint8_t codeType, std::string_view data);

    std::map<SettingKey, std::string> Settings() const;
    std::string Setting(const SettingKey& key) const;
    void StoreSetting(const SettingKey& key, std::string_view value);

    // What hosts have sent since the start or the last ClearPackets, the newest 65,536 of them.
    std::vector<HostPacket> Packets() const;
    void ClearPackets();
    struct PacketWait {
        uint64_t count;
        uint32_t timeoutMs;
    };
    // True as soon as so many have come since then, answered or not; false after the time-out.
    bool WaitForPackets(PacketWait wait);
    // True as soon as a host has the USB device open; over serial links nobody can tell.
    bool WaitForHost(uint32_t timeoutMs);

  private:
    struct Session;  // the time from plugging in to unplugging
    class Waiter;
    struct Behaviour {
        Fault fault = Fault::None;
        uint32_t delayMs = 0;
        bool silent = false;
        bool refuse = false;
        size_t pieceSize = 0;
        std::optional<std::pair<uint8_t, std::string>> interrupt;
    };

    void UnplugLocked();
    std::string RegistrationText(const std::string& path) const;
    std::shared_ptr<Session> CurrentSession() const;
    void Run(Session& session);
    void TakeBytes(Session& session, std::string_view bytes, HostStream& stream);
    void TakePacket(Session& session, const HostPacket& packet);
    bool IsAnswered(const HostPacket& packet) const;
    std::optional<Behaviour> Record(const HostPacket& packet);
    void CountHosts(bool connected);
    void Answer(Session& session, const HostPacket& packet, const Behaviour& behaviour);
    std::string AnswerPayload(const HostPacket& packet) const;
    Fault TakeBarcodeFault();
    Delivery SendBarcode(Session& session, uint8_t codeType, std::string_view data, Fault fault);
    Delivery Send(Session& session, const Pieces& pieces);
    bool WaitForGap(Session& session, bool firstPiece) const;
    void Notify();
    bool WaitUntil(const std::function<bool()>& done, uint32_t timeoutMs);
    bool IsUsb() const { return m_Options.link == ScannerLink::Usb; }

    const ScannerOptions m_Options;
    ScannerObserver* const m_Observer;
    DeviceRegistration m_Registration;
    std::mutex m_PlugMutex;      // one Plug or Unplug at a time; guards m_Registration; taken before m_Mutex
    mutable std::mutex m_Mutex;  // guards everything below; never held while sending, waiting or calling out
    std::shared_ptr<Session> m_Session;
    std::string m_HostPath;
    Behaviour m_Behaviour;
    SettingStore m_Settings;
    std::deque<HostPacket> m_Packets;
    uint64_t m_PacketCount = 0;
    int m_Hosts = 0;
    std::vector<platform::Event*> m_Waiters;  // signalled when a packet or a host has come
};

}  // namespace quillet::tools
