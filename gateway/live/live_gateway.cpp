#include "gateway/live/live_gateway.h"

#include "gateway/mapping_links.h"

#include <algorithm>
#include <chrono>

namespace gateway {
namespace {

constexpr uint16_t callSignalPort = 1720;
constexpr size_t maxCalls = 4096;
constexpr size_t maxControlConnections = 4096;

FlowId insideViewOf(const FlowViews& views) {
    return {Protocol::Tcp, views.inside, views.remote};
}

// Call signalling and H.245 come in TPKT packets (RFC 1006): version 3, reserved 0, length. The
// first payload of a connection may hold only the beginning of that header.
bool beginsTpkt(std::span<const uint8_t> payload) {
    static constexpr uint8_t beginning[] = {3, 0};
    const size_t compared = std::min(payload.size(), std::size(beginning));
    return std::equal(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(compared),
                      beginning);
}

ModuleSettings moduleSettings(const LiveConfig& config, uint32_t publicAddress) {
    ModuleSettings settings;
    settings.publicAddress = publicAddress;
    settings.publishedAddress = config.publishedHost;
    settings.lossless = !config.strict;
    return settings;
}

void chooseRewriting(const LiveConfig& config) {
    H323SetRewriteMode(config.strict ? H323NAT_REWRITE_ENCODED : H323NAT_REWRITE_LOSSLESS);
}

} // namespace

LiveGateway::LiveGateway(const LiveConfig& config, uint32_t publicAddress, NetfilterTable& table,
                         Conntrack& conntrack, EventLog& log, Counters& counters)
    : config_(config), publicAddress_(publicAddress), table_(table), conntrack_(conntrack),
      log_(log), counters_(counters), mappings_(config),
      module_(*this, moduleSettings(config, publicAddress)) {
    chooseRewriting(config);
}

std::string LiveGateway::start(LiveSeconds now) {
    const size_t adopted = mappings_.adopt(table_.readLeftover(), now);
    counters_.add(Cause::mappingsAdopted, adopted);
    std::string failure = table_.create(config_, publicAddress_, mappings_.allForwards());
    if (failure.empty()) {
        log_.info("start", {{"inside", config_.inside},
                            {"outside", config_.outside},
                            {"public", toText(publicAddress_)},
                            {"queue", std::to_string(config_.queueNumber)},
                            {"queue_form", table_.queueForm()},
                            {"adopted_mappings", std::to_string(adopted)}});
    }
    return failure;
}

void LiveGateway::setInterfaces(uint32_t inside, uint32_t outside) {
    insideIndex_ = inside;
    outsideIndex_ = outside;
}

std::string LiveGateway::reconfigure(const LiveConfig& config, uint32_t publicAddress) {
    std::string failure = table_.refresh(config, publicAddress, mappings_.allForwards());
    if (!failure.empty()) {
        return failure;
    }
    if (config.publishedHost != config_.publishedHost) {
        ModuleSession::publish(config.publishedHost);
    }
    module_.setPublicAddress(publicAddress);
    chooseRewriting(config);
    mappings_.configure(config);
    config_ = config;
    publicAddress_ = publicAddress;
    return {};
}

void LiveGateway::handle(const QueuedPacket& packet, PacketQueue& queue, LiveSeconds now) {
    const auto arrived = std::chrono::steady_clock::now();
    now_ = now;
    const Side side = packet.arrivedOn == insideIndex_ ? Side::Inside : Side::Outside;
    Shown shown;
    if (side == Side::Inside || packet.arrivedOn == outsideIndex_) {
        shown = show(packet.octets, side);
    } else {
        counters_.add(Cause::packetsUnseen);
    }
    const bool replace = shown.changed && !config_.dryRun;
    if (!queue.accept(packet.id, replace ? packet.octets : std::span<uint8_t>())) {
        counters_.add(Cause::verdictErrors);
    }
    const auto stayed = std::chrono::steady_clock::now() - arrived;
    counters_.delay.add(static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(stayed).count()));
    if (shown.reported) {
        report(packet.octets, side, shown);
    }
}

