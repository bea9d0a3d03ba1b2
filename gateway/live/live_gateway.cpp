#include "gateway/live/live_gateway.h"

#include "gateway/live/nft_reader.h"
#include "gateway/live/router_ports.h"
#include "gateway/mapping_links.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

constexpr uint16_t callSignalPort = 1720;
constexpr uint16_t dataPort = 1503;      // T.120
constexpr LiveSeconds useTimeout = 3600; // of the table's set `active`

LiveSeconds secondsOf(LiveGateway::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

Milliseconds millisecondsOf(LiveGateway::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

Endpoint endpointOf(const H323Endpoint& endpoint) {
    return {endpoint.address, endpoint.port};
}

LocalId keyOf(const Endpoint& endpoint) {
    return {Protocol::Tcp, endpoint};
}

bool isFollowedRole(uint32_t role) {
    return role == H323NAT_ROLE_SIGNALLING || role == H323NAT_ROLE_H245;
}

// Call signalling and H.245 come in TPKT packets (RFC 1006): version 3, reserved 0, length.
bool beginsTpkt(std::span<const uint8_t> payload) {
    return payload.size() > 4 && payload[0] == 3 && payload[1] == 0 &&
           (payload[2] != 0 || payload[3] > 4);
}

std::span<const uint8_t> payloadOf(std::span<const uint8_t> packet, const PacketLayout& layout) {
    return packet.subspan(layout.payloadOffset, layout.payloadLength);
}

ModuleSettings moduleSettings(const LiveConfig& config, uint32_t publicAddress) {
    ModuleSettings settings;
    settings.publicAddress =
        config.advertisedAddress != 0 ? config.advertisedAddress : publicAddress;
    settings.publishedAddress = config.firstPublished();
    settings.lossless = !config.strict;
    settings.fullScope = config.scope == TranslationScope::Full;
    settings.calls = config.calls;
    return settings;
}

// "setup.h245Address: the host opened no mapping"
std::string troubleText(const ReportedMessage& message, const ReportedAddress& address) {
    const std::string path = shortPath(address.path);
    const std::string where = path.starts_with(message.name) ? path : message.name + " " + path;
    return where + ": " + leftCauseText(address.cause);
}

std::string changesText(const ReportedMessage& message) {
    std::string changes;
    for (const ReportedAddress& address : message.rewritten) {
        changes += (changes.empty() ? "" : ", ") + shortPath(address.path) + " " +
                   toText(address.from) + " -> " + toText(address.to);
    }
    return changes;
}

} // namespace

LiveGateway::LiveGateway(const LiveConfig& config, uint32_t publicAddress, uint64_t seed,
                         NetfilterTable& table, Conntrack& conntrack, EventLog& log,
                         Counters& counters)
    : config_(config), seed_(seed), table_(table), conntrack_(conntrack), log_(log),
      counters_(counters), mappings_(config, seed, isFreeOnRouter),
      module_(*this, moduleSettings(config, publicAddress), this), hold_(config.hold),
      archive_(log) {
    archive_.configure(config);
    sides_.publicAddress = publicAddress;
}

// --- Start and change

std::string LiveGateway::start(const SavedState& before, LiveSeconds now) {
    const uint32_t address = sides_.publicAddress;
    size_t adopted = mappings_.adopt(table_.readLeftover(config_.table), address, now);
    adopted += mappings_.adopt(before.forwards, address, now);
    counters_.add(Cause::mappingsAdopted, adopted);
    std::string failure = restoreTable();
    if (failure.empty()) {
        log_.info("start", {{"inside", insideText(config_)},
                            {"outside", config_.outside},
                            {"public", toText(address)},
                            {"scope", config_.scope == TranslationScope::Full ? "full" : "listed"},
                            {"queue", std::to_string(config_.queueNumber)},
                            {"queue_form", table_.queueForm()},
                            {"adopted_mappings", std::to_string(adopted)}});
    }
    return failure;
}

std::string LiveGateway::restoreTable() {
    table_.discard();
    std::string failure = table_.create(config_, sides_.publicAddress);
    if (!failure.empty() || config_.dryRun) {
        return failure;
    }
    fillTable();
    return table_.commit();
}

void LiveGateway::addPublished() {
    for (const PublishedHost& host : config_.published) {
        const Endpoint inside{host.address, callSignalPort};
        table_.add(PortForward{MappingKind::Control, host.publicPort, inside, 0});
        table_.add(elementOf(SetId::Listening, inside));
        table_.add(elementOf(SetId::Answering, host.publicPort));
    }
    if (config_.publishT120 && config_.firstPublished() != 0) {
        table_.add(
            PortForward{MappingKind::Control, dataPort, {config_.firstPublished(), dataPort}, 0});
    }
}

// Everything that its sets have to hold.
void LiveGateway::fillTable() {
    addPublished();
    for (const LiveMapping& mapping : mappings_.all()) {
        for (const PortForward& forward : LiveMappings::forwardsOf(mapping)) {
            table_.add(forward);
        }
        // Of a run before it is not known which of them are signalling.
        if (mapping.kind == MappingKind::Control &&
            (mapping.adopted || isFollowedRole(mapping.role))) {
            table_.add(elementOf(SetId::Listening, mapping.inside));
            table_.add(elementOf(SetId::Answering, mapping.publicEndpoint.port));
        }
    }
    for (const auto& [endpoint, count] : expected_) {
        table_.add(elementOf(SetId::Expected, endpoint.endpoint));
    }
}

std::string LiveGateway::reconfigure(const LiveConfig& config) {
    std::string failure = table_.refresh(config, sides_.publicAddress);
    if (!failure.empty()) {
        return failure;
    }
    const bool otherPublished =
        config.published != config_.published || config.publishT120 != config_.publishT120;
    if (config.firstPublished() != config_.firstPublished()) {
        ModuleSession::publish(config.firstPublished());
    }
    module_.setPublicAddress(moduleSettings(config, sides_.publicAddress).publicAddress);
    mappings_.configure(config);
    hold_.configure(config.hold);
    archive_.configure(config);
    config_ = config;
    if (otherPublished && !config_.dryRun) {
        failure = table_.emptySets(config_);
        fillTable();
        const std::string refused = table_.commit();
        failure = failure.empty() ? refused : failure;
    }
    return failure;
}

std::string LiveGateway::setSides(const RouterSides& sides) {
    const uint32_t before = sides_.publicAddress;
    const bool moved = sides.publicAddress != 0 && sides.publicAddress != before;
    sides_ = sides;
    if (!moved) {
        sides_.publicAddress = before;
        return {};
    }
    mappings_.setPublicAddress(before, sides.publicAddress);
    module_.setPublicAddress(moduleSettings(config_, sides.publicAddress).publicAddress);
    std::string failure = table_.refresh(config_, sides.publicAddress);
    if (failure.empty() && !config_.dryRun) {
        failure = table_.emptySets(config_);
        fillTable();
        const std::string refused = table_.commit();
        failure = failure.empty() ? refused : failure;
    }
    return failure;
}

void LiveGateway::hear(std::span<const PortForward> forwards, LiveSeconds now) {
    now_ = now;
    const auto added = mappings_.hear(forwards, sides_.publicAddress, now);
    for (const PortForward& forward : added) {
        table_.add(forward);
        if (forward.kind == MappingKind::Control) {
            table_.add(elementOf(SetId::Listening, forward.inside));
            table_.add(elementOf(SetId::Answering, forward.publicPort));
        }
    }
    counters_.add(Cause::mappingsAdopted, added.size());
    commit();
}

SavedState LiveGateway::state() const {
    return {seed_, mappings_.allForwards()};
}

// --- Packets

void LiveGateway::handle(const QueuedPacket& packet, PacketQueue& queue,
                         Clock::time_point arrived) {
    now_ = secondsOf(arrived);
    Parcel parcel{packet.octets, {}, Side::Inside, false};
    const PacketKind kind = classifyPacket(packet.octets, parcel.layout);
    const bool inside = sides_.inside.contains(packet.arrivedOn);
    if ((!inside && packet.arrivedOn != sides_.outside) ||
        (kind != PacketKind::Tcp && kind != PacketKind::Udp)) {
        counters_.add(kind == PacketKind::Malformed || kind == PacketKind::Truncated
                          ? Cause::packetsMalformed
                          : Cause::packetsUnseen);
        give(packet.id, parcel, queue, arrived, counters_.delay);
        return;
    }
    parcel.side = inside ? Side::Inside : Side::Outside;
    if (kind == PacketKind::Tcp && !introduce(parcel)) {
        give(packet.id, parcel, queue, arrived, counters_.delay);
        return;
    }
    if (kind == PacketKind::Tcp && config_.scope == TranslationScope::Full && !config_.dryRun) {
        const FlowId flow{Protocol::Tcp, sourceOf(packet.octets, parcel.layout),
                          destinationOf(packet.octets, parcel.layout)};
        ReleasedSegments released;
        switch (hold_.take(flow, packet.octets, parcel.layout, packet.id, millisecondsOf(arrived),
                           released)) {
        case SegmentHold::Decision::Pass:
            break;
        case SegmentHold::Decision::Drop:
            counters_.add(Cause::segmentsRepeated);
            counters_.add(Cause::verdictErrors, queue.drop(packet.id) ? 0 : 1);
            return;
        case SegmentHold::Decision::Held:
            counters_.add(Cause::segmentsHeld);
            waiting_.insert_or_assign(packet.id, Waiting{parcel.side, arrived});
            return;
        case SegmentHold::Decision::Release:
            waiting_.insert_or_assign(packet.id, Waiting{parcel.side, arrived});
            release(released, queue);
            return;
        }
    }
    show(parcel);
    give(packet.id, parcel, queue, arrived, counters_.delay);
    report(now_);
}

// The verdict. A packet that did not change goes on as the kernel has it.
void LiveGateway::give(uint32_t id, const Parcel& parcel, PacketQueue& queue,
                       Clock::time_point arrived, DelayHistogram& delay) {
    const bool replace = parcel.changed && !config_.dryRun;
    if (!queue.accept(id, replace ? parcel.packet : std::span<uint8_t>())) {
        counters_.add(Cause::verdictErrors);
    }
    const auto stayed = Clock::now() - arrived;
    delay.add(static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(stayed).count()));
}

