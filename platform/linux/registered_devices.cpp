#include "platform/linux/registered_devices.h"

#include <algorithm>
#include <fcntl.h>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "platform/linux/small_file.h"

namespace quillet::platform {
namespace {

constexpr size_t kFileLimit = 4096;
constexpr std::string_view kSuffix = ".device";
// Everything is judged on what was opened, never on a name that may mean something else a moment later.
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

enum class RegisteredClass { Serial, Hid };

using Keys = std::map<std::string, std::string, std::less<>>;

bool IsOursOrRoots(const struct stat& found) {
    return found.st_uid == 0 || found.st_uid == ::geteuid();
}

UniqueFd OpenTrustedFolder(int base, const std::string& name) {
    UniqueFd fd(RetryInterrupted([&] { return ::openat(base, name.c_str(), kFolderFlags); }));
    struct stat found {};
    const bool trusted = fd.IsOpen() && ::fstat(fd.Get(), &found) == 0 && IsOursOrRoots(found) &&
                         (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return trusted ? std::move(fd) : UniqueFd();
}

// The folder above a directory of devices has to be trusted as much as the directory.
Directory OpenTrustedDirectory(const std::string& path) {
    const size_t cut = path.rfind('/');
    const UniqueFd parent = OpenTrustedFolder(AT_FDCWD, path.substr(0, cut));
    return Directory(parent.IsOpen() ? OpenTrustedFolder(parent.Get(), path.substr(cut + 1)) : UniqueFd());
}

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
    const UniqueFd fd(RetryInterrupted([&] { return ::openat(directory, name.c_str(), kFileFlags); }));
    struct stat found {};
    if (!fd.IsOpen() || ::fstat(fd.Get(), &found) != 0 || !S_ISREG(found.st_mode) || !IsOursOrRoots(found)) {
        return false;
    }
    return ReadAll(fd.Get(), kFileLimit, content) && content.size() <= kFileLimit &&
           content.find('\0') == std::string::npos;
}

Keys ReadKeys(std::string_view content) {
    Keys keys;
    while (!content.empty()) {
        const std::string_view line = content.substr(0, content.find('\n'));
        const size_t equals = line.find('=');
        if (!line.starts_with('#') && equals != std::string_view::npos) {
            keys.insert_or_assign(std::string(line.substr(0, equals)), std::string(line.substr(equals + 1)));
        }
        content.remove_prefix(std::min(content.size(), line.size() + 1));
    }
    return keys;
}

std::string ValueOr(const Keys& keys, std::string_view key, const std::string& otherwise) {
    const auto found = keys.find(key);
    return found != keys.end() ? found->second : otherwise;
}

// False if a needed key is missing or the class is another one.
bool DescribeDevice(const Keys& keys, RegisteredClass wanted, const std::string& name, FoundDevice& device) {
    const bool serial = wanted == RegisteredClass::Serial;
    if (ValueOr(keys, "class", "") != (serial ? "serial" : "hid")) {
        return false;
    }
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

void AddDevices(const std::string& path, RegisteredClass wanted, FoundDevices& devices) {
    Directory directory = OpenTrustedDirectory(path);
    if (!directory.IsOpen()) {
        return;
    }
    for (const std::string& name : DeviceFileNames(directory)) {
        std::string content;
        FoundDevice device;
        if (ReadDeviceFile(directory.Fd(), name, content) && DescribeDevice(ReadKeys(content), wanted, name, device)) {
            if (wanted == RegisteredClass::Hid) {
                device.interfacePath = std::string("registered:").append(path).append("/").append(name);
            }
            devices.push_back(std::move(device));
        }
    }
}

FoundDevices FindRegistered(const LinuxRoots& roots, RegisteredClass wanted) {
    FoundDevices devices;
    for (const std::string& path : roots.registered) {
        AddDevices(path, wanted, devices);
    }
    return devices;
}

}  // namespace

FoundDevices FindRegisteredPorts(const LinuxRoots& roots) {
    return FindRegistered(roots, RegisteredClass::Serial);
}

FoundDevices FindRegisteredHidDevices(const LinuxRoots& roots) {
    return FindRegistered(roots, RegisteredClass::Hid);
}

}  // namespace quillet::platform