LiveGateway::Shown LiveGateway::show(std::span<uint8_t> octets, Side side) {
    Shown shown;
    PacketLayout& layout = shown.layout;
    const PacketKind kind = classifyPacket(octets, layout);
    if (kind != PacketKind::Tcp && kind != PacketKind::Udp) {
        counters_.add(kind == PacketKind::Malformed || kind == PacketKind::Truncated
                          ? Cause::packetsMalformed
                          : Cause::packetsUnseen);
        return shown;
    }
    if (log_.isDebug()) {
        log_.debug("packet", {{"side", side == Side::Inside ? "inside" : "outside"},
                              {"from", toText(sourceOf(octets, layout))},
                              {"to", toText(destinationOf(octets, layout))},
                              {"octets", std::to_string(layout.payloadLength)}});
    }
    prepareReport(octets, side, shown);
    if (side == Side::Outside) {
        counters_.add(Cause::packetsReceived);
        followCall(octets, layout, side);
        shown.changed = module_.receive(octets, layout);
    } else {
        counters_.add(Cause::packetsSent);
        sentFlow_ = {layout.protocol, sourceOf(octets, layout), destinationOf(octets, layout)};
        shown.changed = module_.send(octets, layout);
        followCall(octets, layout, side);
        leaveForeign(octets, layout);
    }
    if (shown.changed) {
        recomputeChecksums(octets, layout);
        counters_.add(Cause::packetsRewritten);
    }
    return shown;
}

std::optional<FlowId> LiveGateway::insideViewOfPacket(std::span<const uint8_t> octets,
                                                      const PacketLayout& layout, Side side) {
    const Endpoint source = sourceOf(octets, layout);
    const Endpoint destination = destinationOf(octets, layout);
    if (side == Side::Inside) {
        return FlowId{layout.protocol, source, destination};
    }
    const auto flow = conntrack_.find(layout.protocol, source, destination);
    if (!flow) {
        return std::nullopt;
    }
    const FlowViews views = viewsOf(*flow, flow->originalSource != source);
    return FlowId{layout.protocol, views.inside, views.remote};
}

void LiveGateway::prepareReport(std::span<const uint8_t> octets, Side side, Shown& shown) {
    const bool opens =
        shown.layout.protocol == Protocol::Tcp && (tcpFlags(octets, shown.layout) & tcpSyn) != 0;
    if (shown.layout.payloadLength == 0 && !opens) {
        return;
    }
    const auto view = insideViewOfPacket(octets, shown.layout, side);
    if (!view || !messages_.mayCarryMessages(*view)) {
        return;
    }
    const auto payload = octets.subspan(shown.layout.payloadOffset, shown.layout.payloadLength);
    before_.assign(payload.begin(), payload.end());
    shown.insideView = *view;
    shown.reported = true;
}

// Decoding for the log and the counters happens when the packet is on its way already.
void LiveGateway::report(std::span<const uint8_t> octets, Side side, const Shown& shown) {
    const PacketLayout& layout = shown.layout;
    ObservedPayload payload;
    payload.direction = side == Side::Inside ? Direction::Sent : Direction::Received;
    payload.insideView = shown.insideView;
    if (layout.protocol == Protocol::Tcp) {
        payload.sequence = sequenceNumber(octets, layout);
        payload.tcpFlags = tcpFlags(octets, layout);
    }
    payload.before = before_;
    payload.after = octets.subspan(layout.payloadOffset, layout.payloadLength);
    for (const ObservedMessage& message : messages_.observe(payload)) {
        counters_.add(message.repeated ? Cause::messagesRepeated : Cause::messagesSeen);
        if (!message.description.decoded) {
            counters_.add(Cause::messagesUndecodable);
            log_.info("undecodable", {{"inside", toText(shown.insideView.local)},
                                      {"remote", toText(shown.insideView.remote)}});
        }
        if (message.rewritten) {
            counters_.add(Cause::messagesRewritten);
            logRewrite(message, shown.insideView, side);
        }
    }
}

void LiveGateway::logRewrite(const ObservedMessage& message, const FlowId& insideView, Side side) {
    std::string changes;
    for (const AddressChange& change : message.changes) {
        changes += (changes.empty() ? "" : ", ") + change.field + " " + toText(change.from) +
                   " -> " + toText(change.to);
    }
    log_.info("rewrite", {{"direction", side == Side::Inside ? "sent" : "received"},
                          {"message", message.description.name},
                          {"inside", toText(insideView.local)},
                          {"remote", toText(insideView.remote)},
                          {"changes", changes}});
}

