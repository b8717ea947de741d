// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/frames.h"

#include <algorithm>

namespace quillet::tools {
namespace {

constexpr uint8_t kSource = 4;
constexpr uint8_t kMoreBlocks = 0;
// A host's serial read takes 4095 bytes, and a frame that isn't whole in one read counts as a plain barcode.
constexpr size_t kSerialFrameData = 4080;

// Blocks that the scanner sends over USB.
enum class BlockKind : uint8_t { Scan = 2, Frame = 4 };
constexpr size_t kBlockData = 3;  // offset of what both kinds carry
constexpr size_t kScanBlockRoom = 56;
constexpr size_t kFrameBlockRoom = kHidBlockSize - kBlockData;
constexpr size_t kScanBlockType = 61;
constexpr size_t kScanBlockMore = 63;

// Cuts into pieces of at most `size` bytes; no bytes are one empty piece.
std::vector<std::string_view> Cut(std::string_view bytes, size_t size) {
    std::vector<std::string_view> pieces;
    do {
        pieces.push_back(bytes.substr(0, size));
        bytes.remove_prefix(pieces.back().size());
    } while (!bytes.empty());
    return pieces;
}

void Truncate(Pieces& pieces, Fault fault) {
    if (fault == Fault::Truncate) pieces.back().resize(pieces.back().size() / 2);
}

std::string Block(BlockKind kind, uint8_t count, std::string_view bytes) {
    std::string block(kHidBlockSize, '\0');
    block[0] = static_cast<char>(kHidReportId);
    block[1] = static_cast<char>(kind);
    block[2] = static_cast<char>(count);
    std::copy(bytes.begin(), bytes.end(), block.begin() + kBlockData);
    return block;
}

std::string ScanBlock(uint8_t codeType, std::string_view data, bool more, Fault fault) {
    const size_t count = fault == Fault::Length ? kScanBlockRoom + 1 : data.size();
    std::string block = Block(BlockKind::Scan, static_cast<uint8_t>(count), data);
    block[kScanBlockType] = static_cast<char>(codeType);
    block[kScanBlockMore] = more ? '\1' : '\0';
    return block;
}

}  // namespace

std::string FrameBytes(uint8_t opcode, uint8_t status, std::string_view payload, Fault fault) {
    ReplyPacket reply;
    reply.length = static_cast<uint16_t>(payload.size() + 3);
    reply.opcode = opcode;
    reply.source = kSource;
    reply.status = status;
    reply.firstParameter = payload.empty() ? kLastBlock : static_cast<uint8_t>(payload.front());
    reply.parameters = payload.substr(std::min<size_t>(1, payload.size()));
    uint8_t checksum = ReplyChecksum(reply);
    if (fault == Fault::Checksum) checksum = static_cast<uint8_t>(checksum + 1);
    const auto length = static_cast<uint16_t>(reply.length + (fault == Fault::Length ? kHidBlockSize : 0));
    std::string bytes;
    for (const int byte : {length >> 8, length & 0xFF, +opcode, +kSource, +status}) bytes += static_cast<char>(byte);
    bytes += payload;
    bytes += static_cast<char>(checksum);
    return bytes;
}

Pieces SerialBarcode(uint8_t codeType, std::string_view data, Fault fault) {
    Pieces frames;
    const std::vector<std::string_view> parts = Cut(data, kSerialFrameData);
    for (const std::string_view& part : parts) {
        const bool last = &part == &parts.back();
        std::string payload(1, static_cast<char>(last ? kLastBlock : kMoreBlocks));
        payload += part;
        frames.push_back(FrameBytes(OpcodeBarcode, codeType, payload, last ? fault : Fault::None));
    }
    Truncate(frames, fault);
    return frames;
}

Pieces UsbBarcode(uint8_t codeType, std::string_view data, Fault fault) {
    Pieces blocks;
    const std::vector<std::string_view> parts = Cut(data, kScanBlockRoom);
    for (const std::string_view& part : parts) {
        const bool last = &part == &parts.back();
        blocks.push_back(ScanBlock(codeType, part, !last, last ? fault : Fault::None));
    }
    Truncate(blocks, fault);
    return blocks;
}

Pieces UsbReports(std::string_view bytes) {
    Pieces reports;
    for (const std::string_view& part : Cut(bytes, kHidBlockSize)) {
        reports.emplace_back(part);
        reports.back().resize(kHidBlockSize, '\0');
    }
    return reports;
}

Pieces SerialFrame(std::string_view frame, size_t pieceSize, Fault fault) {
    Pieces pieces;
    for (const std::string_view& part : Cut(frame, pieceSize == 0 ? frame.size() : pieceSize)) {
        pieces.emplace_back(part);
    }
    Truncate(pieces, fault);
    return pieces;
}

Pieces UsbFrame(std::string_view frame, size_t pieceSize, Fault fault) {
    Pieces blocks;
    const size_t room = pieceSize == 0 ? kFrameBlockRoom : std::min(pieceSize, kFrameBlockRoom);
    for (const std::string_view& part : Cut(frame, room)) {
        blocks.push_back(Block(BlockKind::Frame, static_cast<uint8_t>(part.size()), part));
    }
    Truncate(blocks, fault);
    return blocks;
}

}  // namespace quillet::tools
