#include "nat/listed/observed.h"

#include <algorithm>
#include <cstring>

#include "nat/listed/inbound_state.h"
#include "nat/message_facts.h"
#include "nat/observer.h"
#include "nat/roles.h"
#include "nat/well_known_ports.h"

namespace {

// Addresses of one message that can be compared with what became of them.
constexpr size_t mostAddresses = 256;
constexpr size_t longestMessage = UINT16_MAX;

struct AddressBefore {
    uint32_t path;
    size_t offset;
    EndpointKey endpoint;
};

struct Observed {
    uint32_t direction;
    EndpointKey inside;
    EndpointKey outside;
    uint64_t call;
    AddressBefore before[mostAddresses]; // of the message that is open
    size_t count;
    uint8_t after[longestMessage];
};

// One message is open at a time.
Observed observed;

bool anybodyListens() {
    return observer.messageRead != nullptr || observer.addressRewritten != nullptr ||
           observer.addressLeft != nullptr;
}

H323Endpoint publicForm(const EndpointKey& endpoint) {
    return {endpoint.address, endpoint.port, 0};
}

struct MessageKind {
    const MessageCodec& codec;
    LocatedType type;
    uint32_t role;
};

// Null for a fast-start element, which is no message of its own.
const MessageKind* kindOf(const MessageCodec& codec) {
    static const MessageKind kinds[] = {
        {codecOf(H225H323_UserInformation{}), LocatedType::userInformation,
         H323NAT_ROLE_SIGNALLING},
        {codecOf(H245MultimediaSystemControlMessage{}), LocatedType::systemControlMessage,
         H323NAT_ROLE_H245},
        {codecOf(H225RasMessage{}), LocatedType::rasMessage, H323NAT_ROLE_RAS}};
    for (const MessageKind& kind : kinds) {
        if (&kind.codec == &codec) {
            return &kind;
        }
    }
    return nullptr;
}

void noteAddresses(const MessageKind& kind, const MessageEdit& edit) {
    observed.count = 0;
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, kind.type, edit.octets.data, edit.octets.count,
                  placeKindBit(PlaceKind::address));
    while (observed.count < mostAddresses && nextPlace(walk, place)) {
        observed.before[observed.count++] = {place.path, place.offset, {place.address, place.port}};
    }
}

// The message as it leaves: what the packet holds of it over what was read.
size_t composeAfter(const MessageEdit& edit) {
    const size_t count = std::min(edit.octets.count, longestMessage);
    std::memcpy(observed.after, edit.octets.data, count);
    const auto packetEnd = static_cast<ptrdiff_t>(edit.place.length);
    const ptrdiff_t first = std::clamp<ptrdiff_t>(edit.place.start, 0, packetEnd);
    const ptrdiff_t end =
        std::clamp<ptrdiff_t>(edit.place.start + static_cast<ptrdiff_t>(count), first, packetEnd);
    if (end > first) {
        std::memcpy(observed.after + (first - edit.place.start), edit.place.segment + first,
                    static_cast<size_t>(end - first));
    }
    return count;
}

bool liesInPacket(const MessageEdit& edit, size_t offset) {
    const ptrdiff_t start = edit.place.start + static_cast<ptrdiff_t>(offset);
    return start >= 0 && static_cast<size_t>(start) + endpointOctets <= edit.place.length;
}

void tellAddress(const MessageEdit& edit, const LocatorWalk& walk, const LocatedPlace& place,
                 const AddressBefore& before) {
    const EndpointKey now = {place.address, place.port};
    const bool changed = !(before.endpoint == now);
    const bool own =
        observed.direction == H323NAT_SENT && before.endpoint.address == observed.inside.address;
    if (!changed && !own) {
        return;
    }
    char path[placePathCapacity];
    const size_t length = placePath(walk, path, sizeof path);
    H323ObservedAddress event = {};
    event.role = roleOf(place, false).role;
    event.offset = static_cast<uint32_t>(before.offset);
    event.path = {reinterpret_cast<const uint8_t*>(path), static_cast<uint32_t>(length)};
    event.from = publicForm(before.endpoint);
    event.to = publicForm(now);
    if (changed) {
        tell(observer.addressRewritten, event);
        return;
    }
    event.cause =
        liesInPacket(edit, before.offset) ? H323NAT_LEFT_NOT_LISTED : H323NAT_LEFT_ALREADY_SENT;
    tell(observer.addressLeft, event);
}

H323ObservedCall callEvent(const CallSignalConnection& call) {
    H323ObservedCall event = {};
    event.call = call.callNumber;
    event.direction = H323NAT_SENT;
    event.inside = {call.insideFlow.sourceAddress, call.insideFlow.sourcePort, 0};
    event.outside = {call.outsideFlow.sourceAddress, call.outsideFlow.sourcePort, 0};
    return event;
}

