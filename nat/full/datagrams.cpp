#include "nat/full/datagrams.h"

#include "locator/fields.h"
#include "nat/full/message.h"
#include "nat/full/registrations.h"
#include "nat/full/state.h"

namespace full_scope {
namespace {

MessageSource sourceOf(HostContext* hostContext, const UdpDatagram& datagram, bool sent) {
    const FlowKey& flow = datagram.flow;
    const EndpointKey from = {flow.sourceAddress, flow.sourcePort};
    const EndpointKey to = {flow.destinationAddress, flow.destinationPort};
    MessageSource source = {};
    source.type = LocatedType::rasMessage;
    source.role = H323NAT_ROLE_RAS;
    source.direction = sent ? H323NAT_SENT : H323NAT_RECEIVED;
    source.inside = sent ? from : to;
    source.outside = sent ? to : from;
    source.hostContext = hostContext;
    source.octets = datagram.payload;
    source.count = datagram.length;
    return source;
}

// What a host asks a gatekeeper, and what a gatekeeper answers.
enum class Part { request, confirm, reject, other };

Part partOf(uint16_t body) {
    using namespace locatorAlternative;
    switch (body) {
    case H225RasMessage_gatekeeperRequest:
    case H225RasMessage_registrationRequest:
    case H225RasMessage_unregistrationRequest:
    case H225RasMessage_admissionRequest:
    case H225RasMessage_bandwidthRequest:
    case H225RasMessage_disengageRequest:
    case H225RasMessage_locationRequest:
        return Part::request;
    case H225RasMessage_gatekeeperConfirm:
    case H225RasMessage_registrationConfirm:
    case H225RasMessage_unregistrationConfirm:
    case H225RasMessage_admissionConfirm:
    case H225RasMessage_bandwidthConfirm:
    case H225RasMessage_disengageConfirm:
    case H225RasMessage_locationConfirm:
        return Part::confirm;
    case H225RasMessage_gatekeeperReject:
    case H225RasMessage_registrationReject:
    case H225RasMessage_unregistrationReject:
    case H225RasMessage_admissionReject:
    case H225RasMessage_bandwidthReject:
    case H225RasMessage_disengageReject:
    case H225RasMessage_locationReject:
        return Part::reject;
    default:
        return Part::other;
    }
}

// The alternative of a RasMessage, told before its addresses: they are treated by it.
uint16_t bodyOf(const UdpDatagram& datagram) {
    LocatorWalk walk;
    LocatedPlace place;
    startLocating(walk, LocatedType::rasMessage, datagram.payload, datagram.length,
                  placeKindBit(PlaceKind::messageBody));
    return nextPlace(walk, place) ? place.alternative : uint16_t{0};
}

} // namespace

bool sendDatagram(HostContext* hostContext, const UdpDatagram& datagram) {
    MessageSource source = sourceOf(hostContext, datagram, true);
    const uint16_t body = bodyOf(datagram);
    if (body == 0) {
        return false;
    }
    const uint32_t inside = source.inside.address;
    const uint32_t gatekeeper = source.outside.address;
    source.privateAddress = inside;
    source.registration = partOf(body) == Part::request ? registrationFor(inside, gatekeeper)
                                                        : findRegistration(inside, gatekeeper);
    if (body == locatorAlternative::H225RasMessage_unregistrationRequest &&
        source.registration != none) {
        state.registrations[source.registration].leaving = true;
    }
    const bool changed = translateMessage(source).changed;
    if (body == locatorAlternative::H225RasMessage_unregistrationConfirm &&
        source.registration != none) {
        endRegistration(source.registration);
    }
    return changed;
}

bool receiveDatagram(HostContext* hostContext, const UdpDatagram& datagram) {
    MessageSource source = sourceOf(hostContext, datagram, false);
    const EndpointKey inside =
        translateIn(H323NAT_ROLE_RAS, source.inside, hostContext->publicAddress);
    source.privateAddress = inside.address;
    if (inside.address == 0) {
        return translateMessage(source).changed;
    }
    const uint16_t body = bodyOf(datagram);
    Index registration = none;
    const bool answered = (partOf(body) == Part::confirm || partOf(body) == Part::reject) &&
                          answerRequest(inside.address, source.outside.address, registration);
    source.mayAnnounce = answered;
    if (answered && (body == locatorAlternative::H225RasMessage_gatekeeperConfirm ||
                     body == locatorAlternative::H225RasMessage_registrationConfirm)) {
        confirmRegistration(registration);
    }
    const bool changed = translateMessage(source).changed;
    // Who writes the gatekeeper's address must not end a registration that nobody wants to end.
    if (answered && body == locatorAlternative::H225RasMessage_unregistrationConfirm &&
        state.registrations[registration].leaving) {
        endRegistration(registration);
    }
    return changed;
}

} // namespace full_scope
