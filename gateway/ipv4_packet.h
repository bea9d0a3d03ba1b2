#pragma once

#include "gateway/endpoint.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// IPv4, TCP and UDP headers of one packet in memory (RFC 791, RFC 9293, RFC 768). A packet starts
// with its IPv4 header; octets behind the total length (link layer padding) are left alone.
namespace gateway {

enum class PacketKind {
    Tcp,
    Udp,
    NotIpv4,       // another version, or shorter than an IPv4 header
    Fragment,      // any fragment, the first included
    OtherProtocol, // whole IPv4 packet, neither TCP nor UDP
    Truncated,     // fewer octets present than the header says, transport ports readable
    Malformed,     // lengths that contradict each other
};

// Where things lie. For kinds other than Tcp and Udp only `ipHeaderLength`, `totalLength` and
// `protocol` are set, and for Truncated the transport header's start as well.
struct PacketLayout {
    size_t ipHeaderLength = 0;
    size_t totalLength = 0;
    size_t payloadOffset = 0; // from the start of the packet
    size_t payloadLength = 0;
    Protocol protocol = Protocol::Tcp;

    [[nodiscard]] size_t transportLength() const { return totalLength - ipHeaderLength; }
};

// Reads the headers in network byte order and checks every length against the octets present.
PacketKind classifyPacket(std::span<const uint8_t> packet, PacketLayout& layout);

// Whether classifyPacket may answer Tcp; for those who want to know of nothing else.
inline bool mayBeTcp(std::span<const uint8_t> packet) {
    constexpr size_t protocolAt = 9;
    return packet.size() > protocolAt && packet[protocolAt] == static_cast<uint8_t>(Protocol::Tcp);
}

// Both ends, read in network byte order. Needs a layout of kind Tcp, Udp or Truncated.
Endpoint sourceOf(std::span<const uint8_t> packet, const PacketLayout& layout);
Endpoint destinationOf(std::span<const uint8_t> packet, const PacketLayout& layout);

// TCP only, network byte order.
uint32_t sequenceNumber(std::span<const uint8_t> packet, const PacketLayout& layout);
uint32_t acknowledgementNumber(std::span<const uint8_t> packet, const PacketLayout& layout);
uint8_t tcpFlags(std::span<const uint8_t> packet, const PacketLayout& layout);

constexpr uint8_t tcpFin = 0x01;
constexpr uint8_t tcpSyn = 0x02;
constexpr uint8_t tcpReset = 0x04;
constexpr uint8_t tcpAck = 0x10;

// A TCP segment without payload, checksums not set; for showing to the module what it cannot have
// seen.
std::vector<uint8_t> emptySegment(const Endpoint& source, const Endpoint& destination,
                                  uint8_t flags, uint32_t sequence, uint32_t acknowledgement);

// A UDP datagram, checksums not set; for the same.
std::vector<uint8_t> datagram(const Endpoint& source, const Endpoint& destination,
                              std::span<const uint8_t> payload);

// Converts every 16- and 32-bit field of the IPv4 and the TCP or UDP header in place, options and
// payload excluded. The conversion is its own inverse; on a big-endian machine it does nothing.
// `layout` must come from classifyPacket before the conversion (kind Tcp or Udp).
void toHostByteOrder(std::span<uint8_t> packet, const PacketLayout& layout);
void toNetworkByteOrder(std::span<uint8_t> packet, const PacketLayout& layout);

// Replace one end of the packet and adjust the IP and transport checksums by the difference
// (RFC 1624), so a checksum that was wrong stays wrong. A UDP checksum of 0 (none) stays 0.
void replaceSource(std::span<uint8_t> packet, const PacketLayout& layout, const Endpoint& source);
void replaceDestination(std::span<uint8_t> packet, const PacketLayout& layout,
                        const Endpoint& destination);

// Write one end without touching any checksum.
void writeSource(std::span<uint8_t> packet, const PacketLayout& layout, const Endpoint& source);
void writeDestination(std::span<uint8_t> packet, const PacketLayout& layout,
                      const Endpoint& destination);

// Computes the IP and the transport checksum anew over the whole packet (kind Tcp or Udp). A UDP
// checksum of 0 (none) stays 0.
void recomputeChecksums(std::span<uint8_t> packet, const PacketLayout& layout);

// True when both checksums of a packet of kind Tcp or Udp are right; no UDP checksum counts as
// right.
bool checksumsAreRight(std::span<const uint8_t> packet, const PacketLayout& layout);

// The checksum after a 16-bit word that it covers changed (RFC 1624, equation 3).
uint16_t adjustChecksum(uint16_t checksum, uint16_t before, uint16_t after);

} // namespace gateway