void LiveGateway::release(ReleasedSegments& released, PacketQueue& queue) {
    std::vector<bool> changed(released.segments.size(), false);
    const auto waitingOf = [this](const HeldSegment& segment) {
        return waiting_.at(static_cast<uint32_t>(segment.token));
    };
    if (released.joint) {
        std::vector<uint8_t> octets = joinSegments(released.segments);
        Parcel joint{octets, {}, waitingOf(released.segments.front()).side, false};
        if (classifyPacket(octets, joint.layout) == PacketKind::Tcp) {
            show(joint);
        }
        if (joint.changed) {
            changed = splitJoint(octets, released.segments);
        }
    }
    for (size_t i = 0; i < released.segments.size(); ++i) {
        HeldSegment& segment = released.segments[i];
        const Waiting waiting = waitingOf(segment);
        Parcel parcel{segment.packet, segment.layout, waiting.side, changed[i]};
        if (!released.joint) {
            show(parcel);
        } else if (parcel.changed) {
            recomputeChecksums(parcel.packet, parcel.layout);
        }
        waiting_.erase(static_cast<uint32_t>(segment.token));
        give(static_cast<uint32_t>(segment.token), parcel, queue, waiting.arrived, counters_.hold);
    }
    const HoldCounts& counts = hold_.counts();
    counters_.set(Cause::segmentsHeldInVain, counts.late + counts.crowded + counts.broken);
    report(now_);
}

