// SPDX-License-Identifier: MIT
#include "api/handle/scanner_object.h"

namespace quillet {

void CallGate::Enter() {
    std::lock_guard lock(m_Mutex);
    ++m_Inside;
}

void CallGate::Leave() {
    std::lock_guard lock(m_Mutex);
    if (--m_Inside == 0) m_Left.notify_all();
}

void CallGate::WaitUntilEmpty() {
    std::unique_lock lock(m_Mutex);
    if (m_Origin.IsHere()) m_Left.wait(lock, [this] { return m_Inside == 0; });
}

bool CallGate::IsEmpty() {
    std::lock_guard lock(m_Mutex);
    return m_Inside == 0;
}

}  // namespace quillet
