#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace gateway {

// Numbers of libpcap's interface. In files raw IP is 101, the others are the same.
constexpr int linkTypeEthernet = 1;
constexpr int linkTypeRaw = 12;
constexpr int linkTypeLinuxCooked = 113;
constexpr int linkTypeIpv4 = 228;
constexpr int linkTypeLinuxCooked2 = 276;

// True for the link types that networkLayer understands: Ethernet (VLAN tags included),
// raw IP, raw IPv4, Linux cooked v1 and v2.
bool isSupportedLinkType(int linkType);

enum class NetworkProtocol { Ipv4, Ipv6, Other };

struct NetworkLayer {
    NetworkProtocol protocol = NetworkProtocol::Other;
    size_t offset = 0; // in octets from the start of the frame; never behind its end
};

// What a frame carries, by the link layer's word; Other for a frame too short to tell.
NetworkLayer networkLayer(int linkType, std::span<const uint8_t> frame);

} // namespace gateway