void LiveGateway::releaseHeld(PacketQueue& queue, Clock::time_point now) {
    now_ = secondsOf(now);
    ReleasedSegments released;
    while (hold_.expire(millisecondsOf(now), false, released)) {
        log_.info("held-in-vain", {{"from", toText(sourceOf(released.segments.front().packet,
                                                            released.segments.front().layout))},
                                   {"to", toText(destinationOf(released.segments.front().packet,
                                                               released.segments.front().layout))},
                                   {"segments", std::to_string(released.segments.size())}});
        release(released, queue);
        released = {};
    }
}

LiveGateway::Clock::time_point LiveGateway::nextRelease() const {
    const Milliseconds next = hold_.nextExpiry();
    return next < 0 ? Clock::time_point::max()
                    : Clock::time_point(std::chrono::milliseconds(next + 1));
}

void LiveGateway::show(Parcel& parcel) {
    if (log_.isDebug()) {
        log_.debug("packet", {{"side", parcel.side == Side::Inside ? "inside" : "outside"},
                              {"from", toText(sourceOf(parcel.packet, parcel.layout))},
                              {"to", toText(destinationOf(parcel.packet, parcel.layout))},
                              {"octets", std::to_string(parcel.layout.payloadLength)}});
    }
    archive_.notePacket(parcel.packet);
    if (parcel.side == Side::Inside) {
        showSent(parcel);
    } else {
        showReceived(parcel);
    }
    // What was announced must be reachable before the message goes on.
    if (!commit()) {
        parcel.changed = false;
    }
    if (parcel.changed) {
        recomputeChecksums(parcel.packet, parcel.layout);
        counters_.add(Cause::packetsRewritten);
    }
}

