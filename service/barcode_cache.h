// SPDX-License-Identifier: MIT
// The barcodes that wait for the application, oldest first, and the wait for one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/sync.h"

namespace quillet {

struct CachedBarcode {
    int32_t codeType;
    std::string text;
    size_t count;  // of the barcodes that waited when it was taken, itself among them
};

// All operations may be called from any thread; the lock is held for a moment. Without a limit: a barcode goes when it
// is read or the cache is cleared.
//
// Types, texts and labels are lists of their own and not one list of records, because the properties for type, text and
// label each take off their own list alone. Whoever uses them for a part of a barcode puts the lists out of step; Take,
// which the exported calls use, keeps them in step.
class BarcodeCache {
  public:
    // The memory that a barcode needs in the cache. Made beforehand, so that the adding itself can't fail.
    class Entry {
      public:
        Entry(std::string text, int32_t codeType);

      private:
        friend class BarcodeCache;
        std::list<std::string> m_Text;
        std::list<int32_t> m_Type;
        std::list<std::string> m_Label;
    };

    // Wakes nobody: Announce does, which the adding thread calls once it holds no lock that a woken thread may ask for.
    void Add(Entry&& entry) noexcept;
    void Announce();
    void Clear() noexcept;

    size_t Count() const noexcept;

    // The oldest type and text as one step; nothing if there is no text.
    std::optional<CachedBarcode> Take() noexcept;
    // The oldest entry of one list, taken off; 0 or an empty text if there is none.
    int32_t PopType() noexcept;
    std::string PopText() noexcept;
    std::string PopLabel() noexcept;

    // Waits for a barcode at most timeoutMs (platform::kNoLimitMs: for ever). Returns at once when there is one, and
    // after EndWaits. Another thread may have taken the barcode by then.
    void Wait(uint32_t timeoutMs);
    // Makes present and later waits return at once: the object is about to go.
    void EndWaits();
    bool WaitsAreEnded() const noexcept { return m_WaitsEnded.load(); }

  private:
    std::string TakeOldestLabel() noexcept;

    mutable std::mutex m_Mutex;      // guards the lists and m_LabelBytes, and every reset of m_Came
    std::list<std::string> m_Texts;  // without a limit
    std::list<int32_t> m_Types;
    std::list<std::string> m_Labels;         // the newest alone: nothing in the library reads them off
    size_t m_LabelBytes = 0;                 // of all its texts together
    OsEvent m_Came{kManualResetEvent};       // a barcode was added, or waits are ended
    std::atomic<bool> m_Unannounced{false};  // set by Add under m_Mutex, taken by Announce without it
    std::atomic<bool> m_WaitsEnded{false};   // set under m_Mutex, never cleared
};

}  // namespace quillet
