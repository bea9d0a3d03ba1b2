#include "gateway/live/live_mappings.h"

#include "gateway/mapping_links.h"

#include <algorithm>

namespace gateway {
namespace {

Endpoint neighbour(const Endpoint& endpoint, int index) {
    return {endpoint.address, static_cast<uint16_t>(endpoint.port + index)};
}

// A port outside the range is no wish: rules of the operator may open only the range.
uint16_t wishFor(const Endpoint& inside, const LiveConfig& config) {
    const bool usable =
        inside.port % 2 == 0 && inside.port >= config.firstPort && inside.port < config.lastPort;
    return usable ? inside.port : uint16_t{0};
}

} // namespace

const char* nameOf(MappingKind kind) {
    static constexpr const char* names[] = {"media", "ras", "h245"};
    return names[static_cast<size_t>(kind)];
}

size_t LiveMappings::KeyHash::operator()(const Key& key) const noexcept {
    const auto protocol = key.kind == MappingKind::Control ? Protocol::Tcp : Protocol::Udp;
    return LocalIdHash{}({protocol, key.inside}) * 3 + static_cast<size_t>(key.kind);
}

LiveMappings::LiveMappings(const LiveConfig& config)
    : config_(config), udpPorts_(config.firstPort, config.lastPort),
      tcpPorts_(config.firstPort, config.lastPort) {}

void LiveMappings::configure(const LiveConfig& config) {
    const bool sameRange =
        config.firstPort == config_.firstPort && config.lastPort == config_.lastPort;
    config_ = config;
    if (sameRange) {
        return;
    }
    udpPorts_ = PortAllocator(config.firstPort, config.lastPort);
    tcpPorts_ = PortAllocator(config.firstPort, config.lastPort);
    for (const LiveMapping& mapping : mappings_) {
        allocator(mapping.protocol()).takePairExactly(mapping.publicPort);
    }
}

PortAllocator& LiveMappings::allocator(Protocol protocol) {
    return protocol == Protocol::Udp ? udpPorts_ : tcpPorts_;
}

LiveMapping& LiveMappings::add(MappingKind kind, const Endpoint& inside, uint16_t publicPort,
                               LiveSeconds now) {
    LiveMapping& mapping = mappings_.emplace_back();
    mapping.kind = kind;
    mapping.inside = inside;
    mapping.publicPort = publicPort;
    mapping.opened = now;
    mapping.lastUse = now;
    for (int i = 0; i < mapping.ports(); ++i) {
        mapping.records[i].insideAddress = inside.address;
        mapping.records[i].insidePort = neighbour(inside, i).port;
        if (mapping.protocol() == Protocol::Udp) {
            const LocalId local{Protocol::Udp, neighbour(inside, i)};
            mapping.leaves[i] = leaving_.emplace(local, &mapping).second;
        }
    }
    byInside_.emplace(Key{kind, inside}, std::prev(mappings_.end()));
    ++perHost_[inside.address];
    return mapping;
}

LiveMappings::Opened LiveMappings::open(MappingKind kind, const Endpoint& inside,
                                        uint32_t remoteAddress, const FlowId& owner,
                                        LiveSeconds now) {
    Opened opened;
    if (const auto found = byInside_.find(Key{kind, inside}); found != byInside_.end()) {
        opened.mapping = &*found->second;
        opened.reused = true;
        opened.mapping->lastUse = now;
        opened.mapping->owner = owner;
        return opened;
    }
    const auto held = perHost_.find(inside.address);
    if (held != perHost_.end() && held->second >= config_.mappingsPerHost) {
        opened.refusal = Cause::refusedHostLimit;
        return opened;
    }
    const Protocol protocol = kind == MappingKind::Control ? Protocol::Tcp : Protocol::Udp;
    const auto port = inside.port == 65535 ? std::nullopt
                                           : allocator(protocol).takePair(wishFor(inside, config_));
    if (!port) {
        return opened;
    }
    opened.mapping = &add(kind, inside, *port, now);
    opened.mapping->remoteAddress = remoteAddress;
    opened.mapping->owner = owner;
    return opened;
}

size_t LiveMappings::adopt(std::span<const PortForward> forwards, LiveSeconds now) {
    const auto hasNeighbour = [&](const PortForward& forward) {
        return std::any_of(forwards.begin(), forwards.end(), [&](const PortForward& other) {
            return other.publicPort == forward.publicPort + 1 &&
                   other.inside == neighbour(forward.inside, 1);
        });
    };
    size_t adopted = 0;
    for (const PortForward& forward : forwards) {
        // The odd port of a pair comes with the even one; RAS has an even port alone.
        const MappingKind kind = hasNeighbour(forward) ? MappingKind::Media : MappingKind::Ras;
        if (forward.publicPort % 2 != 0 || forward.inside.port == 65535 ||
            byInside_.contains(Key{kind, forward.inside}) ||
            !udpPorts_.takePairExactly(forward.publicPort)) {
            continue;
        }
        LiveMapping& mapping = add(kind, forward.inside, forward.publicPort, now);
        mapping.adopted = true;
        mapping.fresh = false;
        ++adopted;
    }
    return adopted;
}

void LiveMappings::withdraw(LiveMapping& mapping) {
    const auto found = byInside_.find(Key{mapping.kind, mapping.inside});
    if (found != byInside_.end()) {
        const Iterator position = found->second;
        release(position);
        mappings_.erase(position);
    }
}

void LiveMappings::release(Iterator mapping) {
    for (int i = 0; i < mapping->ports(); ++i) {
        unlink(mapping->records[i]);
        if (mapping->leaves[i]) {
            leaving_.erase({Protocol::Udp, neighbour(mapping->inside, i)});
        }
    }
    allocator(mapping->protocol()).releasePair(mapping->publicPort);
    byInside_.erase(Key{mapping->kind, mapping->inside});
    if (--perHost_[mapping->inside.address] == 0) {
        perHost_.erase(mapping->inside.address);
    }
}

std::vector<PortForward> LiveMappings::forwardsOf(const LiveMapping& mapping) {
    std::vector<PortForward> forwards;
    forwards.reserve(static_cast<size_t>(mapping.ports()));
    for (int i = 0; i < mapping.ports(); ++i) {
        forwards.push_back({mapping.protocol(), static_cast<uint16_t>(mapping.publicPort + i),
                            neighbour(mapping.inside, i), mapping.leaves[i]});
    }
    return forwards;
}

std::vector<PortForward> LiveMappings::allForwards() const {
    std::vector<PortForward> forwards;
    for (const LiveMapping& mapping : mappings_) {
        const auto own = forwardsOf(mapping);
        forwards.insert(forwards.end(), own.begin(), own.end());
    }
    return forwards;
}

// What one sweep finds out, before anything changes.
struct LiveMappings::Sweep {
    struct Port {
        LiveMapping* mapping;
        Endpoint inside;
        Endpoint publicEndpoint;
    };
    struct Use {
        LiveSeconds deadline = 0;
        bool open = false; // a TCP connection through the mapping, or the call's own
        std::vector<const TrackedFlow*> flows;
    };
    std::unordered_map<LocalId, Port, LocalIdHash> byInside;
    std::unordered_map<LocalId, Port, LocalIdHash> byPublic;
    std::unordered_map<FlowId, bool, FlowIdHash> owners;
    std::unordered_map<const LiveMapping*, Use> uses;
    std::vector<const TrackedFlow*> conflicts;

