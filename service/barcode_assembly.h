// SPDX-License-Identifier: MIT
// Puts barcodes together from the blocks that a link delivers.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "protocol/packet.h"

namespace quillet {

// Frames in parts, or bare text. All operations may be called from any thread; blocks come from one read thread at a
// time. A barcode of more than a mebibyte, or with a part that there was no memory for, is dropped up to its last part:
// the rest of it must not pass for a barcode.
class BarcodeAssembly {
  public:
    // Told of what a block holds, on the thread of TakeBlock and with the lock of the assembly held.
    class Sink {
      public:
        virtual void OnBarcode(std::string text, int32_t codeType) = 0;
        // One part of a barcode, with more to come.
        virtual void OnBarcodePart() = 0;

      protected:
        ~Sink() = default;
    };

    explicit BarcodeAssembly(Sink& sink);

    // The sink must outlive the call. Throws for want of memory; what is left then takes the next block as if nothing
    // had been under way, but for the barcode that was lost.
    void TakeBlock(std::string_view block, uint32_t linkType);

    // Forgets the parts so far. An exchange does it, since it takes blocks that would have belonged to the barcode.
    void DropParts();
    // The last part of a barcode has gone elsewhere: the next one is whole again.
    void PassLastPart();
    void Reset();

  private:
    void TakeFrame(std::string_view block, uint32_t linkType);
    void TakePart(const ReplyPacket& reply);
    void Finish(std::string text, int32_t codeType);
    void LoseBarcode(uint8_t firstParameterOfPart);

    Sink& m_Sink;
    std::mutex m_Mutex;      // guards the three below
    std::string m_Received;  // and not yet parsed
    std::string m_Parts;     // of a barcode, joined
    bool m_Lost = false;     // the barcode under way is dropped up to its last part
};

}  // namespace quillet
