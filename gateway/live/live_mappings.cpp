#include "gateway/live/live_mappings.h"

#include "gateway/mapping_links.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr LiveSeconds unansweredHold = 30; // of a RAS mapping, until a gatekeeper confirms
constexpr uint32_t unansweredOfAll = 256;
constexpr uint16_t lowestPublicPort = 1024; // as of the setting `ports`

Endpoint neighbour(const Endpoint& endpoint, int index) {
    return {endpoint.address, static_cast<uint16_t>(endpoint.port + index)};
}

Protocol protocolOf(MappingKind kind) {
    return kind == MappingKind::Control ? Protocol::Tcp : Protocol::Udp;
}

// Steele, Lea, Flood: "Fast splittable pseudorandom number generators", the mixing function.
uint64_t mixed(uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

} // namespace

const char* nameOf(MappingKind kind) {
    static constexpr const char* names[] = {"media", "ras", "h245"};
    return names[static_cast<size_t>(kind)];
}

size_t LiveMappings::KeyHash::operator()(const Key& key) const noexcept {
    return LocalIdHash{}({protocolOf(key.kind), key.inside}) * 3 + static_cast<size_t>(key.kind);
}

LiveMappings::LiveMappings(const LiveConfig& config, uint64_t seed, PortCheck isFree)
    : config_(config), seed_(seed), isFree_(std::move(isFree)),
      udpPorts_(config.firstPort, config.lastPort), tcpPorts_(config.firstPort, config.lastPort) {}

void LiveMappings::configure(const LiveConfig& config) {
    const bool sameRange =
        config.firstPort == config_.firstPort && config.lastPort == config_.lastPort;
    config_ = config;
    if (sameRange) {
        return;
    }
    udpPorts_ = PortAllocator(config.firstPort, config.lastPort);
    tcpPorts_ = PortAllocator(config.firstPort, config.lastPort);
    usedByMachine_.clear();
    for (const LiveMapping& mapping : mappings_) {
        for (int i = 0; i < mapping.ports(); ++i) {
            allocator(mapping.protocol()).takeExactly(neighbour(mapping.publicEndpoint, i).port);
        }
    }
}

PortAllocator& LiveMappings::allocator(Protocol protocol) {
    return protocol == Protocol::Udp ? udpPorts_ : tcpPorts_;
}

LiveMapping& LiveMappings::add(MappingKind kind, const Endpoint& inside,
                               const Endpoint& publicEndpoint, LiveSeconds now) {
    LiveMapping& mapping = mappings_.emplace_back();
    const auto position = std::prev(mappings_.end());
    mapping.number = nextNumber_++;
    mapping.kind = kind;
    mapping.inside = inside;
    mapping.publicEndpoint = publicEndpoint;
    mapping.opened = now;
    mapping.lastUse = now;
    for (int i = 0; i < mapping.ports(); ++i) {
        mapping.records[i].insideAddress = inside.address;
        mapping.records[i].insidePort = neighbour(inside, i).port;
        byPublicPort_.emplace(LocalId{mapping.protocol(), {0, neighbour(publicEndpoint, i).port}},
                              position);
        if (mapping.protocol() == Protocol::Udp) {
            const LocalId local{Protocol::Udp, neighbour(inside, i)};
            mapping.leaves[i] = leaving_.emplace(local, mapping.number).second;
        }
    }
    byInside_.emplace(Key{kind, inside}, position);
    byNumber_.emplace(mapping.number, position);
    ++perHost_[inside.address];
    return mapping;
}

// Spread over the range by endpoint and seed.
uint16_t LiveMappings::wishFor(MappingKind kind, const Endpoint& inside) const {
    const uint64_t key = static_cast<uint64_t>(inside.address) << 24 ^
                         static_cast<uint64_t>(inside.port) << 4 ^ static_cast<uint64_t>(kind);
    const uint64_t ports = uint64_t{1} + config_.lastPort - config_.firstPort;
    auto wish = static_cast<uint16_t>(config_.firstPort + mixed(key ^ seed_) % ports);
    if (kind != MappingKind::Media) {
        return wish;
    }
    wish = static_cast<uint16_t>(wish & ~1U);
    return wish < config_.firstPort || wish >= config_.lastPort
               ? static_cast<uint16_t>((config_.firstPort + 1) & ~1U)
               : wish;
}

