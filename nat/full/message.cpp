#include "nat/full/message.h"

#include <algorithm>
#include <cstring>

#include "locator/fields.h"
#include "nat/full/calls.h"
#include "nat/full/connections.h"
#include "nat/message_facts.h"
#include "nat/observer.h"
#include "nat/roles.h"
#include "nat/well_known_ports.h"

namespace full_scope {
namespace {

bool isBody(const MessageSource& source, const MessageFacts& facts, uint16_t alternative) {
    return source.role == H323NAT_ROLE_SIGNALLING && facts.alternative == alternative;
}

bool isSetup(const MessageSource& source, const MessageFacts& facts) {
    return isBody(source, facts, locatorAlternative::H225H323_UU_PDU_h323_message_body_setup);
}

bool isRelease(const MessageSource& source, const MessageFacts& facts) {
    return isBody(source, facts,
                  locatorAlternative::H225H323_UU_PDU_h323_message_body_releaseComplete);
}

// --- T.120 channels: the acknowledgement of a channel does not say again what it carries. Both
// ends number the channels that they open, so those of the outside party alone are kept: a private
// host acknowledges no others.

struct Channel {
    Call* call; // null: none
    bool received;
    uint16_t number;
    bool t120;
};

// Where the outside party's channel of this number is kept; null: it is none of T.120.
uint16_t* findDataChannel(const Channel& channel) {
    if (channel.call == nullptr || channel.number == 0) {
        return nullptr;
    }
    uint16_t* const end = channel.call->data + dataChannels;
    uint16_t* const found = std::find(channel.call->data, end, channel.number);
    return found == end ? nullptr : found;
}

void noteNumber(const LocatedPlace& place, Channel& channel) {
    using namespace locatorField;
    if (place.field ==
        H245OpenLogicalChannelAck_reverseLogicalChannelParameters_reverseLogicalChannelNumber) {
        return; // what is acknowledged stays the forward channel
    }
    channel.number = static_cast<uint16_t>(place.value);
    uint16_t* const kept = findDataChannel(channel);
    channel.t120 = kept != nullptr && !channel.received;
    if (kept != nullptr && channel.received &&
        place.field == H245OpenLogicalChannel_forwardLogicalChannelNumber) {
        *kept = 0; // opened anew, for whatever its data type says
    }
}

void noteData(const LocatedPlace& place, Channel& channel) {
    channel.t120 =
        place.kind == PlaceKind::dataApplication &&
        place.alternative == locatorAlternative::H245DataApplicationCapability_application_t120;
    if (channel.t120 && channel.received && channel.call != nullptr &&
        findDataChannel(channel) == nullptr) {
        uint16_t* const data = channel.call->data;
        uint16_t* const last = std::find(data, data + dataChannels - 1, uint16_t{0});
        std::copy_backward(data, last, last + 1); // the oldest goes when all are in use
        data[0] = channel.number;
    }
}

// --- Telling

void tellMessage(const MessageSource& source, const MessageFacts& facts, Index call) {
    if (observer.messageRead == nullptr) {
        return;
    }
    H323ObservedMessage event = {};
    event.role = source.role;
    event.direction = source.direction;
    event.inside = observed(source.inside);
    event.outside = observed(source.outside);
    event.call = call == none ? 0 : state.calls[call].number;
    describeMessage(facts, source.octets, source.count, event);
    tell(observer.messageRead, event);
}

struct FoundAddress {
    const LocatorWalk& walk;
    const LocatedPlace& place;
    PlaceRole role;
};

void tellAddress(void(H323NAT_CALL* function)(void*, const H323ObservedAddress*),
                 const FoundAddress& found, const EndpointKey& to, uint32_t cause) {
    if (function == nullptr) {
        return;
    }
    char text[placePathCapacity];
    const size_t length = placePath(found.walk, text, sizeof text);
    const H323ObservedAddress event = {
        found.role.role,
        static_cast<uint32_t>(found.place.offset),
        {reinterpret_cast<const uint8_t*>(text), static_cast<uint32_t>(length)},
        {found.place.address, found.place.port, 0},
        observed(to),
        cause};
    tell(function, event);
}

// --- Calls

void copyAlias(const MessageSource& source, const LocatedPlace& place, Alias& alias) {
    if (place.length != 0) {
        char text[aliasOctets];
        const size_t length = aliasCharacters(source.octets, place, text, sizeof text);
        alias.length = static_cast<uint8_t>(std::min(length, sizeof text));
        std::memcpy(alias.octets, text, alias.length);
    }
}

// The call of a signalling message: its Setup begins it, or whatever comes first on a connection.
Index callOfMessage(const MessageSource& source, const MessageFacts& facts, bool& began) {
    began = false;
    const Index index = source.connection;
    if (index == none) {
        return none;
    }
    if (source.role != H323NAT_ROLE_SIGNALLING) {
        return callOfControl(index);
    }
    Index call = runningCall(callOf(index, facts.callIdentifier));
    const bool other =
        isSetup(source, facts) && call != none && facts.callIdentifier != nullptr &&
        (!state.calls[call].identified ||
         std::memcmp(state.calls[call].identifier, facts.callIdentifier, identifierOctets) != 0);
    const Connection& connection = state.connections[index];
    const bool begins =
        other || (call == none && (!connection.carriedCall || isSetup(source, facts)));
    if (begins && !connection.over) { // nothing would end a call on a connection that is over
        call = beginCall(index, facts.callIdentifier);
        began = call != none;
    }
    return call;
}

void completeCall(const MessageSource& source, const MessageFacts& facts, Index index) {
    copyAlias(source, facts.calling, state.calls[index].calling);
    copyAlias(source, facts.called, state.calls[index].called);
    tellBegin(index);
}

// --- Translating

bool isOwn(const MessageSource& source, const LocatedPlace& place) {
    return place.address == source.privateAddress;
}

// Why the place's octets cannot be written; 0: they can. What is sent again need not be what was
// sent first.
uint32_t causeOfNoWriting(const MessageSource& source, const LocatedPlace& place) {
    if (source.part == nullptr) {
        return 0;
    }
    const size_t offset = source.offset + place.offset;
    if (leavesNow(*source.part, offset, endpointSize)) {
        return 0;
    }
    const ptrdiff_t start = source.part->start + static_cast<ptrdiff_t>(offset);
    const bool inPacket =
        start >= 0 && static_cast<size_t>(start) + endpointSize <= source.part->payloadLength;
    const bool same = !inPacket || std::memcmp(source.part->payload + start,
                                               source.octets + place.offset, endpointSize) == 0;
    return same ? uint32_t{H323NAT_LEFT_ALREADY_SENT} : uint32_t{H323NAT_LEFT_OTHER_OCTETS};
}

void write(const MessageSource& source, const LocatedPlace& place, const EndpointKey& to) {
    const uint8_t octets[endpointSize] = {
        static_cast<uint8_t>(to.address >> 24), static_cast<uint8_t>(to.address >> 16),
        static_cast<uint8_t>(to.address >> 8),  static_cast<uint8_t>(to.address),
        static_cast<uint8_t>(to.port >> 8),     static_cast<uint8_t>(to.port)};
    if (source.part == nullptr) {
        std::memcpy(source.octets + place.offset, octets, endpointSize);
        return;
    }
    if (state.streams.edits.used == state.streams.edits.capacity) {
        makeRoomForEdits(source.connection);
    }
    Connection& connection = state.connections[source.connection];
    Stream& stream = source.direction == H323NAT_SENT ? connection.sent : connection.received;
    writeEndpoint(stream, state.streams, *source.part, source.offset + place.offset, octets);
}

// Before a gatekeeper has answered, only its way back to the host is opened.
bool isConfirmed(const MessageSource& source, uint8_t role) {
    return source.registration == none || role == H323NAT_ROLE_RAS ||
           state.registrations[source.registration].confirmed;
}

// Who may send to the mapping. Calls and media come from other parties than the gatekeeper that is
// told of them; a discovery that goes to a group is answered by some member of it.
uint32_t remoteOf(const MessageSource& source, uint8_t role) {
    constexpr uint32_t firstGroup = 0xE0000000; // 224.0.0.0
    const bool known = role == H323NAT_ROLE_RAS && source.role == H323NAT_ROLE_RAS &&
                       source.outside.address < firstGroup;
    return known ? source.outside.address : UNKNOWN_REMOTE_ADDRESS;
}

Translation translateSent(const MessageSource& source, const FoundAddress& found,
                          const Asking& asking) {
    const LocatedPlace& place = found.place;
    if (!isOwn(source, place)) {
        return {{}, H323NAT_LEFT_NOT_THE_SENDERS};
    }
    if (found.role.role == 0) {
        return {{}, H323NAT_LEFT_NOT_LISTED};
    }
    if (!isConfirmed(source, found.role.role) &&
        !isPublished(found.role.role, {place.address, place.port})) {
        return {{}, H323NAT_LEFT_NOT_CONFIRMED};
    }
    Asking request = asking;
    request.remoteAddress = remoteOf(source, found.role.role);
    return translateOut(found.role.role, found.role.rtcp, {place.address, place.port}, request);
}

// Address 0: nothing of ours stands there.
EndpointKey translateReceived(const MessageSource& source, const FoundAddress& found) {
    return translateIn(found.role.role, {found.place.address, found.place.port},
                       source.hostContext->publicAddress);
}

bool translateAddress(const MessageSource& source, const FoundAddress& found,
                      const Asking& asking) {
    const LocatedPlace& place = found.place;
    if (place.address == 0 || place.port == 0) {
        return false;
    }
    Translation translation = {};
    if (source.direction == H323NAT_RECEIVED) {
        translation.to = translateReceived(source, found);
        if (translation.to.address == 0) {
            return false;
        }
    }
    // What cannot be written any more opens nothing.
    if (const uint32_t cause = causeOfNoWriting(source, place); cause != 0) {
        const bool concerned = source.direction == H323NAT_RECEIVED || isOwn(source, place);
        translation.cause = concerned ? cause : uint32_t{H323NAT_LEFT_NOT_THE_SENDERS};
    } else if (source.direction == H323NAT_SENT) {
        translation = translateSent(source, found, asking);
    }
    const EndpointKey from = {place.address, place.port};
    if (translation.cause != 0) {
        tellAddress(observer.addressLeft, found, from, translation.cause);
        return false;
    }
    if (translation.to == from) {
        return false;
    }
    write(source, place, translation.to);
    tellAddress(observer.addressRewritten, found, translation.to, 0);
    return true;
}

// Where a received message tells the private host to connect to. A signalling connection to the
// well-known port is followed without that.
void announceReceived(const MessageSource& source, const FoundAddress& found, Index call) {
    const LocatedPlace& place = found.place;
    const bool control = found.role.role == H323NAT_ROLE_H245;
    if (!source.mayAnnounce || !found.role.tells || place.address == 0 || place.port == 0 ||
        (control ? call == none : place.port == callSignallingPort)) {
        return;
    }
    announce(found.role.role, {place.address, place.port}, source.privateAddress,
             control ? call : none);
}

bool translateAddresses(const MessageSource& source, const MessageFacts& facts, Index call) {
    constexpr uint32_t kinds =
        placeKindBit(PlaceKind::address) | placeKindBit(PlaceKind::channelNumber) |
        placeKindBit(PlaceKind::dataType) | placeKindBit(PlaceKind::dataApplication);
    const bool ras = source.role == H323NAT_ROLE_RAS;
    const Asking asking = {
        source.hostContext,
        {call, call == none ? source.registration : none},
        UNKNOWN_REMOTE_ADDRESS,
        source.control,
        ++state.messagesSoFar,
        ras && (facts.alternative == locatorAlternative::H225RasMessage_gatekeeperRequest ||
                facts.alternative == locatorAlternative::H225RasMessage_registrationRequest)};
    Channel channel = {call == none ? nullptr : &state.calls[call],
                       source.direction == H323NAT_RECEIVED, 0, false};
    bool changed = false;
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, source.type, source.octets, source.count, kinds);
    while (nextPlace(walk, place)) {
        if (place.kind != PlaceKind::address) {
            (place.kind == PlaceKind::channelNumber ? noteNumber : noteData)(place, channel);
            continue;
        }
        const FoundAddress found = {walk, place, roleOf(place, channel.t120)};
        if (translateAddress(source, found, asking)) {
            changed = true;
        } else if (source.direction == H323NAT_RECEIVED) {
            announceReceived(source, found, call);
        }
    }
    return changed;
}

// Of an H.245 message nobody asks more than its addresses, unless it is to be told.
void assumeFacts(MessageFacts& facts) {
    facts.alternative = 0;
    facts.callIdentifier = nullptr;
    facts.isSigned = false;
    facts.hasAddresses = true;
    facts.calling = {};
    facts.called = {};
    facts.status = LocateStatus::complete;
    facts.name = {};
}

} // namespace

ReadMessage translateMessage(const MessageSource& source) {
    MessageFacts facts;
    const bool observed = observer.messageRead != nullptr || observer.callBegan != nullptr;
    if (observed || source.type != LocatedType::systemControlMessage) {
        readFacts(source.type, source.octets, source.count, observed, facts);
    } else {
        assumeFacts(facts);
    }
    bool began = false;
    const Index call = callOfMessage(source, facts, began);
    if (began) {
        completeCall(source, facts, call);
    }
    tellMessage(source, facts, call);
    ReadMessage result = {facts.alternative, false};
    if (facts.hasAddresses) {
        result.changed = translateAddresses(source, facts, call);
    }
    if (isRelease(source, facts) && call != none) {
        state.calls[call].cause = static_cast<uint8_t>(source.causeOfRelease);
        endCall(call, H323NAT_END_RELEASED);
    }
    return result;
}

} // namespace full_scope
