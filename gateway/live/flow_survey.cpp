#include "gateway/live/flow_survey.h"

#include <algorithm>

namespace gateway {

void FlowSurvey::fill(std::span<const TrackedFlow> flows, std::span<const EndpointUse> uses,
                      PacketGrowth& growth) {
    Ports byInside;
    Ports byPublic;
    for (const Mapping& mapping : mappings_) {
        for (uint8_t i = 0; i < mapping.ports; ++i) {
            Port port{uses_.size(), mapping.inside, mapping.publicEndpoint, i != 0};
            port.inside.port = static_cast<uint16_t>(port.inside.port + i);
            port.publicEndpoint.port = static_cast<uint16_t>(port.publicEndpoint.port + i);
            byPublic.emplace(LocalId{mapping.protocol, port.publicEndpoint}, port);
            if (mapping.leaves[i]) {
                byInside.emplace(LocalId{mapping.protocol, port.inside}, port);
            }
        }
        uses_.push_back({mapping.number, mapping.call, false, std::nullopt, {}});
    }
    for (const FlowId& connection : connections_) {
        owners_.try_emplace(connection);
    }
    for (const TrackedFlow& flow : flows) {
        note(flow, byInside, byPublic);
    }
    for (const EndpointUse& use : uses) {
        const auto port = byInside.find({Protocol::Udp, use.inside});
        if (port != byInside.end()) {
            std::optional<LiveSeconds>& quiet = uses_[port->second.mapping].quiet;
            quiet = std::min(quiet.value_or(use.ago), use.ago);
        }
    }
    for (auto& [insideView, owner] : owners_) {
        owner.more = growth.of(insideView, owner.packets);
    }
    for (Use& use : uses_) {
        for (Flow& flow : use.flows) {
            flow.more = growth.of(flow.insideView, flow.more);
        }
    }
    growth.endSurvey();
}

void FlowSurvey::noteOwner(const TrackedFlow& flow) {
    for (const bool startedInside : {true, false}) {
        const FlowViews views = viewsOf(flow, startedInside);
        const auto owner = owners_.find({flow.protocol, views.inside, views.remote});
        if (owner != owners_.end()) {
            owner->second.open = owner->second.open || flow.tcpOpen;
            owner->second.packets = views.packets;
        }
    }
}

void FlowSurvey::note(const TrackedFlow& flow, const Ports& byInside, const Ports& byPublic) {
    if (flow.protocol == Protocol::Tcp) {
        noteOwner(flow);
    }
    const auto sent = byInside.find({flow.protocol, flow.originalSource});
    if (sent != byInside.end()) {
        noteUse(sent->second, flow, flow.replyDestination == sent->second.publicEndpoint);
    }
    const auto received = byPublic.find({flow.protocol, flow.originalDestination});
    if (received != byPublic.end()) {
        noteUse(received->second, flow, flow.replySource == received->second.inside);
    }
}

void FlowSurvey::noteUse(const Port& port, const TrackedFlow& flow, bool throughMapping) {
    if (!throughMapping) {
        if (mappings_[port.mapping].fresh) {
            conflicts_.push_back(flow);
        }
        return;
    }
    Use& use = uses_[port.mapping];
    use.open = use.open || flow.tcpOpen;
    const FlowViews views = viewsOf(flow, flow.originalSource == port.inside);
    use.flows.push_back(
        {flow, {flow.protocol, views.inside, views.remote}, views.packets, port.control});
}

const FlowSurvey::Owner* FlowSurvey::owner(const FlowId& insideView) const {
    const auto found = owners_.find(insideView);
    return found == owners_.end() ? nullptr : &found->second;
}

bool FlowSurvey::isOpen(const FlowId& insideView) const {
    const Owner* const found = owner(insideView);
    return found != nullptr && found->open;
}

} // namespace gateway
