#pragma once

#include "gateway/ipv4_packet.h"

#include <cstdint>
#include <span>
#include <vector>

// Packets made by hand for the gateway's tests.
namespace testing_gateway {

using Octets = std::vector<uint8_t>;

inline void put16(Octets& octets, size_t at, unsigned value) {
    octets.at(at) = static_cast<uint8_t>(value >> 8);
    octets.at(at + 1) = static_cast<uint8_t>(value);
}

inline void put32(Octets& octets, size_t at, uint32_t value) {
    put16(octets, at, value >> 16);
    put16(octets, at + 2, value & 0xFFFF);
}

// An IPv4 header without options and `transport` behind it; checksums right.
inline Octets ipv4(gateway::Protocol protocol, const gateway::Endpoint& from,
                   const gateway::Endpoint& to, Octets transport) {
    put16(transport, 0, from.port);
    put16(transport, 2, to.port);
    Octets packet;
    packet.reserve(20 + transport.size());
    packet.resize(20);
    packet[0] = 0x45;
    put16(packet, 2, static_cast<unsigned>(20 + transport.size()));
    put16(packet, 4, 0x1234);
    packet[8] = 64;
    packet[9] = static_cast<uint8_t>(protocol);
    put32(packet, 12, from.address);
    put32(packet, 16, to.address);
    packet.insert(packet.end(), transport.begin(), transport.end());
    gateway::PacketLayout layout;
    gateway::classifyPacket(packet, layout);
    gateway::recomputeChecksums(packet, layout);
    return packet;
}

inline Octets tcp(const gateway::Endpoint& from, const gateway::Endpoint& to, uint32_t sequence,
                  uint8_t flags, const Octets& payload = {}) {
    Octets segment(20, 0);
    put32(segment, 4, sequence);
    segment[12] = 0x50;
    segment[13] = flags;
    put16(segment, 14, 0xFAF0);
    segment.insert(segment.end(), payload.begin(), payload.end());
    return ipv4(gateway::Protocol::Tcp, from, to, std::move(segment));
}

// A checksum field that is not 0 asks for a checksum.
inline Octets udp(const gateway::Endpoint& from, const gateway::Endpoint& to,
                  const Octets& payload) {
    Octets datagram(8, 0);
    put16(datagram, 4, static_cast<unsigned>(8 + payload.size()));
    put16(datagram, 6, 1);
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    return ipv4(gateway::Protocol::Udp, from, to, std::move(datagram));
}

} // namespace testing_gateway
