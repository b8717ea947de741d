// SPDX-License-Identifier: MIT
// What tests play at the other end of a device.
#pragma once

#include <gtest/gtest.h>
#include <string>

#include "platform/windows/unique_handle.h"
#include "platform/windows/windows_device_access.h"
#include "support/eventually.h"
#include "support/process.h"

namespace quillet::test {
using namespace platform;

constexpr uint32_t kStoppedCode = ERROR_OPERATION_ABORTED;
constexpr uint32_t kGoneCode = ERROR_BROKEN_PIPE;
constexpr uint32_t kLossCodes[] = {ERROR_BROKEN_PIPE};

// A named pipe shows every way that a request can end, without a driver.
class Pipe {
  public:
    static constexpr bool kIsSerial = false;
    static constexpr DWORD kQuota = 4096;
    static constexpr size_t kWriteSize = kQuota * 16;

    OpenResult Plug() {
        Pull();  // the name is for one pipe at a time
        const std::string path = "\\\\.\\pipe\\quillet-test-" + std::to_string(ProcessId());
        m_Pipe = UniqueHandle(::CreateNamedPipeA(
            path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE, 1, kQuota, kQuota, 0, nullptr));
        EXPECT_TRUE(m_Pipe.IsOpen());
        return WindowsDeviceAccess().Open(path, Sharing::Shared);
    }
    void Send(const std::string& bytes) const {
        DWORD count = 0;
        ASSERT_TRUE(::WriteFile(m_Pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
    }
    bool HasInput() const {
        DWORD waiting = 0;
        return Eventually(
            [&] { return ::PeekNamedPipe(m_Pipe.Get(), nullptr, 0, nullptr, &waiting, nullptr) && waiting > 0; });
    }
    std::string Receive(size_t size) const {
        std::string bytes;
        std::string piece(kQuota, '\0');
        DWORD count = 0;
        while (bytes.size() < size && ::ReadFile(m_Pipe.Get(), piece.data(), kQuota, &count, nullptr)) {
            bytes.append(piece, 0, count);
        }
        return bytes;
    }
    void Pull() { m_Pipe.Reset(); }

  private:
    UniqueHandle m_Pipe;
};

using FarEnds = testing::Types<Pipe>;

}  // namespace quillet::test
