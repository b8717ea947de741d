// SPDX-License-Identifier: MIT
// Devices as the registry holds them.
#pragma once

#include <windows.h>
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quillet::test {
using namespace platform;

inline constexpr const char* kPortsClass = "{4D36E978-E325-11CE-BFC1-08002BE10318}";
inline constexpr const char* kModemClass = "{4D36E96D-E325-11CE-BFC1-08002BE10318}";
inline constexpr const char* kHidClass = "{745A17A0-74D3-11D0-B6FE-00A0C90F57DA}";
inline constexpr const char* kComPortInterface = "{86E0D1E0-8089-11D0-9CE4-08003E301F73}";
inline constexpr const char* kModemInterface = "{2C7089AA-2E0E-11D1-B114-00C04FC2AAE4}";
inline constexpr const char* kHidInterface = "{4D1E55B2-F16F-11CF-88CB-001111000030}";

struct RegistryValue {
    const char* name;
    DWORD type;
    std::string bytes;
};
inline RegistryValue Text(const char* name, const std::string& text, DWORD type = REG_SZ) {
    return {name, type, text + '\0'};
}
inline RegistryValue Number(const char* name, uint32_t number) {
    return {name, REG_DWORD, std::string(reinterpret_cast<const char*>(&number), sizeof number)};
}

struct RegistryDevice {
    const char* instanceId;
    const char* setupClass;
    std::string description;
    std::string manufacturer;
    std::vector<RegistryValue> values;    // of the device's own key
    std::vector<const char*> interfaces;  // classes
};

inline std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Without the \\?\ in front: usb#vid_18d1&pid_0009#1#{...}
inline std::string InterfaceName(const std::string& instanceId, const std::string& interfaceClass) {
    std::string name = ToLower(instanceId + "#" + interfaceClass);
    std::replace(name.begin(), name.end(), '\\', '#');
    return name;
}

// Written by a test and gone with this object, but for the empty folders above them.
class DeviceKeys {
  public:
    DeviceKeys() = default;
    ~DeviceKeys() { Delete(); }
    DeviceKeys(const DeviceKeys&) = delete;
    DeviceKeys& operator=(const DeviceKeys&) = delete;

    void Write(const std::vector<RegistryDevice>& devices) {
        for (const RegistryDevice& device : devices) {
            WriteDevice(device);
            for (const char* interfaceClass : device.interfaces) WriteInterface(device.instanceId, interfaceClass);
        }
    }
    void Delete() {
        for (const std::string& key : m_Written) ::RegDeleteTreeA(HKEY_LOCAL_MACHINE, key.c_str());
        m_Written.clear();
    }

  private:
    void WriteDevice(const RegistryDevice& device) {
        const std::string key = NewKey("Enum\\", device.instanceId);
        WriteValue(key, Text("ClassGUID", device.setupClass));
        if (!device.description.empty()) WriteValue(key, Text("DeviceDesc", device.description));
        if (!device.manufacturer.empty()) WriteValue(key, Text("Mfg", device.manufacturer));
        for (const RegistryValue& value : device.values) WriteValue(key + "\\Device Parameters", value);
    }
    void WriteInterface(const std::string& instanceId, const std::string& interfaceClass) {
        const std::string name = InterfaceName(instanceId, interfaceClass);
        const std::string key = NewKey("Control\\DeviceClasses\\" + interfaceClass + "\\##?#", name);
        WriteValue(key, Text("DeviceInstance", instanceId));
        WriteValue(key + "\\#", Text("SymbolicLink", "\\\\?\\" + name));
        WriteValue(key + "\\#\\Control", Number("Linked", 1));
    }
    std::string NewKey(const std::string& folder, const std::string& name) {
        m_Written.push_back("System\\CurrentControlSet\\" + folder + name);
        return m_Written.back();
    }
    static void WriteValue(const std::string& key, const RegistryValue& value) {
        const auto size = static_cast<DWORD>(value.bytes.size());
        EXPECT_EQ(::RegSetKeyValueA(HKEY_LOCAL_MACHINE, key.c_str(), value.name, value.type, value.bytes.data(), size),
                  ERROR_SUCCESS)
            << key;
    }

    std::vector<std::string> m_Written;  // keys; what is below belongs to them
};

}  // namespace quillet::test