void LiveGateway::showSent(Parcel& parcel) {
    counters_.add(Cause::packetsSent);
    sentFlow_ = {parcel.layout.protocol, sourceOf(parcel.packet, parcel.layout),
                 destinationOf(parcel.packet, parcel.layout)};
    if (parcel.layout.protocol == Protocol::Udp) {
        if (LiveMapping* const mapping = mappings_.findInside(MappingKind::Ras, sentFlow_.local)) {
            mapping->lastUse = now_;
        }
    }
    parcel.changed = module_.send(parcel.packet, parcel.layout);
}

// The module knows the public address that messages carry.
void LiveGateway::showReceived(Parcel& parcel) {
    counters_.add(Cause::packetsReceived);
    receivedAt_ = destinationOf(parcel.packet, parcel.layout);
    const Endpoint meant = parcel.layout.protocol == Protocol::Udp
                               ? rasEndpoint(sourceOf(parcel.packet, parcel.layout))
                               : receivedAt_;
    writeDestination(parcel.packet, parcel.layout, {advertised(meant.address), meant.port});
    parcel.changed = module_.receive(parcel.packet, parcel.layout);
    writeDestination(parcel.packet, parcel.layout, receivedAt_);
}

// A flow that is older than its mapping comes back to the port that it left from: the module knows
// the mapping's.
Endpoint LiveGateway::rasEndpoint(const Endpoint& gatekeeper) {
    if (mappings_.findPublic(Protocol::Udp, receivedAt_.port) != nullptr) {
        return receivedAt_;
    }
    const auto flow = conntrack_.find(Protocol::Udp, gatekeeper, receivedAt_);
    const LiveMapping* const mapping =
        flow ? mappings_.findInside(MappingKind::Ras,
                                    viewsOf(*flow, flow->originalSource != gatekeeper).inside)
             : nullptr;
    return mapping == nullptr ? receivedAt_ : mapping->publicEndpoint;
}

bool LiveGateway::commit() {
    close(mappings_.takeOver(now_));
    unwatchDue();
    if (config_.dryRun) {
        table_.discard();
    }
    const std::string failure = table_.commit();
    if (!failure.empty()) {
        log_.warning("nftables", {{"failure", failure}});
        withdrawOpened();
    }
    opened_.clear();
    return failure.empty();
}

// The kernel has none of the changes of this packet, so it goes out as it came.
void LiveGateway::withdrawOpened() {
    counters_.add(Cause::refusedKernel, opened_.size());
    for (const uint64_t number : opened_) {
        mappings_.withdraw(number);
    }
    calls_.noteTrouble(call_, "nftables refused the mappings");
}

// --- Connections whose beginning the module has not seen

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
    if (insideView.remote.port != callSignalPort && !expected_.contains(keyOf(insideView.remote))) {
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
                           : KnownConnection{Acquaintance::Introduced, {}});
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
    KnownConnection* const known = known_.find(insideView);
    if (known != nullptr && known->acquaintance == Acquaintance::Introduced) {
        return true;
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
    known->acquaintance = Acquaintance::Introduced;
    introduceAccepted(insideView, first, *publicEndpoint);
    return true;
}

