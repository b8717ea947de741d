// SPDX-License-Identifier: MIT
#include "platform/cancellation.h"

#include <pthread.h>

namespace quillet::platform {

CancellationHeldOff::CancellationHeldOff() noexcept {
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_Before);
}

CancellationHeldOff::~CancellationHeldOff() {
    ::pthread_setcancelstate(m_Before, nullptr);
}

}  // namespace quillet::platform
