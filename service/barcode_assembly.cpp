// SPDX-License-Identifier: MIT
#include "service/barcode_assembly.h"

#include <utility>

#include "foundation/log.h"
#include "protocol/symbology.h"
#include "service/received_frame.h"
#include "transport/comm.h"

namespace quillet {

BarcodeAssembly::BarcodeAssembly(Sink& sink) : m_Sink(sink) {
    m_Received.reserve(kMaxReadSize);  // so that no block is lost for want of memory
}

void BarcodeAssembly::TakeBlock(std::string_view block, uint32_t linkType) {
    std::lock_guard lock(m_Mutex);
    m_Received += block;
    do {
        TakeFrame(block, linkType);
    } while (!m_Received.empty());
}

// The first frame of m_Received, or the whole block as it came.
void BarcodeAssembly::TakeFrame(std::string_view block, uint32_t linkType) {
    ReplyPacket reply;
    bool bareText = false;
    try {
        const ParseResult result = ParseReceived(linkType, m_Received, reply);
        bareText = result == ParseNoFrame || result == ParseNotRun;
        if (bareText) {  // the block alone is the barcode, whatever waited before it
            LogInfo("    | ScanData: ", HexOf{block});
            Finish(std::string(block), 0);
        } else if (reply.opcode == OpcodeBarcode && result == ParseOk) {
            TakePart(reply);
        }            // else a reply outside of an exchange, or a damaged barcode: consumed and dropped
    } catch (...) {  // no memory
        m_Received.clear();
        if (!bareText && reply.opcode == OpcodeBarcode) LoseBarcode(reply.firstParameter);
        throw;
    }
}

void BarcodeAssembly::TakePart(const ReplyPacket& reply) {
    const bool lost = m_Lost || !AppendWithinReason(m_Parts, reply.parameters);
    if (lost) LoseBarcode(reply.firstParameter);
    if (reply.firstParameter != kLastBlock) {
        m_Sink.OnBarcodePart();
    } else if (!lost) {
        Finish(std::exchange(m_Parts, {}), IsKnownCodeType(reply.status) ? reply.status : 0);
    }
}

// Whatever stands behind a finished barcode among the received bytes is dropped with it.
void BarcodeAssembly::Finish(std::string text, int32_t codeType) {
    m_Sink.OnBarcode(std::move(text), codeType);
    m_Received.clear();
}

void BarcodeAssembly::LoseBarcode(uint8_t firstParameterOfPart) {
    std::string().swap(m_Parts);
    m_Lost = firstParameterOfPart != kLastBlock;
}

void BarcodeAssembly::DropParts() {
    std::lock_guard lock(m_Mutex);
    m_Parts.clear();
}

void BarcodeAssembly::PassLastPart() {
    std::lock_guard lock(m_Mutex);
    m_Lost = false;
}

void BarcodeAssembly::Reset() {
    std::lock_guard lock(m_Mutex);
    m_Received.clear();
    m_Parts.clear();
    m_Lost = false;
}

}  // namespace quillet