void LiveGateway::introduceAccepted(const FlowId& insideView, const FirstSequences& first,
                                    const Endpoint& publicEndpoint) {
    PacketLayout layout;
    const Endpoint told{advertised(publicEndpoint.address), publicEndpoint.port};
    auto syn = emptySegment(insideView.remote, told, tcpSyn, first.received - 1, 0);
    classifyPacket(syn, layout);
    module_.receive(syn, layout);
    auto answer = emptySegment(insideView.local, insideView.remote, tcpSyn | tcpAck, first.sent - 1,
                               first.received);
    classifyPacket(answer, layout);
    module_.send(answer, layout);
    hold_.begin(insideView, first.sent);
    hold_.begin({Protocol::Tcp, insideView.remote, publicEndpoint}, first.received);
}

// A connection that was there before: it is followed from the first packet that begins with a
// message. Its other direction is taken to stand between messages too.
bool LiveGateway::adopt(const Parcel& parcel, const FlowId& insideView,
                        const Endpoint& publicEndpoint, bool accepted) {
    const bool sent = parcel.side == Side::Inside;
    if (!beginsTpkt(payloadOf(parcel.packet, parcel.layout))) {
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
    if (accepted) {
        introduceAccepted(insideView, first, publicEndpoint);
        return true;
    }
    PacketLayout layout;
    auto syn = emptySegment(insideView.local, insideView.remote, tcpSyn, first.sent - 1, 0);
    classifyPacket(syn, layout);
    module_.send(syn, layout);
    receivedAt_ = publicEndpoint;
    auto answer =
        emptySegment(insideView.remote, {advertised(publicEndpoint.address), publicEndpoint.port},
                     tcpSyn | tcpAck, first.received - 1, first.sent);
    classifyPacket(answer, layout);
    module_.receive(answer, layout);
    hold_.begin(insideView, first.sent);
    hold_.begin({Protocol::Tcp, insideView.remote, publicEndpoint}, first.received);
    return true;
}

// --- What the module asks

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
    if (const auto listener = listenerAt(publicEndpoint.port)) {
        return recordOf({Protocol::Tcp, *listener, remote});
    }
    const auto flow =
        conntrack_.find(Protocol::Tcp, remote, {receivedAt_.address, publicEndpoint.port});
    if (!flow) {
        return nullptr;
    }
    const bool startedInside = flow->originalSource != remote;
    const FlowViews views = viewsOf(*flow, startedInside);
    return recordOf({Protocol::Tcp, views.inside, views.remote});
}

// --- What the module tells

void LiveGateway::onMessage(const H323ObservedMessage& message) {
    call_ = message.call;
    messages_.onMessage(message);
    const std::string_view name(reinterpret_cast<const char*>(message.name.data),
                                message.name.length);
    if (message.direction == H323NAT_RECEIVED &&
        (name == "gatekeeperConfirm" || name == "registrationConfirm")) {
        LiveMapping* const mapping = mappings_.findPublic(Protocol::Udp, message.inside.port);
        if (mapping != nullptr && mapping->kind == MappingKind::Ras &&
            mapping->owner.remote.address == message.outside.address) {
            mapping->answered = true;
        }
    }
}

void LiveGateway::onRewritten(const H323ObservedAddress& address) {
    messages_.onRewritten(address);
}

void LiveGateway::onLeft(const H323ObservedAddress& address) {
    messages_.onLeft(address);
}

void LiveGateway::onCallBegan(const H323ObservedCall& told) {
    const LiveCall& call = calls_.begin(told, now_);
    begun_.push_back(call.number);
    counters_.add(Cause::callsStarted);
    log_.info("call-start", {{"call", std::to_string(call.number)},
                             {"direction", call.inbound ? "in" : "out"},
                             {"inside", toText(call.inside)},
                             {"remote", toText(call.remote)},
                             {"from", call.calling},
                             {"to", call.called}});
}

