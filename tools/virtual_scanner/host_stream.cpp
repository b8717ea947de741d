// SPDX-License-Identifier: MIT
#include "tools/virtual_scanner/host_stream.h"

#include <utility>

#include "protocol/packet.h"

namespace quillet::tools {
namespace {

constexpr size_t kParameters = 4;      // offset of the parameters in the wire form
constexpr size_t kSmallestLength = 4;  // the length byte of a packet with one parameter byte

size_t WireSize(std::string_view bytes) {
    return static_cast<uint8_t>(bytes.front()) + size_t{2};
}

HostPacket NoPacket(std::string_view received) {
    HostPacket packet;
    packet.received = received;
    return packet;
}

}  // namespace

HostPacket DecodeWire(std::string_view wire) {
    if (wire.size() < kSmallestLength + 2) return NoPacket(wire);
    const auto opcode = static_cast<uint8_t>(wire[1]);
    const auto status = static_cast<uint8_t>(wire[3]);
    CommandPacket same(opcode, std::string(wire.substr(kParameters, wire.size() - kParameters - 1)), status);
    if (ToWireBytes(same) != wire) return NoPacket(wire);
    return {true, opcode, status, same.parameters, std::string(wire), std::string(wire)};
}

HostPacket DecodeReport(std::string_view report) {
    if (report.size() != kHidBlockSize || static_cast<uint8_t>(report[0]) != kHidReportId) return NoPacket(report);
    const size_t count = static_cast<uint8_t>(report[1]);
    if (count > kMaxHidWireSize || report.find_first_not_of('\0', 2 + count) != std::string_view::npos) {
        return NoPacket(report);
    }
    HostPacket packet = DecodeWire(report.substr(2, count));
    packet.received = report;
    return packet;
}

std::vector<HostPacket> HostStream::Feed(std::string_view bytes) {
    m_Bytes += bytes;
    std::vector<HostPacket> packets;
    while (!m_Bytes.empty()) {
        const size_t size = WireSize(m_Bytes);
        if (size >= kSmallestLength + 2 && size > m_Bytes.size()) break;
        packets.push_back(DecodeWire(std::string_view(m_Bytes).substr(0, size)));
        if (!packets.back().valid) {
            packets.back() = GiveUp();
            break;
        }
        m_Bytes.erase(0, size);
    }
    return packets;
}

HostPacket HostStream::GiveUp() {
    HostPacket packet;
    packet.received = std::exchange(m_Bytes, {});
    return packet;
}

}  // namespace quillet::tools
