// SPDX-License-Identifier: MIT
#include "service/barcode_cache.h"

#include <utility>

namespace quillet {
namespace {

constexpr size_t kMaxLabels = 4096;
constexpr size_t kMaxLabelBytes = 16 << 20;

template <typename Value>
Value PopFront(std::list<Value>& list) noexcept {
    if (list.empty()) return Value();
    Value front = std::move(list.front());
    list.pop_front();
    return front;
}

}  // namespace

BarcodeCache::Entry::Entry(std::string text, int32_t codeType) : m_Type(1, codeType), m_Label(1, text) {
    m_Text.push_back(std::move(text));
}

void BarcodeCache::Add(Entry&& entry) noexcept {
    std::lock_guard lock(m_Mutex);
    m_LabelBytes += entry.m_Label.front().size();
    m_Texts.splice(m_Texts.end(), entry.m_Text);
    m_Types.splice(m_Types.end(), entry.m_Type);
    m_Labels.splice(m_Labels.end(), entry.m_Label);
    while (m_Labels.size() > kMaxLabels || m_LabelBytes > kMaxLabelBytes) TakeOldestLabel();
    m_Unannounced = true;
}

void BarcodeCache::Announce() {
    if (m_Unannounced.exchange(false)) m_Came.Signal();
}

void BarcodeCache::Clear() noexcept {
    std::lock_guard lock(m_Mutex);
    m_Texts.clear();
    m_Types.clear();
    m_Labels.clear();
    m_LabelBytes = 0;
}

size_t BarcodeCache::Count() const noexcept {
    std::lock_guard lock(m_Mutex);
    return m_Texts.size();
}

std::optional<CachedBarcode> BarcodeCache::Take() noexcept {
    std::lock_guard lock(m_Mutex);
    const size_t count = m_Texts.size();
    if (count == 0) return std::nullopt;
    return CachedBarcode{PopFront(m_Types), PopFront(m_Texts), count};
}

int32_t BarcodeCache::PopType() noexcept {
    std::lock_guard lock(m_Mutex);
    return PopFront(m_Types);
}

std::string BarcodeCache::PopText() noexcept {
    std::lock_guard lock(m_Mutex);
    return PopFront(m_Texts);
}

std::string BarcodeCache::PopLabel() noexcept {
    std::lock_guard lock(m_Mutex);
    return TakeOldestLabel();
}

std::string BarcodeCache::TakeOldestLabel() noexcept {
    std::string label = PopFront(m_Labels);
    m_LabelBytes -= label.size();
    return label;
}

// The event is set some time after its barcode was added, perhaps after that was taken, and stays set. So it is reset
// here, with the mutex held: a barcode that is added later signals later.
void BarcodeCache::Wait(uint32_t timeoutMs) {
    {
        std::lock_guard lock(m_Mutex);
        if (!m_Texts.empty()) return;
        if (!m_WaitsEnded) m_Came.Reset();
    }
    m_Came.TimedWait(timeoutMs);
}

void BarcodeCache::EndWaits() {
    std::lock_guard lock(m_Mutex);
    m_WaitsEnded = true;
    m_Came.Signal();
}

}  // namespace quillet
