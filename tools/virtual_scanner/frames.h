// SPDX-License-Identifier: MIT
// The bytes that a scanner sends, made as a scanner makes them, and made wrong on request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/packet.h"

namespace quillet::tools {

enum class Fault {
    None,
    Checksum,  // a checksum that doesn't fit; scan blocks have none
    Length,    // a length field that counts more than there is, or than a scan block holds
    Truncate   // the second half of the last piece is missing
};

// One answer or barcode, in the pieces that the host is to get one read at a time.
using Pieces = std::vector<std::string>;

// Wire form of a frame with this payload; length and checksum are filled in, except for what the fault
// spoils.
std::string FrameBytes(uint8_t opcode, uint8_t status, std::string_view payload, Fault fault = Fault::None);

// A barcode on a serial link: one frame, or several where a host's read would not hold it.
Pieces SerialBarcode(uint8_t codeType, std::string_view data, Fault fault = Fault::None);
// A barcode on a USB link: as many scan blocks as it takes.
Pieces UsbBarcode(uint8_t codeType, std::string_view data, Fault fault = Fault::None);
// Any bytes as USB reports of 64 bytes, the last filled up with zeros.
Pieces UsbReports(std::string_view bytes);

// A frame cut into pieces of at most pieceSize bytes, 0 for no cutting. Over USB each piece is a block.
Pieces SerialFrame(std::string_view frame, size_t pieceSize, Fault fault = Fault::None);
Pieces UsbFrame(std::string_view frame, size_t pieceSize, Fault fault = Fault::None);

}  // namespace quillet::tools
