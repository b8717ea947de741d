// SPDX-License-Identifier: MIT
// The bits of a device's status word.
#pragma once

#include <atomic>
#include <cstdint>

namespace quillet {

enum StatusBit : uint32_t {
    StatusOpened = 0x1,
    StatusClaimed = 0x2,
    StatusEnabled = 0x4,
    StatusDataEventEnabled = 0x8,
    StatusAutoDisable = 0x10,
    StatusDecodeData = 0x20,
    StatusFreezeEvents = 0x80,
    StatusBinaryNone = 0x100,
    StatusBinaryNibble = 0x200,
    StatusBinaryDecimal = 0x400,
    StatusCOFreeze = 0x4000,     // frozen through COFreezeEvents
    StatusStatistics = 0x20000,  // a statistics request is running
    StatusExchange = 0x80000     // a direct-I/O exchange is running
};

// One word that the application's threads, the read thread and the power thread change bit by bit; each change is one
// atomic step, so that none is lost.
class StatusBits {
  public:
    uint32_t Value() const noexcept { return m_Bits.load(); }
    bool Has(uint32_t anyOf) const noexcept { return (m_Bits.load() & anyOf) != 0; }
    void Set(uint32_t bits) noexcept { m_Bits.fetch_or(bits); }
    void Clear(uint32_t bits) noexcept { m_Bits.fetch_and(~bits); }
    void Put(uint32_t bits, bool on) noexcept { on ? Set(bits) : Clear(bits); }
    // Sets the bits; true if none of them was set before.
    bool TrySet(uint32_t bits) noexcept { return (m_Bits.fetch_or(bits) & bits) == 0; }
    void Reset() noexcept { m_Bits.store(0); }

  private:
    std::atomic<uint32_t> m_Bits{0};
};

}  // namespace quillet
