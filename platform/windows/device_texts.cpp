// SPDX-License-Identifier: MIT
#include "platform/windows/device_texts.h"

#include <array>
#include <cstring>

namespace quillet::platform {
namespace {

constexpr size_t kFirstSize = 260;
constexpr size_t kDeviceIdSize = 200;

// Calls `read` with a zeroed buffer that grows as long as it answers that it needs more. `read` takes the
// buffer, the size to be replaced by the needed one, and gives an error code.
template <typename Read>
bool ReadGrowing(std::string& buffer, DWORD needsMore, Read read) {
    buffer.assign(kFirstSize, '\0');
    for (;;) {
        auto size = static_cast<DWORD>(buffer.size());
        const DWORD error = read(reinterpret_cast<BYTE*>(buffer.data()), size);
        if (error != needsMore || size + 2 <= buffer.size()) return error == ERROR_SUCCESS;
        buffer.assign(size + 2, '\0');
    }
}

bool IsText(DWORD type) noexcept {
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

}  // namespace

KeyValue ReadRegistryValue(HKEY key, const char* name) {
    KeyValue value;
    DWORD type = REG_NONE;
    std::string buffer;
    const bool read = ReadGrowing(buffer, ERROR_MORE_DATA, [&](BYTE* data, DWORD& size) {
        return static_cast<DWORD>(::RegQueryValueExA(key, name, nullptr, &type, data, &size));
    });
    if (!read) return value;
    if (type == REG_SZ) {
        value.kind = KeyValue::Kind::Text;
        value.text = buffer.c_str();
    } else if (type == REG_DWORD) {
        value.kind = KeyValue::Kind::Number;
        std::memcpy(&value.number, buffer.data(), sizeof value.number);
    }
    return value;
}

std::string ReadDeviceProperty(HDEVINFO list, SP_DEVINFO_DATA& device, DWORD property) {
    std::string buffer;
    const bool read = ReadGrowing(buffer, ERROR_INSUFFICIENT_BUFFER, [&](BYTE* data, DWORD& size) -> DWORD {
        DWORD type = REG_NONE;
        const DWORD room = size;
        if (::SetupDiGetDeviceRegistryPropertyA(list, &device, property, &type, data, room, &size) != FALSE) return 0;
        const DWORD error = ::GetLastError();
        return error == ERROR_INSUFFICIENT_BUFFER && !IsText(type) ? ERROR_INVALID_DATA : error;
    });
    return read ? std::string(buffer.c_str()) : std::string();
}

std::string ReadDeviceId(DEVINST node) {
    std::array<char, kDeviceIdSize + 1> buffer{};  // the longest ID may fill its room without an end
    const bool read = ::CM_Get_Device_IDA(node, buffer.data(), kDeviceIdSize, 0) == CR_SUCCESS;
    return read ? std::string(buffer.data()) : std::string();
}

}  // namespace quillet::platform
