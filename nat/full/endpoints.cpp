#include "nat/full/endpoints.h"

#include "nat/full/host_requests.h"
#include "nat/observer.h"
#include "nat/well_known_ports.h"

namespace full_scope {
namespace {

bool isUdp(uint8_t role) {
    return role == H323NAT_ROLE_MEDIA || role == H323NAT_ROLE_RAS;
}

bool isPair(uint8_t role) {
    return role == H323NAT_ROLE_MEDIA;
}

uint32_t protocolOf(uint8_t role) {
    return isUdp(role) ? 17 : 6;
}

// A UDP port and a TCP port of the same number are two endpoints, and so are a media pair and the
// RAS endpoint on its first port.
bool sameKind(uint8_t one, uint8_t other) {
    return isUdp(one) ? one == other : !isUdp(other);
}

Index findMapping(uint8_t role, const EndpointKey& inside) {
    Index index = state.mappingsByInside[hashEndpoint(inside)];
    while (index != none && !(state.mappings[index].inside == inside &&
                              sameKind(state.mappings[index].role, role))) {
        index = state.mappings[index].next;
    }
    return index;
}

void tellConnection(void(H323NAT_CALL* function)(void*, const H323ObservedConnection*),
                    const Mapping& mapping, uint64_t call) {
    if (function != nullptr && mapping.role != H323NAT_ROLE_MEDIA) {
        const H323ObservedConnection event = {mapping.role,
                                              protocolOf(mapping.role),
                                              observed(mapping.inside),
                                              observed(mapping.publicEndpoint),
                                              {},
                                              call};
        tell(function, event);
    }
}

void linkPublic(Index index) {
    Mapping& mapping = state.mappings[index];
    Index& head = state.mappingsByPublic[hashEndpoint(mapping.publicEndpoint)];
    mapping.nextByPublic = head;
    head = index;
    if (mapping.role == H323NAT_ROLE_RAS) {
        count(quickLook.rasPorts[mapping.publicEndpoint.port]);
    }
}

void unlinkPublic(Index index) {
    const Mapping& mapping = state.mappings[index];
    unlink<Mapping, &Mapping::nextByPublic>(
        state.mappings, state.mappingsByPublic[hashEndpoint(mapping.publicEndpoint)], index);
    if (mapping.role == H323NAT_ROLE_RAS) {
        uncount(quickLook.rasPorts[mapping.publicEndpoint.port]);
    }
}

uint32_t& countOfHost(const EndpointKey& inside) {
    return state.mappingsOfHosts[spread(inside.address) % hostCounters];
}

void endMapping(Index index, uint64_t call) {
    const Mapping& mapping = state.mappings[index];
    tellConnection(observer.connectionOver, mapping, call);
    unlinkPublic(index);
    unlink<Mapping, &Mapping::next>(state.mappings,
                                    state.mappingsByInside[hashEndpoint(mapping.inside)], index);
    --countOfHost(mapping.inside);
    give(state.mappings, index);
}

// A mapping of which the host said that it stands for `inside`. The host may have moved it.
Index remember(uint8_t role, const EndpointKey& inside, const EndpointKey& publicEndpoint,
               Index known, uint64_t call) {
    Index index = known;
    if (index == none) {
        index = take(state.mappings);
        if (index == none) {
            return none;
        }
        Mapping& mapping = state.mappings[index];
        mapping.inside = inside;
        mapping.role = role;
        ++countOfHost(inside);
        Index& head = state.mappingsByInside[hashEndpoint(inside)];
        mapping.next = head;
        head = index;
    } else if (state.mappings[index].publicEndpoint == publicEndpoint) {
        return index;
    } else {
        tellConnection(observer.connectionOver, state.mappings[index], call);
        unlinkPublic(index);
    }
    state.mappings[index].publicEndpoint = publicEndpoint;
    linkPublic(index);
    return index;
}

struct OwnerClaims {
    Index& first;
    uint32_t& count;
    uint32_t most;
    uint64_t call; // number; 0: a registration's
};

OwnerClaims claimsOf(const Owner& owner) {
    if (owner.call != none) {
        Call& call = state.calls[owner.call];
        return {call.firstClaim, call.mappings, mappingsOfCall, call.number};
    }
    Registration& registration = state.registrations[owner.registration];
    return {registration.firstClaim, registration.mappings, mappingsOfRegistration, 0};
}

// Where the owner's claim of a mapping hangs; null when it has none.
Index* findClaim(const OwnerClaims& owner, Index mapping) {
    Index* link = &owner.first;
    while (*link != none && state.claims[*link].mapping != mapping) {
        link = &state.claims[*link].next;
    }
    return *link == none ? nullptr : link;
}

// Puts the claim before those that were made or renewed earlier. False when no record is left for
// it.
bool claim(OwnerClaims& owner, Index mapping, bool lasting) {
    Index* const known = findClaim(owner, mapping);
    const Index index = known != nullptr ? *known : take(state.claims);
    if (index == none) {
        return false;
    }
    Claim& claim = state.claims[index];
    if (known != nullptr) {
        *known = claim.next;
    } else {
        claim.mapping = mapping;
        ++owner.count;
        ++state.mappings[mapping].claims;
    }
    claim.lasting |= lasting;
    claim.next = owner.first;
    owner.first = index;
    return true;
}

// A registration names an endpoint for each of its calls, and other ports after each start of its
// terminal. The one that was named longest ago gives way, those of calls first; never what the same
// message names.
bool dropOldest(OwnerClaims& owner, uint64_t message) {
    if (owner.call != 0) {
        return false;
    }
    Index* passing = nullptr;
    Index* lasting = nullptr;
    for (Index* link = &owner.first; *link != none; link = &state.claims[*link].next) {
        const Claim& claim = state.claims[*link];
        if (state.mappings[claim.mapping].askedFor != message) {
            (claim.lasting ? lasting : passing) = link;
        }
    }
    Index* const oldest = passing != nullptr ? passing : lasting;
    if (oldest == nullptr) {
        return false;
    }
    Index single = *oldest;
    *oldest = state.claims[single].next;
    state.claims[single].next = none;
    --owner.count;
    endClaims(single, owner.call);
    return true;
}

EndpointKey above(const EndpointKey& endpoint, bool above) {
    return {endpoint.address, static_cast<uint16_t>(endpoint.port + (above ? 1 : 0))};
}

// Whether a public endpoint, or for a pair the one above it, is that of this mapping.
bool standsFor(const Mapping& mapping, const EndpointKey& publicEndpoint, bool second) {
    return mapping.publicEndpoint.address == publicEndpoint.address &&
           above(mapping.publicEndpoint, second).port == publicEndpoint.port &&
           (!second || isPair(mapping.role));
}

EndpointKey insideOf(const EndpointKey& publicEndpoint, bool udp) {
    for (int step = 0; step < 2; ++step) {
        const bool second = step == 1;
        if (second && publicEndpoint.port == 0) {
            break;
        }
        const EndpointKey base = {publicEndpoint.address,
                                  static_cast<uint16_t>(publicEndpoint.port - (second ? 1 : 0))};
        for (Index index = state.mappingsByPublic[hashEndpoint(base)]; index != none;
             index = state.mappings[index].nextByPublic) {
            const Mapping& mapping = state.mappings[index];
            if (isUdp(mapping.role) == udp && standsFor(mapping, publicEndpoint, second)) {
                return above(mapping.inside, second);
            }
        }
    }
    return {};
}

} // namespace

bool isPublished(uint8_t role, const EndpointKey& inside) {
    return !isUdp(role) && inside.address == state.publishedAddress && inside.address != 0 &&
           (inside.port == callSignallingPort || inside.port == t120Port);
}

Translation translateOut(uint8_t role, bool rtcp, const EndpointKey& inside, const Asking& asking) {
    if (isPublished(role, inside)) {
        return {{asking.hostContext->publicAddress, inside.port}, 0};
    }
    const EndpointKey base = {inside.address, static_cast<uint16_t>(inside.port - (rtcp ? 1 : 0))};
    if (inside.port < lowestInsidePort || base.port < lowestInsidePort) {
        return {{}, H323NAT_LEFT_LOW_PORT};
    }
    if (asking.owner.call == none && asking.owner.registration == none) {
        return {{}, H323NAT_LEFT_NO_RECORD};
    }
    const Index known = findMapping(role, base);
    if (known != none && state.mappings[known].askedFor == asking.message) {
        return {above(state.mappings[known].publicEndpoint, rtcp), 0};
    }
    OwnerClaims owner = claimsOf(asking.owner);
    const bool owned = known != none && findClaim(owner, known) != nullptr;
    if (!owned && owner.count >= owner.most && !dropOldest(owner, asking.message)) {
        return {{}, H323NAT_LEFT_HOST_LIMIT};
    }
    if (known == none && countOfHost(inside) >= mappingsOfHost(state.mappings.capacity)) {
        return {{}, H323NAT_LEFT_HOST_LIMIT};
    }
    EndpointKey publicEndpoint;
    if (!askHost(role, base, asking, publicEndpoint)) {
        return {{}, H323NAT_LEFT_REFUSED};
    }
    if (isPair(role) && publicEndpoint.port == UINT16_MAX) {
        return {{}, H323NAT_LEFT_NO_PORT};
    }
    const Index index = remember(role, base, publicEndpoint, known, owner.call);
    if (index == none) {
        return {{}, H323NAT_LEFT_NO_RECORD};
    }
    if (!claim(owner, index, asking.lasting)) {
        if (state.mappings[index].claims == 0) {
            endMapping(index, owner.call);
        }
        return {{}, H323NAT_LEFT_NO_RECORD};
    }
    Mapping& mapping = state.mappings[index];
    mapping.askedFor = asking.message;
    mapping.call = asking.owner.call;
    // Also of a mapping that is known: the host may have closed it and opened it again.
    tellConnection(observer.connectionAnnounced, mapping, owner.call);
    return {above(publicEndpoint, rtcp), 0};
}

EndpointKey translateIn(uint8_t role, const EndpointKey& publicEndpoint, uint32_t publicAddress) {
    const EndpointKey published = {state.publishedAddress, publicEndpoint.port};
    if (publicEndpoint.address == publicAddress && isPublished(role, published)) {
        return published;
    }
    const EndpointKey inside = insideOf(publicEndpoint, isUdp(role));
    return inside.address != 0 ? inside : insideOf(publicEndpoint, !isUdp(role));
}

void shareClaims(Index from, Index to) {
    OwnerClaims owner = claimsOf({none, to});
    for (Index index = state.registrations[from].firstClaim; index != none;
         index = state.claims[index].next) {
        if (owner.count < owner.most || dropOldest(owner, 0)) {
            claim(owner, state.claims[index].mapping, state.claims[index].lasting);
        }
    }
}

Index findListening(const EndpointKey& inside) {
    return findMapping(H323NAT_ROLE_SIGNALLING, inside);
}

void endClaims(Index& firstClaim, uint64_t call) {
    while (firstClaim != none) {
        const Index index = firstClaim;
        const Index mapping = state.claims[index].mapping;
        firstClaim = state.claims[index].next;
        give(state.claims, index);
        Mapping& needed = state.mappings[mapping];
        if (needed.call != none && state.calls[needed.call].number == call) {
            needed.call = none;
        }
        if (--state.mappings[mapping].claims == 0) {
            endMapping(mapping, call);
        }
    }
}

} // namespace full_scope
