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

inline std::span<const uint8_t> payloadOf(std::span<const uint8_t> packet,
                                          const PacketLayout& layout) {
    return packet.subspan(layout.payloadOffset, layout.payloadLength);
}

} // namespace gateway
