// Devices as the registry holds them.
#pragma once

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "registry_tree.h"

namespace quillet::platform {

inline constexpr const char* kPortsClass = "{4D36E978-E325-11CE-BFC1-08002BE10318}";
inline constexpr const char* kModemClass = "{4D36E96D-E325-11CE-BFC1-08002BE10318}";
inline constexpr const char* kHidClass = "{745A17A0-74D3-11D0-B6FE-00A0C90F57DA}";
inline constexpr const char* kComPortInterface = "{86E0D1E0-8089-11D0-9CE4-08003E301F73}";
inline constexpr const char* kModemInterface = "{2C7089AA-2E0E-11D1-B114-00C04FC2AAE4}";
inline constexpr const char* kHidInterface = "{4D1E55B2-F16F-11CF-88CB-001111000030}";

struct RegistryValue {
    const char* name;
    DWORD type;
    std::string text;
    uint32_t number = 0;  // for REG_DWORD
};

struct RegistryDevice {
    const char* instanceId;
    const char* setupClass;
    std::string description;
    std::string manufacturer;
    std::vector<RegistryValue> values;    // of the device's own key
    std::vector<const char*> interfaces;  // classes
};

inline std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// As Windows writes them: \\?\usb#vid_18d1&pid_0009#1#{...}
inline std::string PathOfInterface(const std::string& instanceId, const std::string& interfaceClass) {
    std::string path = ToLower(instanceId);
    std::replace(path.begin(), path.end(), '\\', '#');
    return "\\\\?\\" + path + "#" + ToLower(interfaceClass);
}

inline void WriteInterface(RegistryTree& registry, const std::string& instanceId, const std::string& interfaceClass) {
    const std::string path = PathOfInterface(instanceId, interfaceClass);
    const std::string key =
        "Control\\DeviceClasses\\" + interfaceClass + "\\##?#" + path.substr(std::string("\\\\?\\").size());
    registry.WriteText(key, "DeviceInstance", instanceId);
    registry.WriteText(key + "\\#", "SymbolicLink", path);
    registry.WriteNumber(key + "\\#\\Control", "Linked", 1);
}

inline void WriteDevice(RegistryTree& registry, const RegistryDevice& device) {
    const std::string key = std::string("Enum\\") + device.instanceId;
    registry.WriteText(key, "ClassGUID", device.setupClass);
    if (!device.description.empty()) registry.WriteText(key, "DeviceDesc", device.description);
    if (!device.manufacturer.empty()) registry.WriteText(key, "Mfg", device.manufacturer);
    for (const RegistryValue& value : device.values) {
        const std::string parameters = key + "\\Device Parameters";
        if (value.type == REG_DWORD) {
            registry.WriteNumber(parameters, value.name, value.number);
        } else {
            registry.WriteText(parameters, value.name, value.text, value.type);
        }
    }
    for (const char* interfaceClass : device.interfaces) WriteInterface(registry, device.instanceId, interfaceClass);
}

}  // namespace quillet::platform
