#include "gateway/reference_host.h"

#include "gateway/mapping_links.h"

#include <algorithm>

namespace gateway {
namespace {

constexpr Network linkLocalMulticast{0xE0000000, 24}; // 224.0.0.0/24
constexpr uint32_t limitedBroadcast = 0xFFFFFFFF;

FlowTableSettings flowSettings(const ReferenceHostSettings& settings) {
    FlowTableSettings flows = settings.flows;
    flows.publicAddress = settings.publicAddress;
    return flows;
}

uint32_t addressAt(std::span<const uint8_t> packet, size_t at) {
    return (static_cast<uint32_t>(packet[at]) << 24) |
           (static_cast<uint32_t>(packet[at + 1]) << 16) |
           (static_cast<uint32_t>(packet[at + 2]) << 8) | packet[at + 3];
}

Verdict verdictOf(PacketKind kind) {
    switch (kind) {
    case PacketKind::NotIpv4:
        return Verdict::NotIpv4;
    case PacketKind::Fragment:
        return Verdict::Fragment;
    case PacketKind::OtherProtocol:
        return Verdict::OtherProtocol;
    case PacketKind::Malformed:
        return Verdict::Malformed;
    case PacketKind::Tcp:
    case PacketKind::Udp:
    case PacketKind::Truncated:
        break;
    }
    return Verdict::Translated;
}

} // namespace

ReferenceHost::ReferenceHost(const ReferenceHostSettings& settings, ModuleObserver* observer)
    : settings_(settings), flows_(flowSettings(settings)),
      module_(*this,
              {settings.publicAddress, settings.publishedAddress, settings.lossless,
               settings.fullScope},
              observer) {
    if (settings.publishedAddress != 0) {
        flows_.publish({settings.publishedAddress, callSignalPort});
    }
}

Verdict ReferenceHost::route(std::span<const uint8_t> packet, Direction& direction) const {
    const uint32_t source = addressAt(packet, 12);
    const uint32_t destination = addressAt(packet, 16);
    if (settings_.inside.contains(source)) {
        const bool stays = settings_.inside.contains(destination) ||
                           linkLocalMulticast.contains(destination) ||
                           destination == limitedBroadcast;
        direction = Direction::Sent;
        return stays ? Verdict::Local : Verdict::Translated;
    }
    direction = Direction::Received;
    const bool arrives =
        settings_.inside.contains(destination) || destination == settings_.publicAddress;
    return arrives ? Verdict::Translated : Verdict::Foreign;
}

PacketOutcome ReferenceHost::process(std::span<uint8_t> packet, Seconds now) {
    requests_.clear();
    // Captures may step back in time; idle times may not.
    now_ = std::max(now_, now);
    return translate(packet, Show::Packet);
}

std::vector<PacketOutcome> ReferenceHost::processJoint(std::span<HeldSegment> segments,
                                                       Seconds now) {
    std::vector<uint8_t> joint = joinSegments(segments);
    const PacketOutcome shown = process(joint, now);
    std::vector<bool> changed(segments.size(), false);
    if (shown.verdict == Verdict::Translated) {
        changed = splitJoint(joint, segments);
    }
    std::vector<PacketOutcome> outcomes;
    for (size_t i = 0; i < segments.size(); ++i) {
        outcomes.push_back(translate(segments[i].packet, Show::Nothing));
        outcomes.back().payloadChanged = changed[i];
    }
    return outcomes;
}

PacketOutcome ReferenceHost::translate(std::span<uint8_t> packet, Show show) {
    PacketOutcome outcome;
    PacketLayout layout;
    const PacketKind kind = classifyPacket(packet, layout);
    outcome.verdict = verdictOf(kind);
    outcome.truncated = kind == PacketKind::Truncated;
    if (outcome.verdict == Verdict::Translated) {
        outcome.verdict = route(packet, outcome.direction);
    }
    if (outcome.verdict != Verdict::Translated) {
        return outcome;
    }
    if (outcome.direction == Direction::Sent) {
        processSent(packet, layout, show, outcome);
    } else {
        processReceived(packet, layout, show, outcome);
    }
    return outcome;
}

void ReferenceHost::processSent(std::span<uint8_t> packet, const PacketLayout& layout, Show show,
                                PacketOutcome& outcome) {
    const FlowId insideView{layout.protocol, sourceOf(packet, layout),
                            destinationOf(packet, layout)};
    Flow* const flow = flows_.fromInside(insideView, now_);
    if (flow == nullptr) {
        outcome.verdict = Verdict::NoPort;
        return;
    }
    if (outcome.truncated) {
        replaceSource(packet, layout, flow->publicEndpoint());
    } else {
        outcome.payloadChanged = show == Show::Packet && module_.send(packet, layout);
        writeSource(packet, layout, flow->publicEndpoint());
    }
    finish(packet, layout, *flow, outcome);
}

void ReferenceHost::processReceived(std::span<uint8_t> packet, const PacketLayout& layout,
                                    Show show, PacketOutcome& outcome) {
    Flow* const flow =
        flowOfReceived(layout, sourceOf(packet, layout), destinationOf(packet, layout));
    if (flow == nullptr) {
        outcome.verdict = Verdict::NoMapping;
        outcome.insideView = {layout.protocol, destinationOf(packet, layout),
                              sourceOf(packet, layout)};
        return;
    }
    if (outcome.truncated) {
        replaceDestination(packet, layout, flow->inside());
    } else {
        if (show == Show::Packet) {
            writeDestination(packet, layout, flow->publicEndpoint());
            outcome.payloadChanged = module_.receive(packet, layout);
        }
        writeDestination(packet, layout, flow->inside());
    }
    finish(packet, layout, *flow, outcome);
}

Flow* ReferenceHost::flowOfReceived(const PacketLayout& layout, const Endpoint& source,
                                    const Endpoint& destination) {
    const FlowId view{layout.protocol, destination, source};
    return destination.address == settings_.publicAddress ? flows_.fromOutside(view, now_)
                                                          : flows_.towardsInside(view, now_);
}

void ReferenceHost::finish(std::span<uint8_t> packet, const PacketLayout& layout, Flow& flow,
                           PacketOutcome& outcome) {
    outcome.insideView = flow.insideView;
    if (outcome.truncated) {
        return;
    }
    recomputeChecksums(packet, layout);
    if (layout.protocol == Protocol::Tcp) {
        flows_.noteTcpFlags(flow, tcpFlags(packet, layout));
    }
}

// An address that no private host has is not ours to map: the answer repeats it, so that a message
// can neither open a way to a third party nor lose an address that is public already.
MediaMapping ReferenceHost::openMedia(const Endpoint& inside, uint32_t remoteAddress) {
    MediaMapping mapping;
    mapping.publicEndpoint = inside;
    if (settings_.inside.contains(inside.address)) {
        if (const auto pair = flows_.openPair(inside, now_)) {
            mapping.publicEndpoint = pair->publicEndpoint;
            mapping.granted = true;
            mapping.reused = pair->reused;
            const bool linkable =
                pair->second != nullptr && !isLinked(*pair->first) && !isLinked(*pair->second);
            mapping.first = linkable ? pair->first : nullptr;
            mapping.second = linkable ? pair->second : nullptr;
        }
    }
    requests_.push_back({MappingRequest::Kind::Media, inside, mapping.publicEndpoint, remoteAddress,
                         mapping.granted, mapping.reused});
    return mapping;
}

std::optional<ControlMapping> ReferenceHost::openControl(const Endpoint& inside,
                                                         uint32_t remoteAddress) {
    std::optional<ControlMapping> mapping;
    if (settings_.inside.contains(inside.address)) {
        bool reused = false;
        if (const auto opened = flows_.openPort(inside, now_, reused)) {
            mapping = ControlMapping{*opened, reused};
        }
    }
    requests_.push_back({MappingRequest::Kind::Control, inside,
                         mapping ? mapping->publicEndpoint : inside, remoteAddress,
                         mapping.has_value(), mapping && mapping->reused});
    return mapping;
}

HostMappingRecord* ReferenceHost::findInside(const Endpoint& inside, const Endpoint& remote) {
    Flow* const flow = flows_.findInside({Protocol::Tcp, inside, remote});
    return flow == nullptr ? nullptr : &flow->record;
}

HostMappingRecord* ReferenceHost::findOutside(const Endpoint& publicEndpoint,
                                              const Endpoint& remote) {
    Flow* const flow = flows_.findOutside({Protocol::Tcp, publicEndpoint, remote});
    return flow == nullptr ? nullptr : &flow->record;
}

} // namespace gateway
