// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/virtual_scanner.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"
#include "protocol/packet.h"

namespace quillet::tools {
namespace {

constexpr size_t kKeptPackets = 65536;
constexpr size_t kMaxSerialNumber = 40;  // the version text has to fit one USB block
constexpr uint32_t kStragglersMs = 100;  // bytes of a packet come together
constexpr uint32_t kPieceGapMs = 40;     // more than the 25 ms after which a host's serial read ends
constexpr int64_t kNsPerMs = 1'000'000;
constexpr uint8_t kStatusRefused = 0x01;
constexpr char kApplicationVersion[] = "1.00";

// A device keeps its own time: a clock that a host's test puts in place of the system's is none of its business.
platform::Clock& DeviceClock() {
    return platform::SystemClock();
}

bool IsPortName(std::string_view name) {
    return name.size() > 3 && name.size() <= 8 && name.starts_with("COM") && name[3] != '0' &&
           name.find_first_not_of("0123456789", 3) == std::string_view::npos;
}

// No backslash, "&" or "_", which mean something inside an instance ID.
bool IsSerialNumber(std::string_view text) {
    constexpr std::string_view kAllowed = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-.";
    return !text.empty() && text.size() <= kMaxSerialNumber &&
           text.find_first_not_of(kAllowed) == std::string_view::npos;
}

ScannerOptions Validated(ScannerOptions options) {
    if (options.link != ScannerLink::Usb && !IsPortName(options.port)) {
        throw std::invalid_argument("a port is named COM1 to COM99999, not '" + options.port + "'");
    }
    if (!IsSerialNumber(options.serialNumber)) {
        throw std::invalid_argument("a serial number is 1 to 40 letters, digits, '-' and '.', not '" +
                                    options.serialNumber + "'");
    }
    if (options.devicesDirectory.empty()) options.devicesDirectory = DeviceRegistration::UserDirectory();
    if (options.mode > 0777) throw std::invalid_argument("a mode is made of the nine permission bits of a file");
    if (!std::filesystem::path(options.devicesDirectory).has_root_directory()) {
        throw std::invalid_argument("hosts know a devices directory by its absolute path, not by '" +
                                    options.devicesDirectory + "'");
    }
    return options;
}

// The same at each plug, so that a host that knew the scanner finds it again.
std::string RegistrationName(const ScannerOptions& options) {
    return "virtual-" + (options.link == ScannerLink::Usb ? "usb-" + options.serialNumber : options.port);
}

std::string InstanceId(const ScannerOptions& options) {
    switch (options.link) {
        case ScannerLink::Usb: return "HID\\VID_18D1&PID_010B\\" + options.serialNumber;
        case ScannerLink::VirtualSerial: return "USB\\VID_18D1&PID_0009\\" + options.serialNumber;
        case ScannerLink::Serial: break;
    }
    return "ACPI\\PNP0501\\" + options.port.substr(3);
}

Delivery DeliveryOf(DeviceEnd::Sent sent) {
    switch (sent) {
        case DeviceEnd::Sent::All: return Delivery::Sent;
        case DeviceEnd::Sent::NoHost: return Delivery::NoHost;
        default: return Delivery::Unplugged;
    }
}

}  // namespace

struct VirtualScanner::Session {
    platform::StopSignal stop;
    platform::Thread receiver;
    std::mutex sendMutex;            // one sending at a time; guards the rest, but for the receiver's use of `end`
    std::unique_ptr<DeviceEnd> end;  // gone once unplugged; the receiver has ended before
    int64_t lastSentNs = 0;
};

// One waiting thread's place in m_Waiters.
class VirtualScanner::Waiter {
  public:
    explicit Waiter(VirtualScanner& scanner)
        : m_Scanner(scanner), m_Changed(platform::Event::Create(platform::Event::Kind::AutoReset)) {
        if (!m_Changed) throw std::runtime_error("no event to wait on");
        const std::lock_guard lock(m_Scanner.m_Mutex);
        m_Scanner.m_Waiters.push_back(m_Changed.get());
    }
    ~Waiter() {
        const std::lock_guard lock(m_Scanner.m_Mutex);
        std::erase(m_Scanner.m_Waiters, m_Changed.get());
    }
    platform::Event& Changed() { return *m_Changed; }

