#include "gateway/ipv4_packet.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace gateway {
namespace {

constexpr size_t minIpHeader = 20;
constexpr size_t minTcpHeader = 20;
constexpr size_t udpHeader = 8;

constexpr size_t ipTotalLength = 2;
constexpr size_t ipIdentification = 4;
constexpr size_t ipFragment = 6;
constexpr size_t ipProtocol = 9;
constexpr size_t ipChecksum = 10;
constexpr size_t ipSource = 12;
constexpr size_t ipDestination = 16;

constexpr size_t tcpSequence = 4;
constexpr size_t tcpAcknowledgement = 8;
constexpr size_t tcpDataOffset = 12;
constexpr size_t tcpFlagsAt = 13;
constexpr size_t tcpWindow = 14;
constexpr size_t tcpChecksum = 16;
constexpr size_t tcpUrgent = 18;

constexpr size_t udpLength = 4;
constexpr size_t udpChecksum = 6;

constexpr uint16_t fragmentMask = 0x3FFF; // more fragments + offset

uint16_t read16(std::span<const uint8_t> packet, size_t at) {
    return static_cast<uint16_t>((packet[at] << 8) | packet[at + 1]);
}

uint32_t read32(std::span<const uint8_t> packet, size_t at) {
    return (static_cast<uint32_t>(read16(packet, at)) << 16) | read16(packet, at + 2);
}

void write16(std::span<uint8_t> packet, size_t at, uint16_t value) {
    packet[at] = static_cast<uint8_t>(value >> 8);
    packet[at + 1] = static_cast<uint8_t>(value);
}

void write32(std::span<uint8_t> packet, size_t at, uint32_t value) {
    write16(packet, at, static_cast<uint16_t>(value >> 16));
    write16(packet, at + 2, static_cast<uint16_t>(value));
}

// Each is its own inverse; on a big-endian machine it does nothing.
void swap16(std::span<uint8_t> packet, size_t at) {
    const uint16_t value = read16(packet, at);
    std::memcpy(packet.data() + at, &value, sizeof value);
}

void swap32(std::span<uint8_t> packet, size_t at) {
    const uint32_t value = read32(packet, at);
    std::memcpy(packet.data() + at, &value, sizeof value);
}

void swapHeaders(std::span<uint8_t> packet, const PacketLayout& layout) {
    for (const size_t at : {ipTotalLength, ipIdentification, ipFragment, ipChecksum}) {
        swap16(packet, at);
    }
    swap32(packet, ipSource);
    swap32(packet, ipDestination);
    const auto transport = packet.subspan(layout.ipHeaderLength);
    swap16(transport, 0);
    swap16(transport, 2);
    if (layout.protocol == Protocol::Udp) {
        swap16(transport, udpLength);
        swap16(transport, udpChecksum);
        return;
    }
    swap32(transport, tcpSequence);
    swap32(transport, tcpAcknowledgement);
    for (const size_t at : {tcpWindow, tcpChecksum, tcpUrgent}) {
        swap16(transport, at);
    }
}

uint16_t fold(uint64_t sum) {
    while ((sum >> 16) != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(sum);
}

// With the carry back at the other end, as one's complement wants it.
uint64_t addWord(uint64_t sum, uint64_t word) {
    sum += word;
    return sum + (sum < word ? 1 : 0);
}

// Sum of big-endian 16-bit words, an odd last octet padded with 0. Such a sum is the same in either
// byte order, its octets swapped, so that whole words of the machine can be added (RFC 1071).
uint16_t sumWords(std::span<const uint8_t> octets) {
    uint64_t sum = 0;
    const uint8_t* at = octets.data();
    size_t left = octets.size();
    for (; left >= 16; left -= 16, at += 16) {
        uint64_t words[2];
        std::memcpy(words, at, sizeof words);
        sum = addWord(addWord(sum, words[0]), words[1]);
    }
    uint64_t rest[2] = {};
    std::memcpy(rest, at, left);
    sum = addWord(addWord(sum, rest[0]), rest[1]);
    const uint16_t folded = fold(sum);
    std::array<uint8_t, 2> inOrder{};
    std::memcpy(inOrder.data(), &folded, sizeof folded);
    return read16(inOrder, 0);
}

size_t transportChecksumAt(const PacketLayout& layout) {
    return layout.ipHeaderLength + (layout.protocol == Protocol::Tcp ? tcpChecksum : udpChecksum);
}

bool hasTransportChecksum(std::span<const uint8_t> packet, const PacketLayout& layout) {
    const size_t at = transportChecksumAt(layout);
    if (at + 2 > packet.size()) {
        return false;
    }
    return layout.protocol == Protocol::Tcp || read16(packet, at) != 0;
}

// A computed UDP checksum of 0 is sent as its other zero, since 0 says that there is none.
uint16_t asTransmitted(Protocol protocol, uint16_t checksum) {
    return protocol == Protocol::Udp && checksum == 0 ? uint16_t{0xFFFF} : checksum;
}

// Pseudo header and the checked octets as they stand, the checksum field included.
uint64_t sumTransport(std::span<const uint8_t> packet, const PacketLayout& layout) {
    const size_t length = layout.protocol == Protocol::Udp
                              ? read16(packet, layout.ipHeaderLength + udpLength)
                              : layout.transportLength();
    return uint64_t{sumWords(packet.subspan(ipSource, 8))} +
           static_cast<uint64_t>(layout.protocol) + length +
           sumWords(packet.subspan(layout.ipHeaderLength, length));
}

void replaceWord(std::span<uint8_t> packet, size_t at, uint16_t value,
                 std::span<const size_t> checksums) {
    const uint16_t before = read16(packet, at);
    for (const size_t checksum : checksums) {
        write16(packet, checksum, adjustChecksum(read16(packet, checksum), before, value));
    }
    write16(packet, at, value);
}

void replaceEnd(std::span<uint8_t> packet, const PacketLayout& layout, size_t addressAt,
                size_t portAt, const Endpoint& end) {
    const size_t checksumAt[] = {ipChecksum, transportChecksumAt(layout)};
    const bool transport = hasTransportChecksum(packet, layout);
    const std::span<const size_t> ofAddress(checksumAt, transport ? 2 : 1);
    const std::span<const size_t> ofPort(checksumAt + 1, transport ? 1 : 0);

    replaceWord(packet, addressAt, static_cast<uint16_t>(end.address >> 16), ofAddress);
    replaceWord(packet, addressAt + 2, static_cast<uint16_t>(end.address), ofAddress);
    replaceWord(packet, portAt, end.port, ofPort);
    if (transport) {
        write16(packet, checksumAt[1],
                asTransmitted(layout.protocol, read16(packet, checksumAt[1])));
    }
}

// A packet of zeros but for its IP header and its ports.
std::vector<uint8_t> packetWithEnds(Protocol protocol, const Endpoint& source,
                                    const Endpoint& destination, size_t transportLength) {
    constexpr size_t timeToLive = 8;
    std::vector<uint8_t> packet(minIpHeader + transportLength);
    packet[0] = 0x45;
    write16(packet, ipTotalLength, static_cast<uint16_t>(packet.size()));
    packet[timeToLive] = 64;
    packet[ipProtocol] = static_cast<uint8_t>(protocol);
    write32(packet, ipSource, source.address);
    write32(packet, ipDestination, destination.address);
    write16(packet, minIpHeader, source.port);
    write16(packet, minIpHeader + 2, destination.port);
    return packet;
}

PacketKind classifyTcp(std::span<const uint8_t> packet, PacketLayout& layout) {
    const size_t headerLength =
        static_cast<size_t>((packet[layout.ipHeaderLength + tcpDataOffset] >> 2) & 0x3C);
    if (headerLength < minTcpHeader || headerLength > layout.transportLength()) {
        return PacketKind::Malformed;
    }
    layout.payloadOffset = layout.ipHeaderLength + headerLength;
    layout.payloadLength = layout.totalLength - layout.payloadOffset;
    return PacketKind::Tcp;
}

PacketKind classifyUdp(std::span<const uint8_t> packet, PacketLayout& layout) {
    const size_t length = read16(packet, layout.ipHeaderLength + udpLength);
    if (length < udpHeader || length > layout.transportLength()) {
        return PacketKind::Malformed;
    }
    layout.payloadOffset = layout.ipHeaderLength + udpHeader;
    layout.payloadLength = length - udpHeader;
    return PacketKind::Udp;
}

} // namespace

PacketKind classifyPacket(std::span<const uint8_t> packet, PacketLayout& layout) {
    layout = {};
    if (packet.size() < minIpHeader || (packet[0] >> 4) != 4) {
        return PacketKind::NotIpv4;
    }
    layout.ipHeaderLength = static_cast<size_t>(packet[0] & 0x0F) * 4;
    layout.totalLength = read16(packet, ipTotalLength);
    if (layout.ipHeaderLength < minIpHeader || layout.totalLength < layout.ipHeaderLength) {
        return PacketKind::Malformed;
    }
    if ((read16(packet, ipFragment) & fragmentMask) != 0) {
        return PacketKind::Fragment;
    }
    const uint8_t protocol = packet[ipProtocol];
    if (protocol != static_cast<uint8_t>(Protocol::Tcp) &&
        protocol != static_cast<uint8_t>(Protocol::Udp)) {
        return PacketKind::OtherProtocol;
    }
    layout.protocol = static_cast<Protocol>(protocol);
    const bool isTcp = layout.protocol == Protocol::Tcp;
    const size_t transportHeader = isTcp ? minTcpHeader : udpHeader;
    if (layout.transportLength() < transportHeader) {
        return PacketKind::Malformed;
    }
    if (layout.totalLength > packet.size()) {
        const bool portsPresent = layout.ipHeaderLength + 4 <= packet.size();
        return portsPresent ? PacketKind::Truncated : PacketKind::Malformed;
    }
    return isTcp ? classifyTcp(packet, layout) : classifyUdp(packet, layout);
}

Endpoint sourceOf(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return {read32(packet, ipSource), read16(packet, layout.ipHeaderLength)};
}

Endpoint destinationOf(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return {read32(packet, ipDestination), read16(packet, layout.ipHeaderLength + 2)};
}

uint32_t sequenceNumber(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return read32(packet, layout.ipHeaderLength + tcpSequence);
}

uint32_t acknowledgementNumber(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return read32(packet, layout.ipHeaderLength + tcpAcknowledgement);
}

uint8_t tcpFlags(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return packet[layout.ipHeaderLength + tcpFlagsAt];
}

std::vector<uint8_t> datagram(const Endpoint& source, const Endpoint& destination,
                              std::span<const uint8_t> payload) {
    std::vector<uint8_t> packet =
        packetWithEnds(Protocol::Udp, source, destination, udpHeader + payload.size());
    write16(packet, minIpHeader + udpLength, static_cast<uint16_t>(udpHeader + payload.size()));
    std::copy(payload.begin(), payload.end(), packet.begin() + minIpHeader + udpHeader);
    return packet;
}

std::vector<uint8_t> emptySegment(const Endpoint& source, const Endpoint& destination,
                                  uint8_t flags, uint32_t sequence, uint32_t acknowledgement) {
    std::vector<uint8_t> packet = packetWithEnds(Protocol::Tcp, source, destination, minTcpHeader);
    write32(packet, minIpHeader + tcpSequence, sequence);
    write32(packet, minIpHeader + tcpAcknowledgement, acknowledgement);
    packet[minIpHeader + tcpDataOffset] = (minTcpHeader / 4) << 4;
    packet[minIpHeader + tcpFlagsAt] = flags;
    return packet;
}

void toHostByteOrder(std::span<uint8_t> packet, const PacketLayout& layout) {
    swapHeaders(packet, layout);
}

void toNetworkByteOrder(std::span<uint8_t> packet, const PacketLayout& layout) {
    swapHeaders(packet, layout);
}

void replaceSource(std::span<uint8_t> packet, const PacketLayout& layout, const Endpoint& source) {
    replaceEnd(packet, layout, ipSource, layout.ipHeaderLength, source);
}

void replaceDestination(std::span<uint8_t> packet, const PacketLayout& layout,
                        const Endpoint& destination) {
    replaceEnd(packet, layout, ipDestination, layout.ipHeaderLength + 2, destination);
}

void writeSource(std::span<uint8_t> packet, const PacketLayout& layout, const Endpoint& source) {
    write32(packet, ipSource, source.address);
    write16(packet, layout.ipHeaderLength, source.port);
}

void writeDestination(std::span<uint8_t> packet, const PacketLayout& layout,
                      const Endpoint& destination) {
    write32(packet, ipDestination, destination.address);
    write16(packet, layout.ipHeaderLength + 2, destination.port);
}

void recomputeChecksums(std::span<uint8_t> packet, const PacketLayout& layout) {
    write16(packet, ipChecksum, 0);
    const uint64_t ipSum = sumWords(packet.first(layout.ipHeaderLength));
    write16(packet, ipChecksum, static_cast<uint16_t>(~fold(ipSum)));

    if (hasTransportChecksum(packet, layout)) {
        const size_t at = transportChecksumAt(layout);
        write16(packet, at, 0);
        const auto checksum = static_cast<uint16_t>(~fold(sumTransport(packet, layout)));
        write16(packet, at, asTransmitted(layout.protocol, checksum));
    }
}

bool checksumsAreRight(std::span<const uint8_t> packet, const PacketLayout& layout) {
    if (fold(sumWords(packet.first(layout.ipHeaderLength))) != 0xFFFF) {
        return false;
    }
    return !hasTransportChecksum(packet, layout) || fold(sumTransport(packet, layout)) == 0xFFFF;
}

uint16_t adjustChecksum(uint16_t checksum, uint16_t before, uint16_t after) {
    const auto inverted = static_cast<uint16_t>(~checksum);
    const auto removed = static_cast<uint16_t>(~before);
    return static_cast<uint16_t>(~fold(static_cast<uint64_t>(inverted) + removed + after));
}

} // namespace gateway