void LiveGateway::onCallEnded(const H323ObservedCall& told) {
    mappings_.endCall(told.call, now_);
    const LiveCall* const call = calls_.end(told, now_);
    if (call == nullptr) {
        return;
    }
    over_.push_back(told.call);
    wantsSweep_ = true;
    counters_.add(Cause::callsEnded);
    log_.info("call-end", {{"call", std::to_string(call->number)},
                           {"direction", call->inbound ? "in" : "out"},
                           {"inside", toText(call->inside)},
                           {"remote", toText(call->remote)},
                           {"seconds", std::to_string(now_ - call->started)},
                           {"end", endName(call->end)},
                           {"cause", std::to_string(call->cause)},
                           {"verdict", call->verdict()}});
}

void LiveGateway::watch(SetId set, const Endpoint& endpoint) {
    auto& counts = set == SetId::Expected ? expected_ : listening_;
    if (++counts[keyOf(endpoint)] == 1) {
        table_.add(elementOf(set, endpoint));
    }
}

void LiveGateway::unwatch(SetId set, const Endpoint& endpoint) {
    auto& counts = set == SetId::Expected ? expected_ : listening_;
    const auto found = counts.find(keyOf(endpoint));
    if (found != counts.end() && --found->second == 0) {
        counts.erase(found);
        table_.remove(elementOf(set, endpoint));
    }
}

void LiveGateway::unwatchDue() {
    while (!unexpected_.empty() && unexpected_.front().first <= now_) {
        unwatch(SetId::Expected, unexpected_.front().second);
        unexpected_.pop_front();
    }
}

void LiveGateway::onAnnounced(const H323ObservedConnection& connection) {
    messages_.onAnnounced(connection);
    if (connection.protocol != static_cast<uint32_t>(Protocol::Tcp)) {
        return;
    }
    const Endpoint publicEndpoint = endpointOf(connection.publicEndpoint);
    if (publicEndpoint.port == 0) {
        if (connection.outside.port != 0 && isFollowedRole(connection.role)) {
            watch(SetId::Expected, endpointOf(connection.outside));
        }
        return;
    }
    LiveMapping* const mapping = mappings_.findPublic(Protocol::Tcp, publicEndpoint.port);
    if (mapping == nullptr) {
        return; // published: its elements stay
    }
    mapping->role = connection.role;
    if (isFollowedRole(connection.role)) {
        watch(SetId::Listening, mapping->inside);
        table_.add(elementOf(SetId::Answering, publicEndpoint.port));
    }
}

void LiveGateway::onOver(const H323ObservedConnection& connection) {
    messages_.onOver(connection);
    const Endpoint publicEndpoint = endpointOf(connection.publicEndpoint);
    const auto protocol = static_cast<Protocol>(connection.protocol);
    if (publicEndpoint.port == 0) {
        if (protocol == Protocol::Tcp && connection.outside.port != 0 &&
            isFollowedRole(connection.role)) {
            unexpected_.emplace_back(now_ + overLinger, endpointOf(connection.outside));
        }
        return;
    }
    mappings_.markOver(protocol, publicEndpoint.port, now_);
}

// --- Reports, when the packet is on its way already

void LiveGateway::report(LiveSeconds now) {
    for (const uint64_t number : std::exchange(begun_, {})) {
        const auto call = calls_.running().find(number);
        if (call != calls_.running().end()) {
            checkTranslated(call->second);
        }
    }
    for (const ReportedMessage& message : messages_.takeMessages()) {
        calls_.note(message, now);
        reportMessage(message);
    }
    for (const uint64_t number : std::exchange(over_, {})) {
        if (const LiveCall* const call = calls_.find(number)) {
            archive_.end(*call);
        }
    }
    call_ = 0;
}

void LiveGateway::noteMapping(MappingRequest::Kind kind, const Endpoint& inside,
                              const Endpoint& publicEndpoint, bool reused) {
    if (archive_.keeps() && !reused) {
        archive_.noteMapping(
            call_, {LiveArchive::wallClock(), {kind, inside, publicEndpoint, 0, true, reused}});
    }
}

