// SPDX-License-Identifier: MIT
// The other end of a link: what a program needs that plays a device. Each system's folder here implements it.
// Failures of the system are thrown as std::system_error, unless said otherwise.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/device_access.h"

namespace quillet::tools {

// The device's end of one link, from plugging in to unplugging. One thread receives and one sends, side by
// side; destruction, the pulling of the cable, comes after both.
class DeviceEnd {
  public:
    static constexpr uint32_t kOwnerOnly = 0600;

    // A terminal for hosts to open as a serial port. What is sent while no host has it open waits for the
    // next one, as far as the system's buffer reaches.
    // mode: who may open it, as the permission bits of a file; systems without such bits pass over it.
    static std::unique_ptr<DeviceEnd> NewTerminal(uint32_t mode = kOwnerOnly);
    // A socket for hosts to open as a HID device, at a path that is made anew. Each message is one report.
    // All hosts get each report, so one that doesn't read holds up the others. mode as above.
    static std::unique_ptr<DeviceEnd> NewReportSocket(const std::string& path, uint32_t mode = kOwnerOnly);
    virtual ~DeviceEnd() = default;

    // What a host opens.
    virtual const std::string& HostPath() const = 0;

    enum class Received {
        Bytes,     // some bytes of a terminal, one message of a socket
        HostCame,  // told by sockets alone
        HostGone,
        TimedOut,
        Stopped,  // the stop signal; it wins
        Failed
    };
    // Waits for the next of these; kNoLimitMs waits for ever.
    virtual Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) = 0;

    enum class Sent {
        All,
        NoHost,   // told by sockets alone; nothing was sent
        Stopped,  // the stop signal, while the host took no more bytes
        Failed
    };
    // Waits as long as the host's buffer is full.
    virtual Sent Send(std::string_view bytes, const platform::StopSignal& stop) = 0;
};

// Text of one registered device, in lines "key=value".
using DeviceText = std::string;

// A place for one device in a directory of registered devices. The name belongs to this object until its end;
// what a killed program has left there is replaced, and hosts pass it over until then.
class DeviceRegistration {
  public:
    // The directory of the effective user, where hosts of the same user look, and its owner alone may write.
    static std::string UserDirectory();

    struct Place {
        std::string directory;
        std::string name;
    };
    // Makes the directory where it is missing. Throws std::runtime_error if another running program has the
    // name, or if hosts would not look at the directory since somebody else could write to it.
    explicit DeviceRegistration(const Place& place);
    ~DeviceRegistration();  // withdraws the device
    DeviceRegistration(const DeviceRegistration&) = delete;
    DeviceRegistration& operator=(const DeviceRegistration&) = delete;

    // A path beside the registration for the device's socket.
    const std::string& SocketPath() const;

    // Hosts find the device from the return on, and no longer from the return of Withdraw on. Withdrawing a
    // device that isn't there does nothing.
    void Publish(const DeviceText& text);
    void Withdraw() noexcept;

  private:
    struct Impl;
    std::unique_ptr<Impl> m_Impl;
};

}  // namespace quillet::tools
