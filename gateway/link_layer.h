#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace gateway {

// True for the libpcap link types that networkLayer understands: Ethernet (VLAN tags included),
// raw IP, raw IPv4, Linux cooked v1 and v2.
bool isSupportedLinkType(int linkType);

// "EN10MB (Ethernet)" and the like, for messages to the user.
std::string linkTypeName(int linkType);

enum class NetworkProtocol { Ipv4, Ipv6, Other };

struct NetworkLayer {
    NetworkProtocol protocol = NetworkProtocol::Other;
    size_t offset = 0; // in octets from the start of the frame; never behind its end
};

// What a frame carries, by the link layer's word; Other for a frame too short to tell.
NetworkLayer networkLayer(int linkType, std::span<const uint8_t> frame);

} // namespace gateway