  private:
    VirtualScanner& m_Scanner;
    std::unique_ptr<platform::Event> m_Changed;
};

VirtualScanner::VirtualScanner(ScannerOptions options, ScannerObserver* observer)
    : m_Options(Validated(std::move(options))),
      m_Observer(observer),
      m_Registration({.directory = m_Options.devicesDirectory, .name = RegistrationName(m_Options)}) {}

VirtualScanner::~VirtualScanner() {
    Unplug();
}

// ---- Plugging
// -----------------------------------------------------------------------------------------------------

void VirtualScanner::Plug() {
    const std::lock_guard plugging(m_PlugMutex);
    if (IsPlugged()) return;
    auto session = std::make_shared<Session>();
    session->end = IsUsb() ? DeviceEnd::NewReportSocket(m_Registration.SocketPath(), m_Options.mode)
                           : DeviceEnd::NewTerminal(m_Options.mode);
    const std::string path = session->end->HostPath();
    session->receiver = platform::StartThread("scanner", [this, started = session.get()] { Run(*started); });
    {
        const std::lock_guard lock(m_Mutex);
        m_Session = session;
        m_HostPath = path;
    }
    try {
        m_Registration.Publish(RegistrationText(path));
    } catch (...) {
        UnplugLocked();
        throw;
    }
}

void VirtualScanner::Unplug() {
    const std::lock_guard plugging(m_PlugMutex);
    UnplugLocked();
}

// The registration goes first: a host whose read has failed must not find the device still there.
void VirtualScanner::UnplugLocked() {
    m_Registration.Withdraw();
    std::shared_ptr<Session> session;
    {
        const std::lock_guard lock(m_Mutex);
        session = std::exchange(m_Session, nullptr);
        m_HostPath.clear();
    }
    if (!session) return;
    session->stop.Set();
    session->receiver.Join();
    {
        const std::lock_guard sending(session->sendMutex);
        session->end.reset();
    }
    const std::lock_guard lock(m_Mutex);
    m_Hosts = 0;
}

bool VirtualScanner::IsPlugged() const {
    return CurrentSession() != nullptr;
}

std::string VirtualScanner::HostPath() const {
    const std::lock_guard lock(m_Mutex);
    return m_HostPath;
}

std::string VirtualScanner::RegistrationText(const std::string& path) const {
    std::string text = IsUsb() ? "class=hid\n" : "class=serial\nport=" + m_Options.port + "\n";
    text += "path=" + path + "\n";
    text += "instance=" + InstanceId(m_Options) + "\n";
    return text + "description=Virtual barcode scanner\nmanufacturer=Quillet\n";
}

std::shared_ptr<VirtualScanner::Session> VirtualScanner::CurrentSession() const {
    const std::lock_guard lock(m_Mutex);
    return m_Session;
}

// ---- From the host
// ------------------------------------------------------------------------------------------------

void VirtualScanner::Run(Session& session) {
    using Received = DeviceEnd::Received;
    HostStream stream;
    std::string bytes;
    for (;;) {
        const uint32_t timeoutMs = stream.Waiting() ? kStragglersMs : platform::kNoLimitMs;
        switch (session.end->Receive(bytes, timeoutMs, session.stop)) {
            case Received::Bytes: TakeBytes(session, bytes, stream); break;
            case Received::TimedOut: TakePacket(session, stream.GiveUp()); break;
            case Received::HostCame: CountHosts(true); break;
            case Received::HostGone: CountHosts(false); break;
            default: return;
        }
    }
}

void VirtualScanner::TakeBytes(Session& session, std::string_view bytes, HostStream& stream) {
    if (IsUsb()) {
        TakePacket(session, DecodeReport(bytes));
        return;
    }
    for (const HostPacket& packet : stream.Feed(bytes)) TakePacket(session, packet);
}

void VirtualScanner::CountHosts(bool connected) {
    {
        const std::lock_guard lock(m_Mutex);
        m_Hosts += connected ? 1 : -1;
        Notify();
    }
    if (m_Observer != nullptr) m_Observer->OnHost(connected);
}

// An answer to the switching of barcode frames would have the opcode of a barcode, and be taken for one.
bool VirtualScanner::IsAnswered(const HostPacket& packet) const {
    return packet.valid && packet.opcode != OpcodeBarcode && !m_Behaviour.silent;
}

// Who has waited for this packet may change the behaviour at once, so how to answer is fixed together with recording.
std::optional<VirtualScanner::Behaviour> VirtualScanner::Record(const HostPacket& packet) {
    const std::lock_guard lock(m_Mutex);
    m_Packets.push_back(packet);
    if (m_Packets.size() > kKeptPackets) m_Packets.pop_front();
    ++m_PacketCount;
    if (packet.valid && IsSettingOpcode(packet.opcode) && !m_Behaviour.refuse) {
        const SettingChange change = ParseSetting(packet.opcode, packet.parameters);
        m_Settings.Set(change.key, change.value);
    }
    Notify();
    if (!IsAnswered(packet)) return std::nullopt;
    Behaviour behaviour = m_Behaviour;
    m_Behaviour.interrupt.reset();
    m_Behaviour.fault = Fault::None;
    return behaviour;
}

void VirtualScanner::TakePacket(Session& session, const HostPacket& packet) {
    const std::optional<Behaviour> behaviour = Record(packet);
    if (m_Observer != nullptr) m_Observer->OnPacket(packet);
    if (behaviour) Answer(session, packet, *behaviour);
}

void VirtualScanner::Answer(Session& session, const HostPacket& packet, const Behaviour& behaviour) {
    if (behaviour.delayMs > 0 && session.stop.Wait(behaviour.delayMs)) return;
    if (behaviour.interrupt) SendBarcode(session, behaviour.interrupt->first, behaviour.interrupt->second, Fault::None);
    const uint8_t opcode = packet.opcode == OpcodeQuerySetting ? +OpcodeQueryReply : packet.opcode;
    const uint8_t status = behaviour.refuse ? kStatusRefused : kReplyAccepted;
    const std::string payload = behaviour.refuse ? std::string(1, '\0') : AnswerPayload(packet);
    const std::string frame = FrameBytes(opcode, status, payload, behaviour.fault);
    const Delivery delivery = Send(session, IsUsb() ? UsbFrame(frame, behaviour.pieceSize, behaviour.fault)
                                                    : SerialFrame(frame, behaviour.pieceSize, behaviour.fault));
    if (delivery == Delivery::Sent && m_Observer != nullptr) m_Observer->OnAnswer(frame);
}

std::string VirtualScanner::AnswerPayload(const HostPacket& packet) const {
    switch (packet.opcode) {
        case OpcodeVersion:
            return std::string(1, '\0') + "SN:" + m_Options.serialNumber + " App:" + kApplicationVersion;
        case OpcodeQuerySetting: {
            const auto opcode = static_cast<uint8_t>(packet.parameters.front());
            return packet.parameters.front() + Setting({opcode, packet.parameters.substr(1)});
        }
        default: return packet.parameters;
    }
}

// ---- To the host
// --------------------------------------------------------------------------------------------------

Delivery VirtualScanner::Scan(uint8_t codeType, std::string_view data) {
    const std::shared_ptr<Session> session = CurrentSession();
    return session ? SendBarcode(*session, codeType, data, TakeBarcodeFault()) : Delivery::Unplugged;
}

Delivery VirtualScanner::Plain(std::string_view data) {
    const std::shared_ptr<Session> session = CurrentSession();
    if (!session) return Delivery::Unplugged;
    return Send(*session, IsUsb() ? UsbReports(data) : Pieces{std::string(data)});
}

Delivery VirtualScanner::SendBarcode(Session& session, uint8_t codeType, std::string_view data, Fault fault) {
    return Send(session, IsUsb() ? UsbBarcode(codeType, data, fault) : SerialBarcode(codeType, data, fault));
}

Delivery VirtualScanner::Send(Session& session, const Pieces& pieces) {
    const std::lock_guard sending(session.sendMutex);
    for (const std::string& piece : pieces) {
        if (!session.end || !WaitForGap(session, &piece == &pieces.front())) return Delivery::Unplugged;
        const Delivery delivery = DeliveryOf(session.end->Send(piece, session.stop));
        if (delivery != Delivery::Sent) return delivery;
        session.lastSentNs = DeviceClock().NowNs();
    }
    return Delivery::Sent;
}

// False if the scanner was unplugged meanwhile.
bool VirtualScanner::WaitForGap(Session& session, bool firstPiece) const {
    if (IsUsb() || session.lastSentNs == 0) return true;
    const uint32_t gapMs = firstPiece ? m_Options.serialGapMs : std::max(m_Options.serialGapMs, kPieceGapMs);
    const int64_t leftNs = session.lastSentNs + gapMs * kNsPerMs - DeviceClock().NowNs();
    return leftNs <= 0 || !session.stop.Wait(static_cast<uint32_t>(leftNs / kNsPerMs) + 1);
}

// ---- Behaviour, settings and records
// ------------------------------------------------------------------------------

Fault VirtualScanner::TakeBarcodeFault() {
    const std::lock_guard lock(m_Mutex);
    if (m_Behaviour.fault == Fault::Checksum && IsUsb()) return Fault::None;  // scan blocks have none
    return std::exchange(m_Behaviour.fault, Fault::None);
}

void VirtualScanner::SetFault(Fault fault) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.fault = fault;
}