// The connections of a private host with a call are shown to the module because one of them may be
// H.245. One whose first payload is something else goes back to the kernel's own care.
void LiveGateway::leaveForeign(std::span<const uint8_t> octets, const PacketLayout& layout) {
    const bool judged = layout.protocol == Protocol::Tcp && layout.payloadLength != 0 &&
                        config_.queueScope == QueueScope::H323 &&
                        sentFlow_.local.port != callSignalPort &&
                        sentFlow_.remote.port != callSignalPort;
    if (!judged || control_.contains(sentFlow_)) {
        return;
    }
    if (beginsTpkt(octets.subspan(layout.payloadOffset, layout.payloadLength))) {
        if (control_.size() < maxControlConnections) {
            control_.insert(sentFlow_);
        }
        return;
    }
    counters_.add(Cause::foreignConnections);
    table_.leaveToKernel(sentFlow_.local, sentFlow_.remote);
}

void LiveGateway::followCall(std::span<const uint8_t> octets, const PacketLayout& layout,
                             Side side) {
    if (layout.protocol != Protocol::Tcp) {
        return;
    }
    const Endpoint source = sourceOf(octets, layout);
    const Endpoint destination = destinationOf(octets, layout);
    const uint8_t flags = tcpFlags(octets, layout);
    const bool accepted =
        source.port == callSignalPort && (flags & tcpSyn) != 0 && (flags & tcpAck) != 0;
    const bool ended = (source.port == callSignalPort || destination.port == callSignalPort) &&
                       (flags & (tcpFin | tcpReset)) != 0;
    // A call that is older than the gateway, or whose answers nobody translates and so nobody saw.
    const bool unknown = side == Side::Inside && destination.port == callSignalPort &&
                         layout.payloadLength != 0 && !ended &&
                         !calls_.contains({Protocol::Tcp, source, destination});
    if (!accepted && !ended && !unknown) {
        return;
    }
    const auto flow = conntrack_.find(Protocol::Tcp, source, destination);
    if (!flow) {
        return;
    }
    const bool towardsOriginal = flow->originalSource == source;
    const FlowViews views = viewsOf(*flow, (side == Side::Inside) == towardsOriginal);
    if (ended) {
        endCall(insideViewOf(views));
    } else {
        startCall(insideViewOf(views), accepted && side == Side::Inside, views);
    }
}

void LiveGateway::startCall(const FlowId& flow, bool inbound, const FlowViews& views) {
    if (calls_.size() >= maxCalls || !calls_.emplace(flow, LiveCall{flow, inbound, now_}).second) {
        return;
    }
    counters_.add(Cause::callsStarted);
    log_.info("call-start", {{"direction", inbound ? "in" : "out"},
                             {"inside", toText(flow.local)},
                             {"public", toText(views.outside)},
                             {"remote", toText(flow.remote)}});
    if (views.outside.address != publicAddress_) {
        counters_.add(Cause::callsUntranslated);
        log_.warning(
            "call-untranslated",
            {{"inside", toText(flow.local)},
             {"leaves_from", toText(views.outside)},
             {"hint", "no rule gives this connection the public address " + toText(publicAddress_) +
                          "; set masquerade = yes or add such a rule"}});
    }
    if (views.hasHelper) {
        counters_.add(Cause::helperSeen);
        log_.warning("kernel-helper",
                     {{"inside", toText(flow.local)},
                      {"hint", "the kernel's nf_conntrack_h323 works on this call as well; remove "
                               "the rule that assigns it, or unload the module"}});
    }
}

void LiveGateway::endCall(const FlowId& flow) {
    const auto found = calls_.find(flow);
    if (found == calls_.end()) {
        return;
    }
    counters_.add(Cause::callsEnded);
    log_.info("call-end", {{"direction", found->second.inbound ? "in" : "out"},
                           {"inside", toText(flow.local)},
                           {"remote", toText(flow.remote)},
                           {"seconds", std::to_string(now_ - found->second.started)}});
    calls_.erase(found);
}

