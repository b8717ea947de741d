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

// Everything that needs memory comes first; moving the entries over can't fail.
void BarcodeCache::Add(std::string text, int32_t codeType) {
    std::list<std::string> label(1, text);
    std::list<int32_t> type(1, codeType);
    std::list<std::string> data;
    m_LabelBytes += data.emplace_back(std::move(text)).size();
    m_ScanDataTypeList.splice(m_ScanDataTypeList.end(), type);
    m_ScanDataLabelList.splice(m_ScanDataLabelList.end(), label);
    m_ScanDataList.splice(m_ScanDataList.end(), data);
    while (m_ScanDataLabelList.size() > kMaxLabels || m_LabelBytes > kMaxLabelBytes) PopLabel();
}

void BarcodeCache::Clear() noexcept {
    m_ScanDataList.clear();
    m_ScanDataTypeList.clear();
    m_ScanDataLabelList.clear();
    m_LabelBytes = 0;
}

int32_t BarcodeCache::PopType() noexcept {
    return PopFront(m_ScanDataTypeList);
}

std::string BarcodeCache::PopText() noexcept {
    return PopFront(m_ScanDataList);
}

std::string BarcodeCache::PopLabel() noexcept {
    std::string label = PopFront(m_ScanDataLabelList);
    m_LabelBytes -= label.size();
    return label;
}

}  // namespace quillet
