// The barcodes that wait for the application, oldest first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

namespace quillet {

// Three lists that grow together and are read each on its own. Not for several threads at once.
class BarcodeCache {
  public:
    // One entry in each list, or none at all if there is no memory.
    void Add(std::string text, int32_t codeType);
    void Clear() noexcept;

    size_t Count() const noexcept { return m_ScanDataList.size(); }

    // The oldest entry of a list, taken off; 0 or an empty text if there is none.
    int32_t PopType() noexcept;
    std::string PopText() noexcept;
    std::string PopLabel() noexcept;

  private:
    std::list<std::string> m_ScanDataList;  // without a limit
    std::list<int32_t> m_ScanDataTypeList;
    std::list<std::string> m_ScanDataLabelList;  // the newest alone: nothing in the library reads them off
    size_t m_LabelBytes = 0;                     // of all its texts together
};

}  // namespace quillet