void VirtualScanner::SetDelay(uint32_t answerDelayMs) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.delayMs = answerDelayMs;
}

void VirtualScanner::SetSilent(bool silent) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.silent = silent;
}

void VirtualScanner::SetRefuse(bool refuse) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.refuse = refuse;
}

void VirtualScanner::SetPieces(size_t bytes) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.pieceSize = bytes;
}

void VirtualScanner::SetInterrupt(uint8_t codeType, std::string_view data) {
    const std::lock_guard lock(m_Mutex);
    m_Behaviour.interrupt.emplace(codeType, data);
}

std::map<SettingKey, std::string> VirtualScanner::Settings() const {
    const std::lock_guard lock(m_Mutex);
    return m_Settings.All();
}

std::string VirtualScanner::Setting(const SettingKey& key) const {
    const std::lock_guard lock(m_Mutex);
    return m_Settings.Get(key);
}

void VirtualScanner::StoreSetting(const SettingKey& key, std::string_view value) {
    const std::lock_guard lock(m_Mutex);
    m_Settings.Set(key, std::string(value));
}

std::vector<HostPacket> VirtualScanner::Packets() const {
    const std::lock_guard lock(m_Mutex);
    return {m_Packets.begin(), m_Packets.end()};
}

void VirtualScanner::ClearPackets() {
    const std::lock_guard lock(m_Mutex);
    m_Packets.clear();
    m_PacketCount = 0;
}

// ---- Waiting
// ------------------------------------------------------------------------------------------------------

bool VirtualScanner::WaitForPackets(PacketWait wait) {
    return WaitUntil([&] { return m_PacketCount >= wait.count; }, wait.timeoutMs);
}

bool VirtualScanner::WaitForHost(uint32_t timeoutMs) {
    return WaitUntil([&] { return m_Hosts > 0; }, timeoutMs);
}

// Under m_Mutex.
void VirtualScanner::Notify() {
    for (platform::Event* waiter : m_Waiters) waiter->Signal();
}

// `done` is asked under m_Mutex.
bool VirtualScanner::WaitUntil(const std::function<bool()>& done, uint32_t timeoutMs) {
    Waiter waiter(*this);
    const auto isDone = [&] {
        const std::lock_guard lock(m_Mutex);
        return done();
    };
    const int64_t endNs = DeviceClock().NowNs() + timeoutMs * kNsPerMs;
    while (!isDone()) {
        const int64_t leftNs = endNs - DeviceClock().NowNs();
        if (leftNs <= 0) return false;
        DeviceClock().Wait(waiter.Changed(), static_cast<uint32_t>(leftNs / kNsPerMs) + 1);
    }
    return true;
}

}  // namespace quillet::tools
