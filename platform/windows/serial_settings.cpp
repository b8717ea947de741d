// SPDX-License-Identifier: MIT
#include "platform/windows/serial_settings.h"

namespace quillet::platform {
namespace {

constexpr DWORD Flag(bool set) noexcept {
    return set ? 1U : 0U;
}

}  // namespace

SerialSettings SettingsOf(const DCB& dcb) noexcept {
    SerialSettings settings;
    settings.baudRate = dcb.BaudRate;
    settings.byteSize = dcb.ByteSize;
    settings.parity = dcb.Parity;
    settings.stopBits = dcb.StopBits;
    settings.ctsOutputFlow = dcb.fOutxCtsFlow != 0;
    settings.dsrOutputFlow = dcb.fOutxDsrFlow != 0;
    settings.dtrControl = static_cast<uint8_t>(dcb.fDtrControl);
    settings.rtsControl = static_cast<uint8_t>(dcb.fRtsControl);
    settings.dsrSensitivity = dcb.fDsrSensitivity != 0;
    settings.softwareFlowOut = dcb.fOutX != 0;
    settings.softwareFlowIn = dcb.fInX != 0;
    settings.discardNulls = dcb.fNull != 0;
    return settings;
}

void StoreSettings(const SerialSettings& settings, DCB& dcb) noexcept {
    dcb.BaudRate = settings.baudRate;
    dcb.ByteSize = settings.byteSize;
    dcb.Parity = settings.parity;
    dcb.StopBits = settings.stopBits;
    dcb.fOutxCtsFlow = Flag(settings.ctsOutputFlow) & 1U;
    dcb.fOutxDsrFlow = Flag(settings.dsrOutputFlow) & 1U;
    dcb.fDtrControl = settings.dtrControl & 3U;
    dcb.fRtsControl = settings.rtsControl & 3U;
    dcb.fDsrSensitivity = Flag(settings.dsrSensitivity) & 1U;
    dcb.fOutX = Flag(settings.softwareFlowOut) & 1U;
    dcb.fInX = Flag(settings.softwareFlowIn) & 1U;
    dcb.fNull = Flag(settings.discardNulls) & 1U;
}

}  // namespace quillet::platform
