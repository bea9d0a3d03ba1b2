// Private endpoints and what stands for them outside, and the outside endpoints that private hosts
// are told to connect to.
#pragma once

#include "nat/full/state.h"

namespace full_scope {

// Who needs a mapping: a call, or a registration with a gatekeeper.
struct Owner {
    Index call;
    Index registration;
};

// Mappings that one call or one registration can hold, and one private host of all that there are
// (three quarters); what a message asks for beyond stays.
inline constexpr uint32_t mappingsOfCall = 64;
inline constexpr uint32_t mappingsOfRegistration = 16;
inline uint32_t mappingsOfHost(uint32_t capacity) {
    return capacity - capacity / 4;
}
inline constexpr uint32_t announcedOfCall = 16;
inline constexpr uint16_t lowestInsidePort = 1024;

struct Translation {
    EndpointKey to;
    uint32_t cause; // 0, or H323NAT_LEFT_...: `to` means nothing then
};

// The way to the host and the owner of what it gives.
struct Asking {
    HostContext* hostContext;
    Owner owner;
    uint32_t remoteAddress; // UNKNOWN_REMOTE_ADDRESS: anybody
    const FlowKey* control; // the H.245 connection, private end first, whose media this is; or null
    uint64_t message;       // number of the message: the host is asked once for each
    bool lasting;           // a registration's own addresses
};

// A TCP port of the published host that is the same outside: the host program forwards it, whatever
// is translated.
bool isPublished(uint8_t role, const EndpointKey& inside);

// What stands for a private endpoint outside. Role MEDIA: `inside` is an RTP port; `rtcp` says that
// it is an RTCP port instead. Asks the host.
Translation translateOut(uint8_t role, bool rtcp, const EndpointKey& inside, const Asking& asking);

// The private endpoint behind a public one that the host gave for it; address 0 when there is none.
// `role` tells whether UDP or TCP is meant; the other protocol is tried after it.
EndpointKey translateIn(uint8_t role, const EndpointKey& publicEndpoint, uint32_t publicAddress);

// The mapping of a private TCP endpoint, on which a call or an H.245 connection from outside may
// arrive; none when there is none.
Index findListening(const EndpointKey& inside);

// Ends what an owner needs. Mappings that nobody else needs are over.
void endClaims(Index& firstClaim, uint64_t call);

// What one registration needs is needed by another one too.
void shareClaims(Index from, Index to);

// Notes that a private host will connect to an outside endpoint.
void announce(uint8_t role, const EndpointKey& outside, uint32_t insideAddress, Index call);

// The newest announcement of this endpoint; none when there is none.
Index findAnnounced(const EndpointKey& outside);

// Ends a call's announcements, or those that gatekeepers made.
void endAnnounced(Call& call);
void dropAnnounced();

} // namespace full_scope
