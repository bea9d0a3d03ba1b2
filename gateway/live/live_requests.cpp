#include "gateway/live/live_gateway.h"

#include "gateway/live/live_roles.h"
#include "gateway/mapping_links.h"

#include <algorithm>

// What the module asks its host for.
namespace gateway {

uint32_t LiveGateway::advertised(uint32_t publicAddress) const {
    return config_.advertisedAddress != 0 ? config_.advertisedAddress : publicAddress;
}

const PublishedHost* LiveGateway::publishedAt(const Endpoint& inside) const {
    const auto found = std::find_if(config_.published.begin(), config_.published.end(),
                                    [&](const PublishedHost& host) {
                                        return inside == Endpoint{host.address, callSignalPort};
                                    });
    return found == config_.published.end() ? nullptr : &*found;
}

// The address that the connection in hand leaves from: a router may have several.
uint32_t LiveGateway::leavesFrom() {
    if (!leavesFrom_) {
        leavesFrom_ = askWhereItLeaves();
    }
    return *leavesFrom_;
}

uint32_t LiveGateway::askWhereItLeaves() {
    const auto flow = conntrack_.find(sentFlow_.protocol, sentFlow_.local, sentFlow_.remote);
    if (!flow) {
        return sides_.publicAddress;
    }
    const bool startedInside = flow->originalSource == sentFlow_.local;
    const uint32_t address = viewsOf(*flow, startedInside).outside.address;
    return address == sentFlow_.local.address ? sides_.publicAddress : address;
}

void LiveGateway::refuse(Cause cause, MappingKind kind, const Endpoint& inside,
                         uint32_t remoteAddress) {
    counters_.add(cause);
    log_.stranger("mapping-refused", {{"kind", nameOf(kind)},
                                      {"inside", toText(inside)},
                                      {"remote", toText(remoteAddress)},
                                      {"cause", causeTexts()[static_cast<size_t>(cause)].name}});
}

LiveMapping* LiveGateway::openMapping(MappingKind kind, const Endpoint& inside,
                                      uint32_t remoteAddress, bool& reused) {
    // A host may open ways to itself, never to others.
    if (inside.address != sentFlow_.local.address) {
        refuse(Cause::refusedForeignAddress, kind, inside, remoteAddress);
        return nullptr;
    }
    if (inside.port < config_.lowestInsidePort) {
        refuse(Cause::refusedLowPort, kind, inside, remoteAddress);
        return nullptr;
    }
    const bool known = mappings_.findInside(kind, inside) != nullptr;
    const auto opened = mappings_.open(
        {kind, inside, known ? sides_.publicAddress : leavesFrom(), sentFlow_, call_}, now_);
    reused = opened.reused;
    if (opened.mapping == nullptr) {
        refuse(opened.refusal, kind, inside, remoteAddress);
        return nullptr;
    }
    if (opened.reused) {
        counters_.add(Cause::mappingsReused);
        return opened.mapping;
    }
    for (const PortForward& forward : LiveMappings::forwardsOf(*opened.mapping)) {
        table_.add(forward);
    }
    opened_.push_back(opened.mapping->number);
    counters_.add(Cause::mappingsOpened);
    wantsSweep_ = true;
    log_.info("mapping-open", {{"kind", nameOf(kind)},
                               {"inside", toText(inside)},
                               {"public", toText(opened.mapping->publicEndpoint)}});
    return opened.mapping;
}

// In the full scope a remote address tells that the mapping is for RAS.
MediaMapping LiveGateway::openMedia(const Endpoint& inside, uint32_t remoteAddress) {
    const bool ras =
        sentFlow_.protocol == Protocol::Udp &&
        (config_.scope == TranslationScope::Listed || remoteAddress != UNKNOWN_REMOTE_ADDRESS);
    const MappingKind kind = ras ? MappingKind::Ras : MappingKind::Media;
    MediaMapping answer;
    answer.publicEndpoint = inside;
    LiveMapping* mapping = openMapping(kind, inside, remoteAddress, answer.reused);
    if (mapping == nullptr) {
        return answer;
    }
    answer.granted = true;
    answer.publicEndpoint = {advertised(mapping->publicEndpoint.address),
                             mapping->publicEndpoint.port};
    noteMapping(MappingRequest::Kind::Media, inside, answer.publicEndpoint, answer.reused);
    // Linked once is enough: the lists are the module's, the lifetimes are ours.
    if (kind == MappingKind::Media && !isLinked(mapping->records[0]) &&
        !isLinked(mapping->records[1])) {
        answer.first = &mapping->records[0];
        answer.second = &mapping->records[1];
    }
    return answer;
}

std::optional<ControlMapping> LiveGateway::openControl(const Endpoint& inside,
                                                       uint32_t remoteAddress) {
    ControlMapping answer;
    if (const PublishedHost* const host = publishedAt(inside);
        host != nullptr && inside.address == sentFlow_.local.address) {
        answer.publicEndpoint = {advertised(leavesFrom()), host->publicPort};
        answer.reused = true;
        return answer;
    }
    const LiveMapping* mapping =
        openMapping(MappingKind::Control, inside, remoteAddress, answer.reused);
    if (mapping == nullptr) {
        return std::nullopt;
    }
    answer.publicEndpoint = {advertised(mapping->publicEndpoint.address),
                             mapping->publicEndpoint.port};
    noteMapping(MappingRequest::Kind::Control, inside, answer.publicEndpoint, answer.reused);
    return answer;
}

HostMappingRecord* LiveGateway::recordOf(const FlowId& insideView) {
    HostMappingRecord* record = records_.obtain(insideView, now_);
    if (record == nullptr) {
        counters_.add(Cause::flowRecordsShort);
    }
    return record;
}

HostMappingRecord* LiveGateway::findInside(const Endpoint& inside, const Endpoint& remote) {
    const bool known = conntrack_.find(Protocol::Tcp, inside, remote).has_value();
    return known ? recordOf({Protocol::Tcp, inside, remote}) : nullptr;
}

HostMappingRecord* LiveGateway::findOutside(const Endpoint& publicEndpoint,
                                            const Endpoint& remote) {
    const auto flow =
        conntrack_.find(Protocol::Tcp, remote, {receivedAt_.address, publicEndpoint.port});
    if (!flow) {
        const auto listener = listenerAt(publicEndpoint.port);
        return listener ? recordOf({Protocol::Tcp, *listener, remote}) : nullptr;
    }
    const bool startedInside = flow->originalSource != remote;
    const FlowViews views = viewsOf(*flow, startedInside);
    return recordOf({Protocol::Tcp, views.inside, views.remote});
}

} // namespace gateway