    Sweep(std::list<LiveMapping>& mappings, uint32_t publicAddress) {
        for (LiveMapping& mapping : mappings) {
            owners.emplace(mapping.owner, false);
            for (int i = 0; i < mapping.ports(); ++i) {
                const Port port{&mapping,
                                neighbour(mapping.inside, i),
                                {publicAddress, static_cast<uint16_t>(mapping.publicPort + i)}};
                byPublic.emplace(LocalId{mapping.protocol(), port.publicEndpoint}, port);
                if (mapping.leaves[i]) {
                    byInside.emplace(LocalId{mapping.protocol(), port.inside}, port);
                }
            }
        }
    }

    void noteOwner(const TrackedFlow& flow) {
        for (const bool startedInside : {true, false}) {
            const FlowViews views = viewsOf(flow, startedInside);
            const auto owner = owners.find({flow.protocol, views.inside, views.remote});
            if (owner != owners.end()) {
                owner->second = true;
            }
        }
    }

    void note(const TrackedFlow& flow, LiveSeconds now) {
        if (flow.tcpOpen) {
            noteOwner(flow);
        }
        const auto sent = byInside.find({flow.protocol, flow.originalSource});
        if (sent != byInside.end()) {
            use(sent->second, flow, flow.replyDestination == sent->second.publicEndpoint, now);
        }
        const auto received = byPublic.find({flow.protocol, flow.originalDestination});
        if (received != byPublic.end()) {
            use(received->second, flow, flow.replySource == received->second.inside, now);
        }
    }

    void use(const Port& port, const TrackedFlow& flow, bool throughMapping, LiveSeconds now) {
        if (!throughMapping) {
            if (port.mapping->fresh) {
                conflicts.push_back(&flow);
            }
            return;
        }
        Use& use = uses[port.mapping];
        use.deadline = std::max(use.deadline, now + flow.secondsLeft);
        use.open = use.open || flow.tcpOpen;
        use.flows.push_back(&flow);
    }
};

LiveSeconds LiveMappings::idleLimit(const LiveMapping& mapping, bool callOpen) const {
    if (mapping.kind == MappingKind::Ras) {
        return config_.registrationIdle;
    }
    return callOpen ? config_.callIdle : config_.mediaIdle;
}

LiveMappings::Swept LiveMappings::sweep(std::span<const TrackedFlow> flows, uint32_t publicAddress,
                                        LiveSeconds now) {
    // The kernel tells whole seconds, so a step of one is no sign of traffic.
    constexpr LiveSeconds deadlineJitter = 1;

    Sweep found(mappings_, publicAddress);
    for (const TrackedFlow& flow : flows) {
        found.note(flow, now);
    }
    Swept swept;
    for (const TrackedFlow* flow : found.conflicts) {
        swept.flows.push_back(*flow);
    }
    for (auto mapping = mappings_.begin(); mapping != mappings_.end();) {
        const auto current = mapping++;
        Sweep::Use& use = found.uses[&*current];
        current->fresh = false;
        if (use.deadline > current->deadline + deadlineJitter) {
            current->lastUse = now;
            current->deadline = use.deadline;
        }
        current->deadline = std::min(current->deadline, use.deadline + deadlineJitter);
        const bool callOpen = use.open || found.owners[current->owner];
        if (now - current->lastUse <= idleLimit(*current, callOpen)) {
            continue;
        }
        const auto forwards = forwardsOf(*current);
        swept.forwards.insert(swept.forwards.end(), forwards.begin(), forwards.end());
        for (const TrackedFlow* flow : use.flows) {
            swept.flows.push_back(*flow);
        }
        release(current);
        swept.ended.splice(swept.ended.end(), mappings_, current);
    }
    return swept;
}

} // namespace gateway
