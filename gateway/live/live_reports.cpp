#include "gateway/live/live_gateway.h"

#include "gateway/live/live_roles.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

// What the module tells, and what becomes of it: watched connections, calls, log lines and
// counters.
namespace gateway {
namespace {

// "setup.h245Address: the host opened no mapping"
std::string troubleText(const ReportedMessage& message, const ReportedAddress& address) {
    const std::string path = shortPath(address.path);
    const std::string where = path.starts_with(message.name) ? path : message.name + " " + path;
    return where + ": " + leftCauseText(address.cause);
}

// Where a receiver at this address cannot send to: the sender's own address, and any private one
// unless the receiver itself has one.
std::vector<Network> uselessFor(uint32_t receiver, const Endpoint& sender) {
    static constexpr std::array<Network, 5> nobodysOwn = {{{0x0A000000, 8},    // 10.0.0.0
                                                           {0x64400000, 10},   // 100.64.0.0
                                                           {0xA9FE0000, 16},   // 169.254.0.0
                                                           {0xAC100000, 12},   // 172.16.0.0
                                                           {0xC0A80000, 16}}}; // 192.168.0.0
    std::vector<Network> networks = {{sender.address, 32}};
    const bool shared = std::any_of(nobodysOwn.begin(), nobodysOwn.end(),
                                    [&](const Network& some) { return some.contains(receiver); });
    if (!shared) {
        networks.insert(networks.end(), nobodysOwn.begin(), nobodysOwn.end());
    }
    return networks;
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

void LiveGateway::onMessage(const H323ObservedMessage& message) {
    call_ = message.call;
    if (recalling_) {
        return;
    }
    told_ = true;
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
    if (!recalling_) {
        messages_.onRewritten(address);
    }
}

void LiveGateway::onLeft(const H323ObservedAddress& address) {
    if (!recalling_) {
        messages_.onLeft(address);
    }
}

void LiveGateway::onCallBegan(const H323ObservedCall& told) {
    const LiveCall& call = calls_.begin(reportedCall(told, false), now_);
    begun_.push_back(call.number);
    counters_.add(Cause::callsStarted);
    const std::initializer_list<LogField> fields = {{"call", std::to_string(call.number)},
                                                    {"direction", call.inbound ? "in" : "out"},
                                                    {"inside", toText(call.inside)},
                                                    {"remote", toText(call.remote)},
                                                    {"from", call.calling},
                                                    {"to", call.called}};
    call.inbound ? log_.caller("call-start", fields) : log_.info("call-start", fields);
}

void LiveGateway::onCallEnded(const H323ObservedCall& told) {
    endCall(told.call, told.end, told.cause);
}

void LiveGateway::endCall(uint64_t number, uint32_t end, uint32_t cause) {
    mappings_.endCall(number, now_);
    const LiveCall* const call = calls_.end(number, end, cause, now_);
    if (call == nullptr) {
        return;
    }
    over_.push_back(number);
    counters_.add(Cause::callsEnded);
    const std::initializer_list<LogField> fields = {
        {"call", std::to_string(call->number)},
        {"direction", call->inbound ? "in" : "out"},
        {"inside", toText(call->inside)},
        {"remote", toText(call->remote)},
        {"seconds", std::to_string(now_ - call->started)},
        {"end", endName(call->end)},
        {"cause", std::to_string(call->cause)},
        {"verdict", call->verdict()}};
    call->inbound ? log_.caller("call-end", fields) : log_.info("call-end", fields);
}

void LiveGateway::expect(const Endpoint& endpoint) {
    if (++expected_[connectionKey(endpoint)] == 1) {
        table_.add(elementOf(SetId::Expected, endpoint));
    }
}

void LiveGateway::expectNoMore() {
    while (!unexpected_.empty() && unexpected_.front().first <= now_) {
        const Endpoint endpoint = unexpected_.front().second;
        unexpected_.pop_front();
        const auto found = expected_.find(connectionKey(endpoint));
        if (found != expected_.end() && --found->second == 0) {
            expected_.erase(found);
            table_.remove(elementOf(SetId::Expected, endpoint));
        }
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
            expect(endpointOf(connection.outside));
        }
        return;
    }
    LiveMapping* const mapping = mappings_.findPublic(Protocol::Tcp, publicEndpoint.port);
    if (mapping == nullptr) {
        return; // published: its elements stay
    }
    mapping->role = connection.role;
    if (isFollowedRole(connection.role) && !mapping->shown) {
        mapping->shown = true;
        table_.add(elementOf(SetId::Listening, mapping->inside));
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
        // The listed scope waits for what it needs itself.
        if (message.name == "releaseComplete" && calls_.running().contains(message.call)) {
            endCall(message.call, H323NAT_END_RELEASED, 0);
        }
    }
    archiveOver();
    call_ = 0;
}

void LiveGateway::archiveOver() {
    for (const uint64_t number : std::exchange(over_, {})) {
        if (const LiveCall* const call = calls_.find(number)) {
            archive_.end(*call);
        }
    }
}

// A call that the module does not follow must not go without a word.
void LiveGateway::noteMissed(const ReportedCall& told, const char* why) {
    const LiveCall* const call = calls_.miss(told, why, now_);
    if (call == nullptr) {
        return;
    }
    counters_.add(Cause::callsMissed);
    const std::initializer_list<LogField> fields = {{"direction", call->inbound ? "in" : "out"},
                                                    {"inside", toText(call->inside)},
                                                    {"remote", toText(call->remote)},
                                                    {"cause", why}};
    call->inbound ? log_.stranger("call-missed", fields) : log_.info("call-missed", fields);
}

// Of a Setup in which the module found no message.
void LiveGateway::noteSetup(const Parcel& parcel) {
    constexpr size_t typeAt = 8; // behind TPKT, discriminator and call reference
    constexpr uint8_t setup = 5;
    const auto payload = payloadOf(parcel.packet, parcel.layout);
    if (told_ || parcel.layout.protocol != Protocol::Tcp || payload.size() <= typeAt ||
        !mayBeTpkt(payload) || payload[4] != 8 || payload[5] != 2 || payload[typeAt] != setup) {
        return;
    }
    const bool received = parcel.side == Side::Outside;
    Endpoint inside = sourceOf(parcel.packet, parcel.layout);
    Endpoint outside = destinationOf(parcel.packet, parcel.layout);
    if (received) {
        std::swap(inside, outside);
        inside = listenerAt(inside.port).value_or(inside);
    }
    const bool listed = config_.scope == TranslationScope::Listed;
    if (const LiveCall* const call = calls_.runningOn({Protocol::Tcp, inside, outside})) {
        if (listed) {
            calls_.noteTrouble(call->number, "setup: it came in several segments");
        }
        return;
    }
    const bool full = calls_.running().size() >= config_.calls;
    ReportedCall missed;
    missed.direction = received ? H323NAT_RECEIVED : H323NAT_SENT;
    missed.inside = inside;
    missed.outside = outside;
    noteMissed(missed, listed || full ? "no record was free for it" : "its Setup makes no sense");
}

void LiveGateway::noteMapping(MappingRequest::Kind kind, const Endpoint& inside,
                              const Endpoint& publicEndpoint, bool reused) {
    if (archive_.keeps() && !reused) {
        archive_.noteMapping(
            call_, {LiveArchive::wallClock(), {kind, inside, publicEndpoint, 0, true, reused}});
    }
}

void LiveGateway::reportMessage(const ReportedMessage& message) {
    const bool sent = message.direction == H323NAT_SENT;
    const bool understood = (message.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) == 0;
    counters_.add(Cause::messagesSeen);
    if (message.name == "setup" && message.call == 0) {
        ReportedCall missed;
        missed.direction = message.direction;
        missed.inside =
            sent ? message.inside : listenerAt(message.inside.port).value_or(message.inside);
        missed.outside = message.outside;
        missed.callIdentifier = message.callIdentifier;
        noteMissed(missed, understood ? "no record was free for it" : "its Setup makes no sense");
    }
    if (!understood) {
        counters_.add(Cause::messagesUndecodable);
        calls_.noteTrouble(message.call, (message.name.empty() ? "a message" : message.name) +
                                             " makes no sense from some point on");
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
        const std::initializer_list<LogField> fields = {{"direction", sent ? "sent" : "received"},
                                                        {"message", message.name},
                                                        {"inside", toText(message.inside)},
                                                        {"remote", toText(message.outside)},
                                                        {"changes", changesText(message)}};
        sent ? log_.info("rewrite", fields) : log_.caller("rewrite", fields);
    }
    std::vector<ReportedAddress> remaining;
    if (sent) {
        remaining =
            addressesRemaining(message, uselessFor(message.outside.address, message.inside));
        std::erase_if(remaining, [this](const ReportedAddress& address) {
            return address.from.address == advertised(sides_.publicAddress);
        });
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

void LiveGateway::count(const FlowSurvey& survey, LiveSeconds now) {
    now_ = now;
    calls_.countSignalling(survey);
    for (const FlowSurvey::Use& use : survey.uses()) {
        const LiveCall* const call =
            use.flows.empty() ? nullptr : calls_.countMedia(use.call, use.flows);
        for (const FlowSurvey::Flow& flow : use.flows) {
            if (call != nullptr) {
                archive_.notePackets(*call, flow.insideView, flow.more);
            }
        }
    }
    if (config_.scope == TranslationScope::Listed) {
        for (const uint64_t number : calls_.closed(survey)) {
            endCall(number, H323NAT_END_CLOSED, 0);
        }
        archiveOver();
    }
    calls_.endSurvey();
    archive_.endSurvey(calls_);
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

} // namespace gateway
