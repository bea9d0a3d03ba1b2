#include "gateway/live/live_gateway.h"

#include "gateway/live/live_roles.h"

// Connections whose beginning the module has not seen.
namespace gateway {
std::optional<Endpoint> LiveGateway::listenerAt(uint16_t publicPort) {
    for (const PublishedHost& host : config_.published) {
        if (host.publicPort == publicPort) {
            return Endpoint{host.address, callSignalPort};
        }
    }
    const LiveMapping* const mapping = mappings_.findPublic(Protocol::Tcp, publicPort);
    return mapping == nullptr ? std::nullopt : std::optional(mapping->inside);
}

// The public end of a private host's connection; `accepted` when it came from outside.
std::optional<Endpoint> LiveGateway::publicOf(const FlowId& insideView, bool& accepted) {
    accepted = true;
    if (const PublishedHost* const host = publishedAt(insideView.local)) {
        return Endpoint{sides_.publicAddress, host->publicPort};
    }
    if (const LiveMapping* const mapping =
            mappings_.findInside(MappingKind::Control, insideView.local)) {
        return mapping->publicEndpoint;
    }
    accepted = false;
    if (insideView.remote.port != callSignalPort &&
        !expected_.contains(connectionKey(insideView.remote))) {
        return std::nullopt;
    }
    const auto flow = conntrack_.find(Protocol::Tcp, insideView.local, insideView.remote);
    return flow ? std::optional(viewsOf(*flow, true).outside) : std::nullopt;
}

// Tells the module of a connection when its first octets come. False: not for the module.
//
// A private host's SYN tells all. But anybody may knock at a private host that accepts calls; its
// answer is only remembered, until the connection speaks.
bool LiveGateway::introduce(const Parcel& parcel) {
    const uint8_t flags = tcpFlags(parcel.packet, parcel.layout);
    const Endpoint source = sourceOf(parcel.packet, parcel.layout);
    const Endpoint destination = destinationOf(parcel.packet, parcel.layout);
    FlowId insideView{Protocol::Tcp, source, destination};
    if ((flags & tcpSyn) != 0) {
        const bool answer = (flags & tcpAck) != 0;
        if (parcel.side == Side::Inside) {
            known_.set(insideView,
                       answer
                           ? KnownConnection{Acquaintance::Answered,
                                             {sequenceNumber(parcel.packet, parcel.layout) + 1,
                                              acknowledgementNumber(parcel.packet, parcel.layout)}}
                           : KnownConnection{Acquaintance::Begun, {}});
        }
        return (parcel.side == Side::Inside) != answer;
    }
    if (parcel.layout.payloadLength == 0) {
        return true;
    }
    if (parcel.side == Side::Outside) {
        const auto listener = listenerAt(destination.port);
        if (!listener) {
            return true; // an answer to a private host
        }
        insideView = {Protocol::Tcp, *listener, source};
    }
    const KnownConnection* const known = known_.find(insideView);
    // What is forgotten here has a record as long as it is open: it was told of, and is not anew.
    if (known == nullptr ? records_.has(insideView)
                         : known->acquaintance == Acquaintance::Introduced) {
        return true;
    }
    if (known != nullptr && known->acquaintance == Acquaintance::Begun) {
        known_.set(insideView, {Acquaintance::Introduced, {}});
        return true;
    }
    if (known == nullptr && parcel.side == Side::Outside) {
        // A private host's own connection may have left from a port that is mapped as well.
        const auto flow = conntrack_.find(Protocol::Tcp, source, destination);
        if (flow && flow->originalSource != source) {
            return true;
        }
    }
    bool accepted = false;
    auto publicEndpoint = publicOf(insideView, accepted);
    if (!publicEndpoint) {
        return config_.scope == TranslationScope::Listed;
    }
    if (parcel.side == Side::Outside) {
        publicEndpoint = destination;
    }
    if (known == nullptr || known->acquaintance == Acquaintance::Unknown) {
        return adopt(parcel, insideView, *publicEndpoint, accepted);
    }
    const FirstSequences first = known->first;
    known_.set(insideView, {Acquaintance::Introduced, {}});
    showBeginning(insideView, first, *publicEndpoint, true);
    return true;
}

// What the beginning of a connection would have told.
void LiveGateway::showBeginning(const FlowId& insideView, const FirstSequences& first,
                                const Endpoint& publicEndpoint, bool accepted) {
    constexpr uint8_t answers = tcpSyn | tcpAck;
    const Endpoint told{advertised(publicEndpoint.address), publicEndpoint.port};
    auto received = emptySegment(insideView.remote, told, accepted ? tcpSyn : answers,
                                 first.received - 1, accepted ? 0 : first.sent);
    auto sent = emptySegment(insideView.local, insideView.remote, accepted ? answers : tcpSyn,
                             first.sent - 1, accepted ? first.received : 0);
    receivedAt_ = publicEndpoint;
    if (accepted) {
        showMade(received, Side::Outside);
        showMade(sent, Side::Inside);
    } else {
        showMade(sent, Side::Inside);
        showMade(received, Side::Outside);
    }
    hold_.begin(insideView, first.sent);
    hold_.begin({Protocol::Tcp, insideView.remote, publicEndpoint}, first.received);
}

// A connection that was there before: it is followed from the first packet that begins with a
// message. Its other direction is taken to stand between messages too.
bool LiveGateway::adopt(const Parcel& parcel, const FlowId& insideView,
                        const Endpoint& publicEndpoint, bool accepted) {
    const bool sent = parcel.side == Side::Inside;
    const auto payload = payloadOf(parcel.packet, parcel.layout);
    if (payload.size() < tpktHeader || !mayBeTpkt(payload)) {
        if (known_.find(insideView) == nullptr) {
            known_.set(insideView, {});
            counters_.add(Cause::connectionsUnknown);
            log_.stranger("connection-unknown", {{"inside", toText(insideView.local)},
                                                 {"remote", toText(insideView.remote)}});
        }
        return false;
    }
    const uint32_t sequence = sequenceNumber(parcel.packet, parcel.layout);
    const uint32_t acknowledged = acknowledgementNumber(parcel.packet, parcel.layout);
    const FirstSequences first =
        sent ? FirstSequences{sequence, acknowledged} : FirstSequences{acknowledged, sequence};
    known_.set(insideView, {Acquaintance::Introduced, {}});
    counters_.add(Cause::connectionsAdopted);
    showBeginning(insideView, first, publicEndpoint, accepted);
    return true;
}

} // namespace gateway