std::optional<uint16_t> LiveMappings::takePort(MappingKind kind, const Endpoint& inside) {
    const Protocol protocol = protocolOf(kind);
    PortAllocator& ports = allocator(protocol);
    const bool pair = kind == MappingKind::Media;
    if (pair && inside.port == 65535) {
        return std::nullopt;
    }
    uint16_t wish = wishFor(kind, inside);
    // Ports that the machine uses itself stay taken until the next sweep: a few looks more.
    for (;;) {
        const auto port = pair ? ports.takePair(wish) : ports.take(wish);
        if (!port || (isFree_(protocol, *port) &&
                      (!pair || isFree_(protocol, static_cast<uint16_t>(*port + 1))))) {
            return port;
        }
        usedByMachine_.emplace_back(protocol, *port);
        if (pair) {
            usedByMachine_.emplace_back(protocol, static_cast<uint16_t>(*port + 1));
        }
        wish = *port;
    }
}

// Registrations that no gatekeeper answers may come under any address: the oldest gives way.
bool LiveMappings::makeRoomForRegistration(uint32_t host, LiveSeconds now) {
    std::erase_if(unanswered_, [this](uint64_t number) {
        const auto mapping = byNumber_.find(number);
        return mapping == byNumber_.end() || mapping->second->answered || mapping->second->over;
    });
    const auto ofHost = std::count_if(unanswered_.begin(), unanswered_.end(), [&](uint64_t number) {
        return byNumber_.at(number)->inside.address == host;
    });
    if (ofHost >= static_cast<int64_t>(config_.unansweredPerHost)) {
        return false;
    }
    if (unanswered_.size() >= unansweredOfAll) {
        const LiveMapping& oldest = *byNumber_.at(unanswered_.front());
        markOver(Protocol::Udp, oldest.publicEndpoint.port, now);
    }
    return true;
}

LiveMappings::Opened LiveMappings::open(const Request& request, LiveSeconds now) {
    Opened opened;
    if (const auto found = byInside_.find(Key{request.kind, request.inside});
        found != byInside_.end()) {
        opened.mapping = &*found->second;
        opened.reused = true;
    } else {
        const auto held = perHost_.find(request.inside.address);
        if ((held != perHost_.end() && held->second >= config_.mappingsPerHost) ||
            (request.kind == MappingKind::Ras &&
             !makeRoomForRegistration(request.inside.address, now))) {
            opened.refusal = Cause::refusedHostLimit;
            return opened;
        }
        const auto port = takePort(request.kind, request.inside);
        if (!port) {
            return opened;
        }
        opened.mapping = &add(request.kind, request.inside, {request.publicAddress, *port}, now);
        opened.mapping->answered = config_.scope == TranslationScope::Listed;
        if (request.kind == MappingKind::Ras && !opened.mapping->answered) {
            unanswered_.push_back(opened.mapping->number);
        }
    }
    LiveMapping& mapping = *opened.mapping;
    mapping.lastUse = now;
    mapping.owner = request.owner;
    mapping.over = false;
    mapping.adopted = false;
    mapping.callOver = false;
    if (mapping.call != request.call && request.call != 0) {
        byCall_[request.call].push_back(mapping.number);
    }
    mapping.call = request.call;
    return opened;
}

size_t LiveMappings::adopt(std::span<const PortForward> forwards, uint32_t publicAddress,
                           LiveSeconds now) {
    std::unordered_map<uint16_t, Endpoint> upper; // of pairs, by their public ports
    for (const PortForward& forward : forwards) {
        if (forward.kind == MappingKind::Media && forward.publicPort % 2 != 0) {
            upper.emplace(forward.publicPort, forward.inside);
        }
    }
    const auto hasNeighbour = [&](const PortForward& forward) {
        const auto found = upper.find(static_cast<uint16_t>(forward.publicPort + 1));
        return found != upper.end() && found->second == neighbour(forward.inside, 1);
    };
    size_t adopted = 0;
    for (const PortForward& forward : forwards) {
        // The odd port of a pair comes with the even one.
        const bool pair = forward.kind == MappingKind::Media;
        PortAllocator& ports = allocator(protocolOf(forward.kind));
        if (forward.publicPort < lowestPublicPort ||
            forward.inside.port < config_.lowestInsidePort ||
            (pair && (forward.publicPort % 2 != 0 || !hasNeighbour(forward))) ||
            byInside_.contains(Key{forward.kind, forward.inside}) ||
            !(pair ? ports.takePairExactly(forward.publicPort)
                   : ports.takeExactly(forward.publicPort))) {
            continue;
        }
        LiveMapping& mapping =
            add(forward.kind, forward.inside, {publicAddress, forward.publicPort}, now);
        mapping.adopted = true;
        mapping.answered = true;
        mapping.shown = true; // which of them are signalling is not known
        mapping.owner.remote.address = forward.gatekeeper;
        mapping.fresh = false;
        ++adopted;
    }
    return adopted;
}

