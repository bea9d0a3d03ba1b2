#include "gateway/live/live_gateway.h"

#include "gateway/live/live_roles.h"

#include <array>

// Packets on their way through the module, and those that wait for the rest of their message.
namespace gateway {
namespace {

LiveSeconds secondsOf(LiveGateway::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

Milliseconds millisecondsOf(LiveGateway::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

} // namespace

void LiveGateway::handle(const QueuedPacket& packet, PacketQueue& queue,
                         Clock::time_point arrived) {
    now_ = secondsOf(arrived);
    Parcel parcel{packet.octets, {}, Side::Inside, false};
    const PacketKind kind = classifyPacket(packet.octets, parcel.layout);
    const auto goOn = [&] {
        if (packet.waits) {
            give(packet.id, parcel, queue, arrived, counters_.delay);
        }
    };
    const bool inside = sides_.inside.contains(packet.arrivedOn);
    if ((!inside && packet.arrivedOn != sides_.outside) ||
        (kind != PacketKind::Tcp && kind != PacketKind::Udp)) {
        counters_.add(kind == PacketKind::Malformed || kind == PacketKind::Truncated
                          ? Cause::packetsMalformed
                          : Cause::packetsUnseen);
        goOn();
        return;
    }
    parcel.side = inside ? Side::Inside : Side::Outside;
    if (kind == PacketKind::Tcp && !introduce(parcel)) {
        goOn();
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
            queue.drop(packet.id);
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
    // In a segment without payload nothing can change, and nobody waits for the report.
    const bool bare = kind == PacketKind::Tcp && parcel.layout.payloadLength == 0;
    if (!bare) {
        show(parcel);
    }
    goOn();
    if (packet.last) {
        settle(queue);
    }
    if (bare) {
        show(parcel);
    }
    report(now_);
}

// The verdict. A packet that did not change goes on as the kernel has it.
void LiveGateway::give(uint32_t id, const Parcel& parcel, PacketQueue& queue,
                       Clock::time_point arrived, DelayHistogram& delay) {
    const bool replace = parcel.changed && !config_.dryRun;
    queue.accept(id, replace ? parcel.packet : std::span<uint8_t>());
    given_.push_back({arrived, &delay});
}

void LiveGateway::settle(PacketQueue& queue) {
    counters_.add(Cause::verdictErrors, queue.settle());
    const auto now = Clock::now();
    for (const Given& given : given_) {
        given.delay->add(static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(now - given.arrived).count()));
    }
    given_.clear();
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
    settle(queue);
    const HoldCounts& counts = hold_.counts();
    counters_.set(Cause::segmentsHeldInVain, counts.late + counts.crowded + counts.broken);
    report(now_);
}

void LiveGateway::releaseHeld(PacketQueue& queue, Clock::time_point now) {
    now_ = secondsOf(now);
    ReleasedSegments released;
    while (hold_.expire(millisecondsOf(now), false, released)) {
        const HeldSegment& first = released.segments.front();
        const std::initializer_list<LogField> fields = {
            {"from", toText(sourceOf(first.packet, first.layout))},
            {"to", toText(destinationOf(first.packet, first.layout))},
            {"segments", std::to_string(released.segments.size())}};
        waiting_.at(static_cast<uint32_t>(first.token)).side == Side::Inside
            ? log_.info("held-in-vain", fields)
            : log_.stranger("held-in-vain", fields);
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
    told_ = false;
    if (parcel.side == Side::Inside) {
        showSent(parcel);
    } else {
        showReceived(parcel);
    }
    noteSetup(parcel);
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
    leavesFrom_.reset();
    sentFlow_ = {parcel.layout.protocol, sourceOf(parcel.packet, parcel.layout),
                 destinationOf(parcel.packet, parcel.layout)};
    if (parcel.layout.protocol == Protocol::Udp) {
        if (LiveMapping* const mapping = mappings_.findInside(MappingKind::Ras, sentFlow_.local)) {
            mapping->lastUse = now_;
            if (mapping->adopted && mapping->owner.remote.address == sentFlow_.remote.address) {
                recallRegistration(*mapping, parcel);
            }
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

// The module opens a registered host's ways once a gatekeeper has confirmed. That it has, to an
// earlier run, is told by showing the host's request twice and, in between, the beginning of a
// GatekeeperConfirm: extension bit and index of the CHOICE RasMessage.
void LiveGateway::recallRegistration(const LiveMapping& mapping, const Parcel& parcel) {
    static constexpr std::array<uint8_t, 1> confirm = {0x04};
    const Endpoint told{advertised(mapping.publicEndpoint.address), mapping.publicEndpoint.port};
    recalling_ = true;
    std::vector<uint8_t> request(parcel.packet.begin(), parcel.packet.end());
    module_.send(request, parcel.layout);
    auto answer = datagram(sentFlow_.remote, told, confirm);
    showMade(answer, Side::Outside);
    recalling_ = false;
}

// A packet that nobody sent.
void LiveGateway::showMade(std::span<uint8_t> packet, Side side) {
    PacketLayout layout;
    classifyPacket(packet, layout);
    if (side == Side::Inside) {
        module_.send(packet, layout);
    } else {
        module_.receive(packet, layout);
    }
}

// A flow that is older than its mapping comes back to the port that it left from, which may be that
// of another mapping; the module knows the flow's own.
Endpoint LiveGateway::rasEndpoint(const Endpoint& gatekeeper) {
    const auto flow = conntrack_.find(Protocol::Udp, gatekeeper, receivedAt_);
    const LiveMapping* const mapping =
        flow ? mappings_.findInside(MappingKind::Ras,
                                    viewsOf(*flow, flow->originalSource != gatekeeper).inside)
             : nullptr;
    return mapping == nullptr ? receivedAt_ : mapping->publicEndpoint;
}

bool LiveGateway::commit() {
    close(mappings_.takeOver(now_));
    expectNoMore();
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

} // namespace gateway
