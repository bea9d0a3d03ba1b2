// Reads the IPv4, TCP and UDP headers that a host presents: 16- and 32-bit fields in host byte
// order, at any alignment.
#pragma once

#include <cstdint>
#include <cstring>

#include "nat/packet.h"

inline constexpr uint8_t protocolTcp = 6;
inline constexpr uint8_t protocolUdp = 17;
inline constexpr uint32_t shortestIpHeader = 20;
inline constexpr uint32_t shortestTcpHeader = 20;
inline constexpr uint32_t udpHeaderLength = 8;

template <typename Field> inline Field readField(const uint8_t* octets) {
    Field field;
    std::memcpy(&field, octets, sizeof field);
    return field;
}

inline uint32_t ipHeaderLength(const uint8_t* ip) {
    return (ip[0] & 0x0Fu) * 4;
}

inline uint32_t ipTotalLength(const uint8_t* ip) {
    return readField<uint16_t>(ip + 2);
}

inline uint8_t ipProtocol(const uint8_t* ip) {
    return ip[9];
}

inline uint32_t ipSource(const uint8_t* ip) {
    return readField<uint32_t>(ip + 12);
}

inline uint32_t ipDestination(const uint8_t* ip) {
    return readField<uint32_t>(ip + 16);
}

// The first four octets of a TCP or UDP header; one load.
struct Ports {
    uint16_t source;
    uint16_t destination;
};

// A packet as a hook sees it: what the host vouches for is 20 octets at `ip` and transportLength
// octets at `transport`.
struct PacketView {
    const uint8_t* ip;
    uint8_t* transport;
    uint32_t transportLength; // TCP or UDP header and payload
};

// Whether the lengths that the receiving hook computed from the IP header agree with it.
bool receivedLengthsAgree(const PacketView& packet);

// Both answer false when a length contradicts another or a header is too short; then nothing may be
// read. The packet's protocol must be the right one. The IP header's own length is not looked at: a
// host that sends may not have written it yet.
bool readTcp(const PacketView& packet, TcpSegment& segment);
bool readUdp(const PacketView& packet, UdpDatagram& datagram);
