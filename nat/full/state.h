// All that the full scope remembers: one piece of memory, cut into pools and tables when the scope
// is chosen. Nothing is allocated afterwards.
//
//   Connection     a TCP connection of call signalling or H.245
//   Call           from its Setup to its release
//   Mapping        a private endpoint and the public one that the host gave for it
//   Claim          that a call or a registration needs a mapping
//   Announced      an outside endpoint that a private host will connect to
//   Registration   a private host's business with one gatekeeper
//
// Records are made by what private hosts send, or by what the other end of a connection that a
// private host opened or accepted tells; never by other packets from outside.
#pragma once

#include "include/h323nat.h"
#include "nat/flow_key.h"
#include "nat/full/stream.h"
#include "nat/hidden.h"

namespace full_scope {

struct Connection {
    Index next; // in the chain by its private end
    Index nextByPublic;
    Index older; // in the list of those that are open or of those that are over
    Index newer;
    EndpointKey inside;
    EndpointKey publicEndpoint; // address 0: not known yet
    EndpointKey outside;
    Index call;               // signalling: the newest of a list; H.245: see callNumber
    uint64_t callNumber;      // H.245: of `call`; the record may be another call's by now
    uint32_t lastActivity;    // seconds of the wall clock
    uint8_t role;             // H323NAT_ROLE_SIGNALLING or _H245
    bool opened;              // by the private host
    bool over;                // kept for segments that are sent again
    bool carriedCall;         // a call began on it
    bool unplaced;            // from outside: no packet has shown the public end yet
    HostContext* hostContext; // of the newest segment
    Stream sent;
    Stream received;
};

inline constexpr size_t identifierOctets = 16;
inline constexpr size_t aliasOctets = 32; // kept of an alias
inline constexpr size_t dataChannels = 4; // T.120 channels that the outside party has opened

struct Alias {
    uint8_t length;
    uint8_t octets[aliasOctets];
};

struct Call {
    Index next; // on its signalling connection
    Index signalling;
    Index firstClaim;
    Index firstAnnounced;
    uint64_t number;
    uint32_t mappings;  // claims
    uint32_t announced; // endpoints
    uint16_t controls;  // H.245 connections
    uint8_t cause;      // of its release
    uint8_t ended;      // H323NAT_END_..., as soon as it is over
    bool outbound;
    bool identified;
    uint8_t identifier[identifierOctets];
    Alias calling;
    Alias called;
    EndpointKey inside;
    EndpointKey outside;
    uint16_t data[dataChannels]; // channel numbers; 0: none
};

// The private endpoint of a pair is the RTP port; the RTCP port is one above it, on both sides.
struct Mapping {
    Index next; // in the chain by private endpoint
    Index nextByPublic;
    EndpointKey inside;
    EndpointKey publicEndpoint;
    uint32_t claims;
    uint8_t role;
    Index call;        // the one that asked last, or none
    uint64_t askedFor; // number of the message for which the host was asked last
};

struct Claim {
    Index next; // of the same owner
    Index mapping;
    bool lasting; // a registration's RAS or signalling address, not what one request named
};

struct Announced {
    Index next; // in the chain by endpoint
    Index nextOfOwner;
    Index older; // in the list of those without a call, longest unused first
    Index newer;
    EndpointKey outside;
    EndpointKey inside; // port 0
    Index call;         // none: told by a gatekeeper
    uint8_t role;
};

struct Registration {
    Index next; // in the chain by its two ends
    Index older;
    Index newer;
    uint32_t inside; // address of the private host
    uint32_t gatekeeper;
    Index firstClaim;
    uint32_t mappings;
    uint32_t lastActivity; // of the private host
    uint8_t unanswered;    // requests, at most 255
    bool confirmed;        // by GCF or RCF; see confirmRegistration
    bool leaving;          // the host has asked to be unregistered
};

// Records in a list, longest unused first.
struct Ages {
    Index oldest;
    Index newest;
};

// Tells in few instructions of nearly every packet that it is none of ours. Each table has a fixed
// size, and counts that reached their bound stay there: they say yes where they could say no.
struct QuickLook {
    bool active; // the full scope is chosen
    // Connections and announced endpoints, by the last two octets of their outside address.
    uint16_t outside[UINT16_MAX + 1];
    uint8_t rasPorts[UINT16_MAX + 1]; // RAS mappings, by their public UDP port; also 1718 and 1719
};

H323NAT_HIDDEN extern QuickLook quickLook;

// A packet with so many octets behind its IP header is the listed scope's to look at; in the full
// scope none has them. So one comparison asks for the scope and makes sure that there are ports.
inline constexpr int32_t shortestWithPorts = 8;
inline constexpr int32_t moreThanAnyPacket = UINT16_MAX + 1;

H323NAT_HIDDEN extern int32_t listedFrom;

inline constexpr uint32_t hostCounters = 4096; // private hosts that share one share its limit

struct State {
    Pool<Connection> connections;
    Pool<Call> calls;
    Pool<Mapping> mappings;
    Pool<Claim> claims;
    Pool<Announced> announced;
    Pool<Registration> registrations;
    StreamPools streams;
    Buckets connectionsByInside;
    Buckets connectionsByPublic;
    Buckets mappingsByInside;
    Buckets mappingsByPublic;
    Buckets announcedByOutside;
    Buckets registrationsByEnds;
    Ages connectionAges; // of the open ones
    Ages overAges;
    Ages announcedAges;                     // those that gatekeepers told
    Ages registrationAges;                  // of those that a gatekeeper confirmed
    Ages unconfirmedAges;                   // of the others
    uint32_t mappingsOfHosts[hostCounters]; // by a hash of the private address
    uint32_t unplaced;                      // connections, see there
    uint64_t messagesSoFar;
    uint32_t publishedAddress; // the published private host; 0: none
    void* memory;
};

H323NAT_HIDDEN extern State state;

// A state without records, with the memory for `calls` calls. False when there is not enough.
bool buildState(State& built, uint32_t calls);

// Gives the memory back and leaves the full scope.
void dropState();

inline uint32_t hashEndpoint(const EndpointKey& endpoint) {
    return spread(uint64_t{endpoint.address} << 16 | endpoint.port);
}

inline uint32_t hashEnds(const EndpointKey& one, const EndpointKey& other) {
    return spread(uint64_t{one.address} << 32 | other.address) ^
           spread(uint64_t{one.port} << 16 | other.port);
}

inline H323Endpoint observed(const EndpointKey& endpoint) {
    return {endpoint.address, endpoint.port, 0};
}

// Puts a record to the end of a list, that of the newest; it is in no list before.
template <typename Record> void join(Pool<Record>& pool, Ages& ages, Index index) {
    pool[index].older = ages.newest;
    pool[index].newer = none;
    (ages.newest == none ? ages.oldest : pool[ages.newest].newer) = index;
    ages.newest = index;
}

template <typename Record> void leave(Pool<Record>& pool, Ages& ages, Index index) {
    const Record& record = pool[index];
    (record.older == none ? ages.oldest : pool[record.older].newer) = record.newer;
    (record.newer == none ? ages.newest : pool[record.newer].older) = record.older;
}

template <typename Record> void renew(Pool<Record>& pool, Ages& ages, Index index) {
    if (ages.newest != index) {
        leave(pool, ages, index);
        join(pool, ages, index);
    }
}

template <typename Number> void count(Number& number) {
    constexpr auto bound = static_cast<Number>(-1);
    number = static_cast<Number>(number + (number != bound ? 1 : 0));
}

template <typename Number> void uncount(Number& number) {
    constexpr auto bound = static_cast<Number>(-1);
    number = static_cast<Number>(number - (number != bound ? 1 : 0));
}

// How many connections and announced endpoints have this outside address, or others of its kind.
inline uint16_t& countOf(uint32_t outsideAddress) {
    return quickLook.outside[outsideAddress & UINT16_MAX];
}

inline bool mayBeFollowed(uint32_t outsideAddress) {
    return countOf(outsideAddress) != 0;
}

} // namespace full_scope
