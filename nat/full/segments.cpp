#include "nat/full/segments.h"

#include "nat/full/calls.h"
#include "nat/full/connections.h"
#include "nat/full/host_requests.h"
#include "nat/full/message.h"
#include "nat/q931.h"
#include "nat/well_known_ports.h"

namespace full_scope {
namespace {

EndpointKey sourceOf(const FlowKey& flow) {
    return {flow.sourceAddress, flow.sourcePort};
}

EndpointKey destinationOf(const FlowKey& flow) {
    return {flow.destinationAddress, flow.destinationPort};
}

// --- Messages and ends

struct Owner {
    Index connection;
    bool sent;
    bool changed;
};

MessageSource sourceOf(const Owner& owner, const StreamMessage& message, FlowKey& control) {
    const Connection& connection = state.connections[owner.connection];
    MessageSource source = {};
    source.role = connection.role;
    source.direction = owner.sent ? H323NAT_SENT : H323NAT_RECEIVED;
    source.inside = owner.sent ? connection.inside : connection.publicEndpoint;
    source.outside = connection.outside;
    source.privateAddress = connection.inside.address;
    source.hostContext = connection.hostContext;
    source.connection = owner.connection;
    source.mayAnnounce = true;
    source.part = &message;
    if (connection.role == H323NAT_ROLE_H245) {
        control = {connection.inside.address, connection.outside.address, connection.inside.port,
                   connection.outside.port};
        source.control = &control;
    }
    return source;
}

void readControl(const StreamMessage& message, Owner& owner) {
    FlowKey control;
    MessageSource source = sourceOf(owner, message, control);
    source.type = LocatedType::systemControlMessage;
    source.offset = tpktHeader;
    // Read where they lie, written through `part` alone.
    source.octets = const_cast<uint8_t*>(message.octets) + tpktHeader;
    source.count = message.length - tpktHeader;
    owner.changed |= translateMessage(source).changed;
}

void readSignalling(const StreamMessage& message, Owner& owner) {
    Q931Walk walk = walkQ931(message.octets, message.length);
    OctetRange range;
    while (nextUserInformation(walk, range) == Q931Element::UserInformation) {
        FlowKey control;
        MessageSource source = sourceOf(owner, message, control);
        source.type = LocatedType::userInformation;
        source.offset = range.offset;
        source.octets = const_cast<uint8_t*>(message.octets) + range.offset;
        source.count = range.octets;
        source.causeOfRelease = causeOfRelease(message.octets, message.length);
        owner.changed |= translateMessage(source).changed;
    }
}

void readMessage(const StreamMessage& message, void* given) {
    Owner& owner = *static_cast<Owner*>(given);
    const bool signalling = state.connections[owner.connection].role == H323NAT_ROLE_SIGNALLING;
    (signalling ? readSignalling : readControl)(message, owner);
}

void closeIfOver(Index index, const TcpSegment& segment, const Stream& stream) {
    const Connection& connection = state.connections[index];
    const bool reset = segment.rst && inWindow(stream, segment.sequence);
    if (reset || (connection.sent.finished && connection.received.finished)) {
        close(index);
    }
}

bool take(Index index, HostContext* hostContext, const TcpSegment& segment, bool sent) {
    Connection& connection = state.connections[index];
    connection.hostContext = hostContext;
    touch(index);
    Stream& stream = sent ? connection.sent : connection.received;
    Owner owner = {index, sent, false};
    const StreamState result =
        takeSegment(stream, state.streams, {segment.payload, segment.length, segment.sequence},
                    {readMessage, &owner}, owner.changed);
    if (result == StreamState::foreign) {
        forget(index, H323NAT_END_CLOSED);
        return owner.changed;
    }
    if (segment.fin && inWindow(stream, segment.sequence)) {
        stream.finished = true;
    }
    closeIfOver(index, segment, stream);
    return owner.changed;
}

// --- Beginnings

// What a private host connects to: none of ours is 0.
uint8_t roleOfDestination(const EndpointKey& outside, Index& call) {
    call = none;
    const Index announced = findAnnounced(outside);
    if (announced != none) {
        call = runningCall(state.announced[announced].call);
        return state.announced[announced].role;
    }
    return outside.port == callSignallingPort ? H323NAT_ROLE_SIGNALLING : 0;
}

// What a private host accepts connections on, and by which public endpoint; address 0: only the
// host program knows which of its ports leads there.
uint8_t roleOfListener(const EndpointKey& inside, const HostContext& hostContext,
                       EndpointKey& publicEndpoint, Index& call) {
    call = none;
    if (inside.address == state.publishedAddress && inside.port == callSignallingPort) {
        publicEndpoint = {hostContext.publicAddress, inside.port};
        return H323NAT_ROLE_SIGNALLING;
    }
    const Index index = findListening(inside);
    if (index == none) {
        return inside.port == callSignallingPort ? uint8_t{H323NAT_ROLE_SIGNALLING} : uint8_t{0};
    }
    publicEndpoint = state.mappings[index].publicEndpoint;
    call = runningCall(state.mappings[index].call);
    return state.mappings[index].role;
}

bool isFollowedRole(uint8_t role) {
    return role == H323NAT_ROLE_SIGNALLING || role == H323NAT_ROLE_H245;
}

// A SYN or SYN+ACK that is sent again begins nothing anew.
bool isKnownBeginning(Index index, uint32_t firstSequence) {
    return index != none && state.connections[index].sent.begun &&
           !(state.connections[index].sent.finished &&
             state.connections[index].received.finished) &&
           inWindow(state.connections[index].sent, firstSequence);
}

// Follows the connection that a private host's SYN, or SYN and ACK, begins. None when its role is
// not followed, when it is followed already, or without a record for it.
Index begin(HostContext* hostContext, const TcpSegment& segment, uint8_t role, Index call) {
    const EndpointKey inside = sourceOf(segment.flow);
    const EndpointKey outside = destinationOf(segment.flow);
    const uint32_t first = segment.sequence + 1;
    if (!isFollowedRole(role) || isKnownBeginning(findByInside(inside, outside), first)) {
        return none;
    }
    const Index index = follow(role, inside, outside);
    if (index != none) {
        state.connections[index].hostContext = hostContext;
        beginStream(state.connections[index].sent, first);
        if (role == H323NAT_ROLE_H245) {
            joinCall(index, runningCall(call));
        }
    }
    return index;
}

void beginOutbound(HostContext* hostContext, const TcpSegment& segment) {
    Index call = none;
    const uint8_t role = roleOfDestination(destinationOf(segment.flow), call);
    const Index index = begin(hostContext, segment, role, call);
    if (index != none) {
        state.connections[index].opened = true;
    }
}

void beginInbound(HostContext* hostContext, const TcpSegment& segment) {
    EndpointKey publicEndpoint = {};
    Index call = none;
    const uint8_t role = roleOfListener(sourceOf(segment.flow), *hostContext, publicEndpoint, call);
    const Index index = begin(hostContext, segment, role, call);
    if (index == none) {
        return;
    }
    if (publicEndpoint.address != 0) {
        setPublicEndpoint(index, publicEndpoint);
    }
    setPlaced(index, false);
    beginStream(state.connections[index].received, segment.acknowledgement);
}

// The answer to a private host's SYN: only the host knows whose it is.
void completeOutbound(const TcpSegment& segment) {
    const EndpointKey publicEndpoint = destinationOf(segment.flow);
    const EndpointKey outside = sourceOf(segment.flow);
    EndpointKey inside;
    if (!mayBeFollowed(outside.address) || !askWhose(publicEndpoint, outside, inside)) {
        return;
    }
    const Index index = findByInside(inside, outside);
    if (index == none || state.connections[index].received.begun ||
        segment.acknowledgement != state.connections[index].sent.message) {
        return;
    }
    setPublicEndpoint(index, publicEndpoint);
    beginStream(state.connections[index].received, segment.sequence + 1);
}

// The first packets of a connection that came in by another public endpoint than the one that the
// module knows: the host can forward several to one listener.
Index placeInbound(const TcpSegment& segment) {
    const EndpointKey publicEndpoint = destinationOf(segment.flow);
    const EndpointKey outside = sourceOf(segment.flow);
    EndpointKey inside;
    if (state.unplaced == 0 || !mayBeFollowed(outside.address) || !segment.ack ||
        !askWhose(publicEndpoint, outside, inside)) {
        return none;
    }
    const Index index = findByInside(inside, outside);
    if (index == none || !state.connections[index].unplaced ||
        !inWindow(state.connections[index].sent, segment.acknowledgement)) {
        return none;
    }
    setPublicEndpoint(index, publicEndpoint);
    return index;
}

} // namespace

bool sendSegment(HostContext* hostContext, const TcpSegment& segment) {
    if (segment.syn) {
        (segment.ack ? beginInbound : beginOutbound)(hostContext, segment);
        return false;
    }
    const Index index = findByInside(sourceOf(segment.flow), destinationOf(segment.flow));
    return index != none && take(index, hostContext, segment, true);
}

bool receiveSegment(HostContext* hostContext, const TcpSegment& segment) {
    if (segment.syn) {
        if (segment.ack) {
            completeOutbound(segment);
        }
        return false;
    }
    Index index = findByPublic(destinationOf(segment.flow), sourceOf(segment.flow));
    if (index == none) {
        index = placeInbound(segment);
    }
    if (index == none) {
        return false;
    }
    if (state.connections[index].unplaced) {
        setPlaced(index, true);
    }
    return take(index, hostContext, segment, false);
}

} // namespace full_scope
