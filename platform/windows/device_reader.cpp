// SPDX-License-Identifier: MIT
#include "platform/windows/device_reader.h"

#include <algorithm>

namespace quillet::platform {

IoStart WindowsDeviceReader::Start(uint8_t* buffer, uint32_t size) {
    m_Buffer = buffer;
    const IoStart start = m_Request.StartRead(size);
    if (start.state == IoState::Done) TakeBytes(start.count);
    return start;
}

ReadWait WindowsDeviceReader::Wait(const StopSignal& stop) {
    const DWORD woken = m_Request.Wait(stop);
    if (woken == DeviceRequest::kStopped) return ReadWait::Stopped;
    if (woken == DeviceRequest::kEnded) return ReadWait::Finished;
    m_Error = woken;
    return ReadWait::Failed;
}

IoFinish WindowsDeviceReader::Finish() {
    const IoFinish finish = m_Request.Finish();
    if (finish.ok) {
        TakeBytes(finish.count);
    } else {
        m_Error = finish.error;
    }
    return finish;
}

void WindowsDeviceReader::TakeBytes(uint32_t count) const noexcept {
    std::copy_n(m_Request.Bytes(), count, m_Buffer);
}

}  // namespace quillet::platform
