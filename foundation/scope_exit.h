// SPDX-License-Identifier: MIT
// Runs a step when a scope is left: by its end, a return or an exception.
#pragma once

#include <utility>

namespace quillet {

// The step must not throw.
template <typename Step>
class ScopeExit {
  public:
    explicit ScopeExit(Step step) : m_Step(std::move(step)) {}
    ~ScopeExit() {
        if (m_Armed) m_Step();
    }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;
    void Disarm() noexcept { m_Armed = false; }

  private:
    Step m_Step;
    bool m_Armed = true;
};

}  // namespace quillet
