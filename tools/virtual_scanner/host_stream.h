// SPDX-License-Identifier: MIT
// Takes what a host sends apart into packets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillet::tools {

// One packet of a host, or bytes of it that are none.
struct HostPacket {
    bool valid = false;  // length, source and checksum are right; else only `received` is filled in
    uint8_t opcode = 0;
    uint8_t status = 0;
    std::string parameters;
    std::string wire;      // the packet's own bytes
    std::string received;  // the bytes as they came: over USB the whole report
};

// The packet with exactly these wire bytes.
HostPacket DecodeWire(std::string_view wire);
// One USB report: report id, number of wire bytes, wire bytes, zeros up to 64.
HostPacket DecodeReport(std::string_view report);

// The packets of a serial line, which follow each other without a mark between them.
class HostStream {
  public:
    // Packets that the new bytes complete. Bytes that can't begin a packet take with them all that came with
    // them, as nothing tells where the next packet would begin.
    std::vector<HostPacket> Feed(std::string_view bytes);
    // True while bytes wait for the rest of their packet.
    bool Waiting() const { return !m_Bytes.empty(); }
    // What waits, as bytes that are no packet: the rest didn't come.
    HostPacket GiveUp();

  private:
    std::string m_Bytes;
};

}  // namespace quillet::tools