std::vector<PortForward> LiveMappings::hear(std::span<const PortForward> forwards,
                                            uint32_t publicAddress, LiveSeconds now) {
    const uint64_t before = nextNumber_;
    for (const PortForward& forward : forwards) {
        LiveMapping* const known = findInside(forward.kind, forward.inside);
        if (known != nullptr && known->adopted) {
            known->lastUse = now;
        }
    }
    adopt(forwards, publicAddress, now);
    std::vector<PortForward> added;
    for (auto mapping = mappings_.rbegin();
         mapping != mappings_.rend() && mapping->number >= before; ++mapping) {
        const auto own = forwardsOf(*mapping);
        added.insert(added.end(), own.begin(), own.end());
    }
    return added;
}

std::vector<PortForward> LiveMappings::ownForwards(uint64_t& after) const {
    std::vector<PortForward> forwards;
    const uint64_t beyond = after;
    for (auto mapping = mappings_.rbegin(); mapping != mappings_.rend() && mapping->number > beyond;
         ++mapping) {
        after = std::max(after, mapping->number);
        if (!mapping->adopted) {
            const auto own = forwardsOf(*mapping);
            forwards.insert(forwards.end(), own.begin(), own.end());
        }
    }
    return forwards;
}

LiveMapping* LiveMappings::findPublic(Protocol protocol, uint16_t publicPort) {
    const auto found = byPublicPort_.find({protocol, {0, publicPort}});
    return found == byPublicPort_.end() ? nullptr : &*found->second;
}

LiveMapping* LiveMappings::findInside(MappingKind kind, const Endpoint& inside) {
    const auto found = byInside_.find(Key{kind, inside});
    return found == byInside_.end() ? nullptr : &*found->second;
}

void LiveMappings::withdraw(uint64_t number) {
    const auto found = byNumber_.find(number);
    if (found != byNumber_.end()) {
        const Iterator position = found->second;
        release(position);
        mappings_.erase(position);
    }
}

void LiveMappings::endCall(uint64_t call, LiveSeconds now) {
    const auto found = byCall_.find(call);
    if (found == byCall_.end()) {
        return;
    }
    for (const uint64_t number : found->second) {
        const auto mapping = byNumber_.find(number);
        if (mapping != byNumber_.end() && mapping->second->call == call) {
            mapping->second->callOver = true;
            mapping->second->lastUse = std::max(mapping->second->lastUse, now);
        }
    }
    byCall_.erase(found);
}

void LiveMappings::markOver(Protocol protocol, uint16_t publicPort, LiveSeconds now) {
    LiveMapping* const mapping = findPublic(protocol, publicPort);
    if (mapping != nullptr && !mapping->over) {
        const bool connected = mapping->kind == MappingKind::Control;
        mapping->over = true;
        mapping->overAt = now + (connected ? overLinger : 0);
        // What goes at once stands first.
        const Over over = {mapping->number, mapping->overAt};
        connected ? over_.push_back(over) : over_.push_front(over);
    }
}

void LiveMappings::lookForFlows() {
    for (LiveMapping& mapping : mappings_) {
        mapping.fresh = true;
    }
}

void LiveMappings::setPublicAddress(uint32_t before, uint32_t address) {
    for (LiveMapping& mapping : mappings_) {
        if (mapping.publicEndpoint.address == before) {
            mapping.publicEndpoint.address = address;
        }
    }
}

void LiveMappings::release(Iterator mapping) {
    for (int i = 0; i < mapping->ports(); ++i) {
        unlink(mapping->records[i]);
        const uint16_t publicPort = neighbour(mapping->publicEndpoint, i).port;
        byPublicPort_.erase(LocalId{mapping->protocol(), {0, publicPort}});
        allocator(mapping->protocol()).release(publicPort);
        if (mapping->leaves[i]) {
            leaving_.erase({Protocol::Udp, neighbour(mapping->inside, i)});
        }
    }
    byInside_.erase(Key{mapping->kind, mapping->inside});
    byNumber_.erase(mapping->number);
    if (--perHost_[mapping->inside.address] == 0) {
        perHost_.erase(mapping->inside.address);
    }
}

