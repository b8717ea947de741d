#include "tools/virtual_scanner/device_side/wine/hid_plug.h"

#include <cctype>
#include <cstdio>
#include <memory>
#include <setupapi.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/virtual_scanner/device_side/wine/hid_pipes.h"

namespace quillet::tools {
namespace {

constexpr DWORD kPipePatienceMs = 5000;
constexpr ULONGLONG kListPatienceMs = 10'000;
constexpr char kDevicePart[] = "vid_18d1&pid_010b";

constexpr GUID kHidInterface = {0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};

struct DeviceSetCloser {
    void operator()(HDEVINFO set) const { ::SetupDiDestroyDeviceInfoList(set); }
};

std::string InterfacePath(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& entry) {
    DWORD size = 0;
    ::SetupDiGetDeviceInterfaceDetailA(set, &entry, nullptr, 0, &size, nullptr);
    std::vector<DWORD> buffer(size / sizeof(DWORD) + 2);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer.data());
    detail->cbSize = sizeof(*detail);
    if (!::SetupDiGetDeviceInterfaceDetailA(set, &entry, detail, size, nullptr, nullptr)) return {};
    std::string path = detail->DevicePath;
    for (char& character : path) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return path;
}

// Empty while it isn't listed.
std::string PathInList() {
    const std::unique_ptr<void, DeviceSetCloser> set(
        ::SetupDiGetClassDevsA(&kHidInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    SP_DEVICE_INTERFACE_DATA entry{};
    entry.cbSize = sizeof(entry);
    for (DWORD i = 0; ::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &kHidInterface, i, &entry); ++i) {
        std::string path = InterfacePath(set.get(), entry);
        if (path.find(kDevicePart) != std::string::npos) return path;
    }
    return {};
}

bool CanBeOpened(const std::string& path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;
    return platform::UniqueHandle(::CreateFileA(path.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr))
        .IsOpen();
}

template <typename Condition>
bool WaitUntil(Condition condition) {
    const ULONGLONG end = ::GetTickCount64() + kListPatienceMs;
    while (!condition()) {
        if (::GetTickCount64() > end) return false;
        ::Sleep(1);
    }
    return true;
}

}  // namespace

platform::UniqueHandle OpenHidPipe(const char* name, DWORD flags) {
    constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE;
    DWORD mode = PIPE_READMODE_MESSAGE;
    for (;;) {
        platform::UniqueHandle pipe(::CreateFileA(name, kAccess, 0, nullptr, OPEN_EXISTING, flags, nullptr));
        if (pipe.IsOpen() && ::SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr)) return pipe;
        if (::GetLastError() != ERROR_PIPE_BUSY || !::WaitNamedPipeA(name, kPipePatienceMs)) ThrowWindows(name);
    }
}

// The driver's answer comes a moment before the list changes, and the list a moment before the device's name leads to
// the device; of neither anything tells.
HidPlug::HidPlug() : m_Pipe(OpenHidPipe(QUILLET_HID_PLUG_PIPE, 0)) {
    const auto isThere = [this] {
        m_Path = PathInList();
        return !m_Path.empty() && CanBeOpened(m_Path);
    };
    if (!Request(QUILLET_HID_PLUG_REQUEST) || !WaitUntil(isThere)) {
        throw std::runtime_error("the HID device doesn't appear");
    }
}

HidPlug::~HidPlug() {
    const auto isGone = [this] { return PathInList().empty() && !CanBeOpened(m_Path); };
    if (!Request(QUILLET_HID_UNPLUG_REQUEST) || !WaitUntil(isGone)) {
        std::fprintf(stderr, "the HID device doesn't go\n");
    }
}

bool HidPlug::Request(char request) const {
    char answer = 0;
    DWORD count = 0;
    return ::TransactNamedPipe(m_Pipe.Get(), &request, 1, &answer, 1, &count, nullptr) && answer == QUILLET_HID_DONE;
}

}  // namespace quillet::tools
