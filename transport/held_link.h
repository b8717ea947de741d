// SPDX-License-Identifier: MIT
// What an owner keeps of its link.
#pragma once

#include <memory>
#include <mutex>

namespace quillet {

class CComm;

// The link that an owner sends on. The arbiter alone keeps a link alive for it. Any thread.
class HeldLink {
  public:
    void Set(const std::shared_ptr<CComm>& link) {
        std::lock_guard lock(m_Mutex);
        m_Link = link;
    }
    std::weak_ptr<CComm> Get() const {
        std::lock_guard lock(m_Mutex);
        return m_Link;
    }

  private:
    mutable std::mutex m_Mutex;  // guards m_Link; nothing else is taken inside it
    std::weak_ptr<CComm> m_Link;
};

}  // namespace quillet