std::vector<PortForward> LiveMappings::forwardsOf(const LiveMapping& mapping) {
    std::vector<PortForward> forwards;
    forwards.reserve(static_cast<size_t>(mapping.ports()));
    for (int i = 0; i < mapping.ports(); ++i) {
        forwards.push_back(
            {mapping.kind, neighbour(mapping.publicEndpoint, i).port, neighbour(mapping.inside, i),
             mapping.leaves[i] ? mapping.publicEndpoint.address : 0,
             mapping.kind == MappingKind::Ras && mapping.answered ? mapping.owner.remote.address
                                                                  : 0,
             mapping.shown});
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

// An older flow to a gatekeeper stays: an answer may be on its way by it.
FlowSurvey LiveMappings::survey() const {
    FlowSurvey survey;
    for (const LiveMapping& mapping : mappings_) {
        const bool media = mapping.kind == MappingKind::Media;
        if (mapping.call == 0) {
            survey.add(mapping.owner);
        }
        survey.add({mapping.number,
                    media ? mapping.call : 0,
                    mapping.protocol(),
                    mapping.inside,
                    mapping.publicEndpoint,
                    static_cast<uint8_t>(mapping.ports()),
                    {mapping.leaves[0], mapping.leaves[1]},
                    mapping.fresh && media});
    }
    return survey;
}

LiveSeconds LiveMappings::idleLimit(const LiveMapping& mapping, const FlowSurvey& survey) const {
    if (mapping.over) {
        return config_.registrationIdle; // takeOver's
    }
    if (mapping.kind == MappingKind::Ras) {
        return mapping.answered ? config_.registrationIdle : unansweredHold;
    }
    // In the full scope the module tells when a signalling or H.245 endpoint is over.
    if (mapping.kind == MappingKind::Control && mapping.role != 0 && !mapping.adopted) {
        return config_.registrationIdle;
    }
    const bool callOpen = mapping.call != 0 ? !mapping.callOver : survey.isOpen(mapping.owner);
    return callOpen ? config_.callIdle : config_.mediaIdle;
}

void LiveMappings::close(Iterator mapping, Swept& swept) {
    const auto forwards = forwardsOf(*mapping);
    swept.forwards.insert(swept.forwards.end(), forwards.begin(), forwards.end());
    release(mapping);
    swept.ended.splice(swept.ended.end(), mappings_, mapping);
}

// Both lists are in the order of the numbers. A mapping that was opened since was not asked for.
LiveMappings::Swept LiveMappings::sweep(const FlowSurvey& survey, LiveSeconds now) {
    for (const auto& [protocol, port] : usedByMachine_) {
        allocator(protocol).release(port);
    }
    usedByMachine_.clear();
    Swept swept;
    swept.flows = survey.conflicts();
    auto mapping = mappings_.begin();
    for (const FlowSurvey::Use& use : survey.uses()) {
        while (mapping != mappings_.end() && mapping->number < use.number) {
            ++mapping;
        }
        if (mapping == mappings_.end() || mapping->number != use.number) {
            continue; // closed since
        }
        const auto current = mapping++;
        current->fresh = false;
        if (use.quiet) {
            current->lastUse = std::max(current->lastUse, now - *use.quiet);
            current->adopted = false; // its call goes on here
        }
        if (use.open && !current->over) {
            current->lastUse = now;
        }
        if (now - current->lastUse <= idleLimit(*current, survey)) {
            continue;
        }
        // A connection that runs ends by itself; media must not come in any more.
        if (current->kind != MappingKind::Control) {
            for (const FlowSurvey::Flow& flow : use.flows) {
                swept.flows.push_back(flow.tracked);
            }
        }
        close(current, swept);
    }
    return swept;
}

LiveMappings::Swept LiveMappings::takeOver(LiveSeconds now) {
    Swept swept;
    while (!over_.empty()) {
        if (over_.front().at > now) {
            break;
        }
        const auto found = byNumber_.find(over_.front().number);
        const bool over = found != byNumber_.end() && found->second->over &&
                          found->second->overAt == over_.front().at;
        over_.pop_front();
        if (over) {
            close(found->second, swept);
        }
    }
    return swept;
}

} // namespace gateway
