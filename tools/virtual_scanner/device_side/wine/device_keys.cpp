#include "tools/virtual_scanner/device_side/wine/device_keys.h"

#include "tools/virtual_scanner/device_side/wine/handles.h"

namespace quillet::tools {
namespace {

constexpr char kPortsClass[] = "{4D36E978-E325-11CE-BFC1-08002BE10318}";

std::string InstanceKey(const std::string& instance) {
    return "System\\CurrentControlSet\\Enum\\" + instance;
}

void WriteText(const std::string& key, const char* name, const std::string& text) {
    const LSTATUS status = ::RegSetKeyValueA(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(),
                                             static_cast<DWORD>(text.size() + 1));
    if (status != ERROR_SUCCESS) ThrowWindows(key, static_cast<DWORD>(status));
}

}  // namespace

// The class comes last: it makes the key a port's.
void WritePortKeys(const PortKeys& keys) {
    const std::string key = InstanceKey(keys.instance);
    WriteText(key + "\\Device Parameters", "PortName", keys.port);
    WriteText(key, "DeviceDesc", keys.description);
    WriteText(key, "FriendlyName", keys.description + " (" + keys.port + ")");
    WriteText(key, "Mfg", keys.manufacturer);
    WriteText(key, "Class", "Ports");
    WriteText(key, "ClassGUID", kPortsClass);
}

void DeletePortKeys(const std::string& instance) noexcept {
    ::RegDeleteTreeA(HKEY_LOCAL_MACHINE, InstanceKey(instance).c_str());
}

}  // namespace quillet::tools
