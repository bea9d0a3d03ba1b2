#pragma once

#include "gateway/endpoint.h"
#include "gateway/ipv4_packet.h"
#include "include/h323nat.h"

#include <cstdint>
#include <span>

// What the parts of LiveGateway share.
namespace gateway {

inline LocalId connectionKey(const Endpoint& endpoint) {
    return {Protocol::Tcp, endpoint};
}

// Roles of connections that carry messages for the module.
inline bool isFollowedRole(uint32_t role) {
    return role == H323NAT_ROLE_SIGNALLING || role == H323NAT_ROLE_H245;
}

// Call signalling and H.245 come in TPKT packets (RFC 1006): version 3, reserved 0, length.
inline bool beginsTpkt(std::span<const uint8_t> payload) {
    return payload.size() > 4 && payload[0] == 3 && payload[1] == 0 &&
           (payload[2] != 0 || payload[3] > 4);
}

inline std::span<const uint8_t> payloadOf(std::span<const uint8_t> packet,
                                          const PacketLayout& layout) {
    return packet.subspan(layout.payloadOffset, layout.payloadLength);
}

} // namespace gateway