H323ObservedCall inboundEvent() {
    const InboundMappingState& call = inboundMappingState;
    H323ObservedCall event = {};
    event.call = call.callNumber;
    event.direction = H323NAT_RECEIVED;
    event.inside = {call.publishedAddress, callSignallingPort, 0};
    event.outside = {call.remoteAddress, call.remoteSignallingPort, 0};
    return event;
}

} // namespace

void observePacket(uint32_t direction, const FlowKey& flow) {
    const EndpointKey source = {flow.sourceAddress, flow.sourcePort};
    const EndpointKey destination = {flow.destinationAddress, flow.destinationPort};
    observed.direction = direction;
    observed.inside = direction == H323NAT_SENT ? source : destination;
    observed.outside = direction == H323NAT_SENT ? destination : source;
    observed.call = 0;
}

void observeCallNumber(uint64_t call) {
    observed.call = call;
}

void observeRead(const MessageEdit& edit, bool decoded) {
    const MessageKind* kind = kindOf(*edit.codec);
    if (!anybodyListens() || kind == nullptr || edit.octets.count == 0) {
        return;
    }
    noteAddresses(*kind, edit);
    if (observer.messageRead == nullptr) {
        return;
    }
    MessageFacts facts;
    readFacts(kind->type, edit.octets.data, edit.octets.count, true, facts);
    H323ObservedMessage event = {};
    event.role = kind->role;
    event.direction = observed.direction;
    event.inside = publicForm(observed.inside);
    event.outside = publicForm(observed.outside);
    event.call = observed.call;
    describeMessage(facts, edit.octets.data, edit.octets.count, event);
    event.flags |= decoded ? 0 : H323NAT_MESSAGE_NOT_UNDERSTOOD;
    tell(observer.messageRead, event);
}

void observeDone(const MessageEdit& edit) {
    const MessageKind* kind = kindOf(*edit.codec);
    if (!anybodyListens() || kind == nullptr || edit.outer != nullptr) {
        return;
    }
    const size_t count = composeAfter(edit);
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, kind->type, observed.after, count, placeKindBit(PlaceKind::address));
    // Encoding anew can lose additions with addresses in them, never reorder.
    size_t next = 0;
    while (nextPlace(walk, place)) {
        size_t match = next;
        while (match < observed.count && observed.before[match].path != place.path) {
            ++match;
        }
        if (match < observed.count) {
            tellAddress(edit, walk, place, observed.before[match]);
            next = match + 1;
        }
    }
}

void observeBegin(CallSignalConnection& call) {
    call.callNumber = nextCallNumber();
    if (observer.callBegan != nullptr) {
        tell(observer.callBegan, callEvent(call));
    }
}

void observeEnd(const CallSignalConnection& call, uint32_t end) {
    if (observer.callEnded != nullptr && call.callNumber != 0) {
        H323ObservedCall event = callEvent(call);
        event.end = end;
        tell(observer.callEnded, event);
    }
}

void observeInboundBegin() {
    inboundMappingState.callNumber = nextCallNumber();
    if (observer.callBegan != nullptr) {
        tell(observer.callBegan, inboundEvent());
    }
}

static H323ObservedConnection inboundControl() {
    H323ObservedConnection event = {};
    event.role = H323NAT_ROLE_H245;
    event.protocol = 6;
    event.inside = {inboundMappingState.publishedAddress, inboundMappingState.publishedControlPort,
                    0};
    event.call = inboundMappingState.callNumber;
    return event;
}

void observeInboundControl(const EndpointKey& publicEndpoint) {
    H323ObservedConnection event = inboundControl();
    event.publicEndpoint = publicForm(publicEndpoint);
    tell(observer.connectionAnnounced, event);
}

void observeInboundEnd(uint32_t end) {
    if (observer.connectionOver != nullptr && inboundMappingState.publishedControlPort != 0) {
        tell(observer.connectionOver, inboundControl());
    }
    if (observer.callEnded != nullptr && inboundMappingState.callNumber != 0) {
        H323ObservedCall event = inboundEvent();
        event.end = end;
        tell(observer.callEnded, event);
    }
}

void observeControl(const ControlChannelConnection& control, bool over) {
    const auto function = over ? observer.connectionOver : observer.connectionAnnounced;
    if (function != nullptr && control.remoteEndpoint.address != 0) {
        H323ObservedConnection event = {};
        event.role = H323NAT_ROLE_H245;
        event.protocol = 6;
        event.outside = publicForm(control.remoteEndpoint);
        tell(function, event);
    }
}
