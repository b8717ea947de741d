// SPDX-License-Identifier: MIT
#include "platform/linux/registered_devices.h"

#include <algorithm>
#include <fcntl.h>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/linux/small_file.h"
#include "platform/linux/trusted_folder.h"

namespace quillet::platform {
namespace {

constexpr size_t kFileLimit = 4096;
constexpr std::string_view kSuffix = ".device";

enum class RegisteredClass { Serial, Hid };

using Keys = std::map<std::string_view, std::string_view>;  // into the content of the file

std::vector<std::string> DeviceFileNames(Directory& directory) {
    std::vector<std::string> names;
    while (const dirent* entry = directory.Next()) {
        const std::string_view name = entry->d_name;
        if (name.ends_with(kSuffix) && (entry->d_type == DT_REG || entry->d_type == DT_UNKNOWN)) {
            names.emplace_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool ReadDeviceFile(int directory, const std::string& name, std::string& content) {
    const UniqueFd fd = OpenTrustedFile(directory, name);
    return fd.IsOpen() && ReadFile(fd, kFileLimit, content) && content.find('\0') == std::string::npos;
}

// True while somebody has a write lock on the whole file. Asks for a read lock without taking it, so that only a
// write lock counts.
bool IsHeld(int directory, const std::string& name) {
    const UniqueFd fd = name.find('/') == std::string::npos ? OpenTrustedFile(directory, name) : UniqueFd();
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (!fd.IsOpen()) return false;
    if (::fcntl(fd.Get(), F_OFD_GETLK, &lock) != 0) {
        ThrowIfExhausted();
        return false;
    }
    return lock.l_type == F_WRLCK && lock.l_start == 0 && lock.l_len == 0;
}

Keys ReadKeys(std::string_view content) {
    Keys keys;
    while (!content.empty()) {
        const std::string_view line = content.substr(0, content.find('\n'));
        const size_t equals = line.find('=');
        if (!line.starts_with('#') && equals != std::string_view::npos) {
            keys.insert_or_assign(line.substr(0, equals), line.substr(equals + 1));
        }
        content.remove_prefix(std::min(content.size(), line.size() + 1));
    }
    return keys;
}

std::string ValueOr(const Keys& keys, std::string_view key, const std::string& otherwise) {
    const auto found = keys.find(key);
    return found != keys.end() ? std::string(found->second) : otherwise;
}

// False if a needed key is missing or the class is another one.
bool DescribeDevice(const Keys& keys, RegisteredClass wanted, const std::string& name, FoundDevice& device) {
    const bool serial = wanted == RegisteredClass::Serial;
    if (ValueOr(keys, "class", "") != (serial ? "serial" : "hid")) return false;
    const std::string title = name.substr(0, name.size() - kSuffix.size());
    device.node = ValueOr(keys, "path", "");
    device.instanceId = ValueOr(keys, "instance", (serial ? "ROOT\\PORTS\\" : "ROOT\\HID\\") + title);
    device.description = ValueOr(keys, "description", "");
    device.manufacturer = ValueOr(keys, "manufacturer", "");
    if (serial) {
        device.portName = ValueOr(keys, "port", "");
        device.parentId = ValueOr(keys, "parent", "");
    }
    return device.node.starts_with('/') && (!serial || !device.portName.empty());
}

std::optional<FoundDevice> ReadRegistration(int directory, const std::string& path, const std::string& name,
                                            RegisteredClass wanted) {
    std::string content;
    FoundDevice device;
    if (!ReadDeviceFile(directory, name, content)) return std::nullopt;
    const Keys keys = ReadKeys(content);
    const std::string lock = ValueOr(keys, "lock", "");
    if (!DescribeDevice(keys, wanted, name, device) || !(lock.empty() || IsHeld(directory, lock))) return std::nullopt;
    device.registration = std::string(path).append("/").append(name);
    if (wanted == RegisteredClass::Hid) device.interfacePath = "registered:" + device.registration;
    return device;
}

void AddDevices(const std::string& path, RegisteredClass wanted, FoundDevices& devices) {
    Directory directory(OpenTrustedFolder(path));
    if (!directory.IsOpen()) return;
    for (const std::string& name : DeviceFileNames(directory)) {
        if (auto device = ReadRegistration(directory.Fd(), path, name, wanted)) devices.push_back(std::move(*device));
    }
}

FoundDevices FindRegistered(const LinuxRoots& roots, RegisteredClass wanted) {
    FoundDevices devices;
    for (const std::string& path : roots.registered) AddDevices(path, wanted, devices);
    return devices;
}

}  // namespace

FoundDevices FindRegisteredPorts(const LinuxRoots& roots) {
    return FindRegistered(roots, RegisteredClass::Serial);
}

FoundDevices FindRegisteredHidDevices(const LinuxRoots& roots) {
    return FindRegistered(roots, RegisteredClass::Hid);
}

std::optional<FoundDevice> FindRegistration(const FoundDevice& before) {
    const size_t cut = before.registration.rfind('/');
    const std::string path = before.registration.substr(0, cut);
    const UniqueFd directory = OpenTrustedFolder(path);
    if (!directory.IsOpen()) return std::nullopt;
    const RegisteredClass wanted = before.portName.empty() ? RegisteredClass::Hid : RegisteredClass::Serial;
    return ReadRegistration(directory.Get(), path, before.registration.substr(cut + 1), wanted);
}

}  // namespace quillet::platform
