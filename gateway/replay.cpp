#include "gateway/replay.h"

#include "gateway/link_layer.h"

#include <algorithm>

namespace gateway {

Replay::Replay(const ReferenceHostSettings& settings, int linkType, ReplayListener& listener)
    : inside_(settings.inside), linkType_(linkType), listener_(listener), host_(settings) {}

void Replay::process(CapturedFrame& frame) {
    ++totals_.packets;
    const NetworkLayer network = networkLayer(linkType_, frame.octets);
    if (network.protocol == NetworkProtocol::Ipv4) {
        processIpv4(frame, network.offset);
        return;
    }
    ++totals_.verdicts.at(static_cast<size_t>(Verdict::NotIpv4));
    totals_.ipv6 += network.protocol == NetworkProtocol::Ipv6 ? 1 : 0;
}

void Replay::processIpv4(CapturedFrame& frame, size_t offset) {
    const auto packet = std::span<uint8_t>(frame.octets).subspan(offset);
    PacketLayout layout;
    const PacketKind kind = classifyPacket(packet, layout);
    const bool whole = kind == PacketKind::Tcp || kind == PacketKind::Udp;
    if (whole) {
        const auto payload = packet.subspan(layout.payloadOffset, layout.payloadLength);
        before_.assign(payload.begin(), payload.end());
    }

    const PacketOutcome outcome = host_.process(packet, frame.time.seconds);
    ++totals_.verdicts.at(static_cast<size_t>(outcome.verdict));
    totals_.truncated += outcome.verdict == Verdict::Translated && outcome.truncated ? 1 : 0;
    for (const MappingRequest& request : host_.mappingRequests()) {
        ++(request.granted ? totals_.mappings : totals_.refusedMappings);
        listener_.onMapping(frame, request);
    }
    if (whole && outcome.verdict == Verdict::Translated) {
        observe(frame, packet, layout, outcome);
    }
}

void Replay::observe(const CapturedFrame& frame, std::span<const uint8_t> packet,
                     const PacketLayout& layout, const PacketOutcome& outcome) {
    ObservedPayload payload;
    payload.direction = outcome.direction;
    payload.insideView = outcome.insideView;
    if (!tracker_.mayCarryMessages(payload.insideView)) {
        return;
    }
    if (layout.protocol == Protocol::Tcp) {
        payload.sequence = sequenceNumber(packet, layout);
        payload.tcpFlags = tcpFlags(packet, layout);
    }
    payload.before = before_;
    payload.after = packet.subspan(layout.payloadOffset, layout.payloadLength);
    totals_.rewrittenPackets +=
        std::equal(before_.begin(), before_.end(), payload.after.begin()) ? 0 : 1;

    for (const ObservedMessage& message : tracker_.observe(payload)) {
        count(outcome.direction, message);
        if (message.rewritten) {
            listener_.onRewrite(frame, outcome.direction, message);
        }
    }
}

bool Replay::announcesPrivateAddress(const MessageDescription& description) const {
    return std::any_of(
               description.fields.begin(), description.fields.end(),
               [this](const auto& field) { return inside_.contains(field.value.address); }) ||
           std::any_of(description.controlAddresses.begin(), description.controlAddresses.end(),
                       [this](const auto& endpoint) { return inside_.contains(endpoint.address); });
}

void Replay::count(Direction direction, const ObservedMessage& message) {
    if (message.repeated) {
        return;
    }
    ++totals_.messages;
    if (message.rewritten) {
        ++totals_.rewritten;
    } else if (!message.description.decoded) {
        ++totals_.undecodable;
    } else if (direction == Direction::Sent && announcesPrivateAddress(message.description)) {
        ++totals_.privateAddressKept;
    } else {
        ++totals_.nothingToTranslate;
    }
}

} // namespace gateway
