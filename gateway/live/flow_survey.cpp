#include "gateway/live/flow_survey.h"

namespace gateway {

void FlowSurvey::addPort(uint64_t number, Protocol protocol, const Endpoint& inside,
                         const Endpoint& publicEndpoint, bool leaves, bool fresh) {
    const Port port{number, inside, publicEndpoint, fresh};
    byPublic_.emplace(LocalId{protocol, publicEndpoint}, port);
    if (leaves) {
        byInside_.emplace(LocalId{protocol, inside}, port);
    }
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

void FlowSurvey::note(const TrackedFlow& flow) {
    if (flow.protocol == Protocol::Tcp) {
        noteOwner(flow);
    }
    const auto sent = byInside_.find({flow.protocol, flow.originalSource});
    if (sent != byInside_.end()) {
        use(sent->second, flow, flow.replyDestination == sent->second.publicEndpoint);
    }
    const auto received = byPublic_.find({flow.protocol, flow.originalDestination});
    if (received != byPublic_.end()) {
        use(received->second, flow, flow.replySource == received->second.inside);
    }
}

void FlowSurvey::use(const Port& port, const TrackedFlow& flow, bool throughMapping) {
    if (!throughMapping) {
        if (port.fresh) {
            conflicts_.push_back(flow);
        }
        return;
    }
    Use& use = uses_[port.number];
    use.open = use.open || flow.tcpOpen;
    use.flows.push_back(flow);
}

const FlowSurvey::Use* FlowSurvey::useOf(uint64_t number) const {
    const auto found = uses_.find(number);
    return found == uses_.end() ? nullptr : &found->second;
}

bool FlowSurvey::isOpen(const FlowId& owner) const {
    const auto found = owners_.find(owner);
    return found != owners_.end() && found->second.open;
}

PacketCounts FlowSurvey::packetsOf(const FlowId& owner) const {
    const auto found = owners_.find(owner);
    return found == owners_.end() ? PacketCounts{} : found->second.packets;
}

} // namespace gateway
