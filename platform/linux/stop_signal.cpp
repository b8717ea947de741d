// SPDX-License-Identifier: MIT
// The stop signal is an eventfd: readable while it is set.
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>

#include "platform/device_access.h"
#include "platform/linux/poll_device.h"
#include "platform/linux/unique_fd.h"

namespace quillet::platform {
namespace {

int DescriptorOf(const StopSignal& signal) noexcept {
    return static_cast<int>(signal.NativeHandle());
}

}  // namespace

StopSignal::StopSignal() : m_Native(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_Native < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

StopSignal::~StopSignal() {
    Close();
}

void StopSignal::Close() noexcept {
    const auto descriptor = static_cast<int>(m_Native.exchange(-1));
    if (descriptor >= 0) ::close(descriptor);
}

// A write that would block finds the counter full, so the signal is set anyway; a read that would block finds it clear.
void StopSignal::Set() noexcept {
    if (!m_Origin.IsHere()) return;
    const eventfd_t one = 1;
    RetryInterrupted([&] { return ::eventfd_write(DescriptorOf(*this), one); });
    m_LooksSet.store(true);
}

void StopSignal::Reset() noexcept {
    if (!m_Origin.IsHere()) return;
    m_LooksSet.store(false);
    eventfd_t count = 0;
    RetryInterrupted([&] { return ::eventfd_read(DescriptorOf(*this), &count); });
}

bool StopSignal::IsSet() const noexcept {
    return Wait(0);
}

bool StopSignal::Wait(uint32_t timeoutMs) const noexcept {
    pollfd entry{DescriptorOf(*this), POLLIN, 0};
    return PollUntil(&entry, 1, timeoutMs) > 0;
}

}  // namespace quillet::platform
