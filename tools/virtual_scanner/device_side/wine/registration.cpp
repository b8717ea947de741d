// Devices that hosts find: a serial port by keys of the registry and a COM name, the HID device by plugging it in.
#include <cstdio>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/wine/bridge.h"
#include "tools/virtual_scanner/device_side/wine/device_keys.h"
#include "tools/virtual_scanner/device_side/wine/hid_pipes.h"
#include "tools/virtual_scanner/device_side/wine/hid_plug.h"

namespace quillet::tools {
namespace {

// What is published, each device a value with the registration's name. It outlives a program that is killed, so that
// the next one of this name can take the device away.
constexpr char kRecords[] = "Software\\Quillet\\VirtualDevices";
constexpr DWORD kLargestRecord = 4096;

void WriteRecord(const std::string& name, const DeviceText& text) {
    const LSTATUS status = ::RegSetKeyValueA(HKEY_CURRENT_USER, kRecords, name.c_str(), REG_SZ, text.c_str(),
                                             static_cast<DWORD>(text.size() + 1));
    if (status != ERROR_SUCCESS) ThrowWindows(kRecords, static_cast<DWORD>(status));
}

DeviceText ReadRecord(const std::string& name) {
    DeviceText text(kLargestRecord, '\0');
    DWORD size = kLargestRecord;
    const LSTATUS status =
        ::RegGetValueA(HKEY_CURRENT_USER, kRecords, name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size);
    text.resize(status == ERROR_SUCCESS ? size - 1 : 0);
    return text;
}

using DeviceFields = std::map<std::string, std::string>;

DeviceFields FieldsOf(const DeviceText& text) {
    DeviceFields fields;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) fields[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return fields;
}

void PublishPort(DeviceFields& fields) {
    LinkPort(fields["port"], fields["path"]);
    WritePortKeys({fields["instance"], fields["port"], fields["description"], fields["manufacturer"]});
}

// The keys go first: a host that finds the port must be able to open it.
void WithdrawPort(DeviceFields& fields) {
    DeletePortKeys(fields["instance"]);
    UnlinkPort(fields["port"]);
}

// The mutex is never taken, since owning it would bind a registration to a thread: that it exists is the lock.
platform::UniqueHandle TakeName(const std::string& name) {
    const std::string mutexName = "quillet-device-" + name;
    platform::UniqueHandle lock(::CreateMutexA(nullptr, FALSE, mutexName.c_str()));
    const DWORD error = ::GetLastError();
    if (!lock.IsOpen()) ThrowWindows(name, error);
    if (error == ERROR_ALREADY_EXISTS) throw std::runtime_error(name + ": another running program has this device");
    return lock;
}

}  // namespace

struct DeviceRegistration::Impl {
    explicit Impl(const std::string& ownName) : name(ownName), lock(TakeName(ownName)) {}

    const std::string name;
    const std::string socketPath = QUILLET_HID_REPORT_PIPE;
    const platform::UniqueHandle lock;
    std::unique_ptr<HidPlug> hid;  // while the HID device is published
};

// A text without a meaning here, in the form of an absolute path.
std::string DeviceRegistration::UserDirectory() {
    return "/quillet/devices";
}

DeviceRegistration::DeviceRegistration(const std::string& /*directory*/, const std::string& name)
    : m_Impl(std::make_unique<Impl>(name)) {
    Withdraw();
}

DeviceRegistration::~DeviceRegistration() {
    Withdraw();
}

const std::string& DeviceRegistration::SocketPath() const {
    return m_Impl->socketPath;
}

void DeviceRegistration::Publish(const DeviceText& text) {
    WriteRecord(m_Impl->name, text);
    DeviceFields fields = FieldsOf(text);
    if (fields["class"] == "hid") {
        m_Impl->hid = std::make_unique<HidPlug>();
    } else {
        PublishPort(fields);
    }
}

void DeviceRegistration::Withdraw() noexcept {
    m_Impl->hid.reset();
    try {
        DeviceFields fields = FieldsOf(ReadRecord(m_Impl->name));
        if (fields["class"] == "serial") WithdrawPort(fields);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", m_Impl->name.c_str(), error.what());
    }
    ::RegDeleteKeyValueA(HKEY_CURRENT_USER, kRecords, m_Impl->name.c_str());
}

}  // namespace quillet::tools