void LiveGateway::reportMessage(const ReportedMessage& message) {
    const bool repeated = (message.flags & H323NAT_MESSAGE_REPEATED) != 0;
    const bool sent = message.direction == H323NAT_SENT;
    counters_.add(repeated ? Cause::messagesRepeated : Cause::messagesSeen);
    if ((message.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) != 0) {
        counters_.add(Cause::messagesUndecodable);
        log_.stranger("undecodable", {{"direction", sent ? "sent" : "received"},
                                      {"message", message.name},
                                      {"inside", toText(message.inside)},
                                      {"remote", toText(message.outside)}});
    }
    if (!message.rewritten.empty()) {
        counters_.add(Cause::messagesRewritten);
        if ((message.flags & H323NAT_MESSAGE_SIGNED) != 0) {
            counters_.add(Cause::messagesSigned);
        }
        log_.info("rewrite", {{"direction", sent ? "sent" : "received"},
                              {"message", message.name},
                              {"inside", toText(message.inside)},
                              {"remote", toText(message.outside)},
                              {"changes", changesText(message)}});
    }
    std::vector<ReportedAddress> remaining;
    if (sent) {
        remaining = addressesRemaining(message, Network{message.inside.address, 32});
    }
    archive_.noteMessage(message, remaining, calls_.find(message.call));
    for (const ReportedAddress& address : remaining) {
        counters_.add(Cause::addressesLeft);
        calls_.noteTrouble(message.call, troubleText(message, address));
        log_.info("address-left", {{"message", message.name},
                                   {"inside", toText(message.inside)},
                                   {"remote", toText(message.outside)},
                                   {"path", shortPath(address.path)},
                                   {"address", toText(address.from)},
                                   {"cause", leftCauseName(address.cause)}});
    }
}

void LiveGateway::checkTranslated(const LiveCall& call) {
    const auto flow = conntrack_.find(Protocol::Tcp, call.inside, call.remote);
    if (!flow) {
        return;
    }
    const FlowViews views = viewsOf(*flow, !call.inbound);
    if (!call.inbound && views.outside.address == call.inside.address) {
        counters_.add(Cause::callsUntranslated);
        calls_.noteTrouble(call.number, "no rule of the machine translates it");
        log_.warning("call-untranslated",
                     {{"inside", toText(call.inside)},
                      {"leaves_from", toText(views.outside)},
                      {"hint", "no rule gives this connection the public address " +
                                   toText(sides_.publicAddress) +
                                   "; set masquerade = yes or add such a rule"}});
    }
    if (views.hasHelper) {
        counters_.add(Cause::helperSeen);
        calls_.noteTrouble(call.number, "the kernel's own helper works on it as well");
        log_.warning("kernel-helper",
                     {{"inside", toText(call.inside)},
                      {"hint", "the kernel's nf_conntrack_h323 works on this call as well; remove "
                               "the rule that assigns it, or unload the module"}});
    }
}

// --- Ends

void LiveGateway::close(const LiveMappings::Swept& swept) {
    for (const PortForward& forward : swept.forwards) {
        table_.remove(forward);
    }
    for (const LiveMapping& mapping : swept.ended) {
        if (mapping.kind == MappingKind::Control) {
            table_.remove(elementOf(SetId::Listening, mapping.inside));
            table_.remove(elementOf(SetId::Answering, mapping.publicEndpoint.port));
            listening_.erase(keyOf(mapping.inside));
        }
        counters_.add(Cause::mappingsEnded);
        log_.info("mapping-end", {{"kind", nameOf(mapping.kind)},
                                  {"inside", toText(mapping.inside)},
                                  {"public", toText(mapping.publicEndpoint)},
                                  {"seconds", std::to_string(now_ - mapping.opened)}});
    }
    for (const TrackedFlow& flow : swept.flows) {
        if (!config_.dryRun && conntrack_.remove(flow)) {
            counters_.add(Cause::flowsRemoved);
        }
    }
}

void LiveGateway::sweep(const FlowSurvey& survey, LiveSeconds now) {
    now_ = now;
    wantsSweep_ = false;
    close(mappings_.sweep(survey, readUses(config_.table, "active", useTimeout), now));
    commit();
    records_.sweep([&](const FlowId& flow) { return survey.isOpen(flow); }, now_);
    archive_.update(calls_);
}

FlowSurvey LiveGateway::survey() const {
    FlowSurvey survey = mappings_.survey();
    records_.forEach([&](const FlowId& flow) { survey.addOwner(flow); });
    return survey;
}

} // namespace gateway
