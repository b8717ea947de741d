// Devices that hosts find: a serial port by keys of the registry and a COM name, the HID device by plugging it in.
#include <cstdio>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/device_side.h"
#include "wine/device_side/bridge.h"
#include "wine/device_side/device_keys.h"
#include "wine/device_side/hid_plug.h"
#include "wine/hid_bus/pipes.h"

namespace quillet::platform {
namespace {

// Records of what is published, each a value with the registration's name; they outlive a program that is killed.
constexpr char kRecords[] = "Software\\Quillet\\VirtualDevices";
constexpr DWORD kLargestRecord = 4096;

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

// The driver has one device, so there is one place for it; used under the lock of the registration's owner, of which
// only one can have the device.
std::unique_ptr<HidPlug>& PluggedHid() {
    static std::unique_ptr<HidPlug> plug;
    return plug;
}

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

void PublishPort(DeviceFields& fields) {
    LinkPort(fields["port"], fields["path"]);
    WritePortKeys({fields["instance"], fields["port"], fields["description"], fields["manufacturer"]});
}

// The keys go first: a host that finds the port must be able to open it.
void WithdrawPort(DeviceFields& fields) {
    DeletePortKeys(fields["instance"]);
    UnlinkPort(fields["port"]);
}

}  // namespace

// A text without a meaning here, in the form of an absolute path.
std::string DeviceRegistration::UserDirectory() {
    return "/quillet/devices";
}

DeviceRegistration::DeviceRegistration(const std::string& /*directory*/, const std::string& name)
    : m_DevicePath(name), m_SocketPath(QUILLET_HID_REPORT_PIPE), m_LockPath("quillet-device-" + name) {
    TakeName();
    Withdraw();
}

DeviceRegistration::~DeviceRegistration() {
    Withdraw();
    ::CloseHandle(::LongToHandle(m_Lock));
}

// The mutex is never taken, since owning it would bind this object to a thread: that it exists is the lock.
void DeviceRegistration::TakeName() {
    UniqueHandle lock = CheckedHandle(::CreateMutexA(nullptr, FALSE, m_LockPath.c_str()), m_LockPath);
    if (::GetLastError() == ERROR_ALREADY_EXISTS) {
        throw std::runtime_error(m_DevicePath + ": another running program has this device");
    }
    m_Lock = ::HandleToLong(lock.release());  // handles have 32 bits that count
}

void DeviceRegistration::Publish(const DeviceText& text) {
    WriteRecord(m_DevicePath, text);
    DeviceFields fields = FieldsOf(text);
    if (fields["class"] == "hid") {
        PluggedHid() = std::make_unique<HidPlug>();
    } else {
        PublishPort(fields);
    }
}

void DeviceRegistration::Withdraw() noexcept {
    try {
        DeviceFields fields = FieldsOf(ReadRecord(m_DevicePath));
        if (fields["class"] == "hid") PluggedHid().reset();
        if (fields["class"] == "serial") WithdrawPort(fields);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    ::RegDeleteKeyValueA(HKEY_CURRENT_USER, kRecords, m_DevicePath.c_str());
}

}  // namespace quillet::platform