void LiveGateway::refuse(Cause cause, MappingKind kind, const Endpoint& inside,
                         uint32_t remoteAddress) {
    counters_.add(cause);
    log_.info("mapping-refused", {{"kind", nameOf(kind)},
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
    const auto opened = mappings_.open(kind, inside, remoteAddress, sentFlow_, now_);
    reused = opened.reused;
    if (opened.mapping == nullptr) {
        refuse(opened.refusal, kind, inside, remoteAddress);
        return nullptr;
    }
    if (opened.reused) {
        counters_.add(Cause::mappingsReused);
        return opened.mapping;
    }
    const std::string failure =
        config_.dryRun
            ? ""
            : table_.addForwards(publicAddress_, LiveMappings::forwardsOf(*opened.mapping));
    if (!failure.empty()) {
        log_.warning("nftables", {{"failure", failure}});
        mappings_.withdraw(*opened.mapping);
        refuse(Cause::refusedKernel, kind, inside, remoteAddress);
        return nullptr;
    }
    counters_.add(Cause::mappingsOpened);
    wantsSweep_ = true;
    log_.info("mapping-open",
              {{"kind", nameOf(kind)},
               {"inside", toText(inside)},
               {"public", toText(Endpoint{publicAddress_, opened.mapping->publicPort})},
               {"remote", toText(remoteAddress)}});
    return opened.mapping;
}

MediaMapping LiveGateway::openMedia(const Endpoint& inside, uint32_t remoteAddress) {
    const auto kind = sentFlow_.protocol == Protocol::Udp ? MappingKind::Ras : MappingKind::Media;
    MediaMapping answer;
    answer.publicEndpoint = inside;
    LiveMapping* mapping = openMapping(kind, inside, remoteAddress, answer.reused);
    if (mapping == nullptr) {
        return answer;
    }
    answer.granted = true;
    answer.publicEndpoint = {publicAddress_, mapping->publicPort};
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
    const LiveMapping* mapping =
        openMapping(MappingKind::Control, inside, remoteAddress, answer.reused);
    if (mapping == nullptr) {
        return std::nullopt;
    }
    answer.publicEndpoint = {publicAddress_, mapping->publicPort};
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
    const auto flow = conntrack_.find(Protocol::Tcp, remote, publicEndpoint);
    if (!flow) {
        return nullptr;
    }
    const bool startedInside = flow->originalSource != remote;
    return recordOf(insideViewOf(viewsOf(*flow, startedInside)));
}

void LiveGateway::sweep(LiveSeconds now) {
    now_ = now;
    wantsSweep_ = false;
    std::vector<TrackedFlow> flows;
    if (!conntrack_.list(flows)) {
        return;
    }
    const LiveMappings::Swept swept = mappings_.sweep(flows, publicAddress_, now);
    if (!config_.dryRun && !swept.forwards.empty()) {
        table_.removeForwards(swept.forwards);
    }
    for (const TrackedFlow& flow : swept.flows) {
        if (!config_.dryRun && conntrack_.remove(flow)) {
            counters_.add(Cause::flowsRemoved);
        }
    }
    for (const LiveMapping& mapping : swept.ended) {
        counters_.add(Cause::mappingsEnded);
        log_.info("mapping-end", {{"kind", nameOf(mapping.kind)},
                                  {"inside", toText(mapping.inside)},
                                  {"public", toText(Endpoint{publicAddress_, mapping.publicPort})},
                                  {"seconds", std::to_string(now - mapping.opened)}});
    }
    forgetClosed(flows);
}

void LiveGateway::forgetClosed(std::span<const TrackedFlow> flows) {
    std::unordered_set<FlowId, FlowIdHash> open;
    for (const TrackedFlow& flow : flows) {
        if (flow.tcpOpen) {
            open.insert(insideViewOf(viewsOf(flow, true)));
            open.insert(insideViewOf(viewsOf(flow, false)));
        }
    }
    const auto isOpen = [&](const FlowId& flow) { return open.contains(flow); };
    records_.sweep(isOpen, now_);
    std::erase_if(control_, [&](const FlowId& flow) { return !isOpen(flow); });
    std::vector<FlowId> over;
    for (const auto& [flow, call] : calls_) {
        if (!isOpen(flow)) {
            over.push_back(flow);
        }
    }
    for (const FlowId& flow : over) {
        endCall(flow);
    }
}

} // namespace gateway
