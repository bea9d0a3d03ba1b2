#include "gateway/replay.h"

#include "gateway/capture_time.h"
#include "gateway/link_layer.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

// Of all frames that wait behind a held one. Reached where the capture's clock stands still.
constexpr size_t mostWaitingOctets = size_t{64} << 20;

Milliseconds millisecondsOf(const CaptureTime& time) {
    return nanosecondsOf(time) / 1'000'000;
}

} // namespace

Replay::Replay(const ReferenceHostSettings& settings, int linkType, ReplayListener& listener,
               FrameSink sink)
    : inside_(settings.inside), linkType_(linkType), holds_(settings.fullScope),
      listener_(listener), sink_(std::move(sink)), host_(settings, &log_) {}

void Replay::process(CapturedFrame& frame) {
    ++totals_.packets;
    now_ = std::max(now_, millisecondsOf(frame.time));
    expire(frame.time, waitingOctets_ > mostWaitingOctets);
    const NetworkLayer network = networkLayer(linkType_, frame.octets);
    if (network.protocol == NetworkProtocol::Ipv4) {
        processIpv4(frame, network.offset);
        return;
    }
    ++totals_.verdicts.at(static_cast<size_t>(Verdict::NotIpv4));
    totals_.ipv6 += network.protocol == NetworkProtocol::Ipv6 ? 1 : 0;
    pass(frame, network.offset, false);
}

void Replay::processIpv4(CapturedFrame& frame, size_t offset) {
    const auto packet = std::span<uint8_t>(frame.octets).subspan(offset);
    PacketLayout layout;
    if (holds_ && mayBeTcp(packet) && classifyPacket(packet, layout) == PacketKind::Tcp &&
        hold(frame, offset, packet, layout)) {
        return;
    }
    const PacketOutcome outcome = host_.process(packet, frame.time.seconds);
    report(frame, outcome);
    note(frame, outcome);
    pass(frame, offset, false);
}

// A SYN tells where messages begin; connections that are none of ours are not followed from there.
bool Replay::mayHold(const PacketLayout& layout, std::span<const uint8_t> packet) const {
    if ((tcpFlags(packet, layout) & tcpSyn) == 0) {
        return true;
    }
    const Endpoint source = sourceOf(packet, layout);
    const Endpoint destination = destinationOf(packet, layout);
    return source.port == callSignalPort || destination.port == callSignalPort ||
           log_.isAnnounced(source) || log_.isAnnounced(destination);
}

// True when the frame is taken care of.
bool Replay::hold(CapturedFrame& frame, size_t offset, std::span<const uint8_t> packet,
                  const PacketLayout& layout) {
    Direction direction = Direction::Sent;
    if (host_.route(packet, direction) != Verdict::Translated || !mayHold(layout, packet)) {
        return false;
    }
    const FlowId flow{Protocol::Tcp, sourceOf(packet, layout), destinationOf(packet, layout)};
    ReleasedSegments released;
    const uint64_t token = firstWaiting_ + waiting_.size();
    switch (hold_.take(flow, packet, layout, token, now_, released)) {
    case SegmentHold::Decision::Pass:
        return false;
    case SegmentHold::Decision::Held:
        pass(frame, offset, true);
        return true;
    case SegmentHold::Decision::Drop:
        ++totals_.verdicts.at(static_cast<size_t>(Verdict::Repetition));
        return true;
    case SegmentHold::Decision::Release:
        break;
    }
    pass(frame, offset, true);
    letGo(released);
    writeReady();
    return true;
}

void Replay::expire(const CaptureTime& now, bool all) {
    if (hold_.heldOctets() == 0) {
        return;
    }
    ReleasedSegments released;
    while (hold_.expire(std::max(now_, millisecondsOf(now)), all, released)) {
        letGo(released);
    }
    writeReady();
}

void Replay::letGo(ReleasedSegments& released) {
    const auto waitingOf = [this](const HeldSegment& segment) -> Waiting& {
        return waiting_.at(static_cast<size_t>(segment.token - firstWaiting_));
    };
    const CapturedFrame& last = waitingOf(released.segments.back()).frame;
    std::vector<PacketOutcome> outcomes;
    if (released.joint) {
        outcomes = host_.processJoint(released.segments, last.time.seconds);
        report(last, outcomes.front());
    }
    for (size_t i = 0; i < released.segments.size(); ++i) {
        HeldSegment& segment = released.segments[i];
        Waiting& waiting = waitingOf(segment);
        if (!released.joint) {
            outcomes.push_back(host_.process(segment.packet, waiting.frame.time.seconds));
            report(waiting.frame, outcomes.back());
        }
        note(waiting.frame, outcomes[i]);
        std::copy(segment.packet.begin(), segment.packet.end(),
                  waiting.frame.octets.begin() + static_cast<std::ptrdiff_t>(waiting.offset));
        waiting.held = false;
    }
    released.segments.clear();
}

void Replay::note(const CapturedFrame& frame, const PacketOutcome& outcome) {
    listener_.onPacket(frame, outcome);
    ++totals_.verdicts.at(static_cast<size_t>(outcome.verdict));
    totals_.unmappedCalls += outcome.verdict == Verdict::NoMapping &&
                                     outcome.insideView.protocol == Protocol::Tcp &&
                                     outcome.insideView.local.port == callSignalPort
                                 ? 1
                                 : 0;
    totals_.truncated += outcome.verdict == Verdict::Translated && outcome.truncated ? 1 : 0;
    totals_.rewrittenPackets += outcome.payloadChanged ? 1 : 0;
}

void Replay::report(const CapturedFrame& frame, const PacketOutcome& outcome) {
    if (host_.mappingRequests().empty() && log_.empty()) {
        return;
    }
    for (const MappingRequest& request : host_.mappingRequests()) {
        ++(request.granted ? totals_.mappings : totals_.refusedMappings);
        listener_.onMapping(frame, request);
    }
    for (const ReportedCall& call : log_.takeCalls()) {
        listener_.onCall(frame, call);
    }
    for (ReportedMessage& message : log_.takeMessages()) {
        message.host = outcome.insideView.local;
        std::vector<ReportedAddress> remaining;
        if (message.direction == H323NAT_SENT) {
            remaining = addressesRemaining(message, {&inside_, 1});
        }
        count(message, remaining);
        listener_.onMessage(frame, message, remaining);
    }
}

void Replay::count(const ReportedMessage& message, const std::vector<ReportedAddress>& remaining) {
    ++totals_.messages;
    totals_.addressesKept += remaining.size();
    if (!message.rewritten.empty()) {
        ++totals_.rewritten;
    } else if ((message.flags & H323NAT_MESSAGE_NOT_UNDERSTOOD) != 0) {
        ++totals_.undecodable;
    } else if (!remaining.empty()) {
        ++totals_.privateAddressKept;
    } else {
        ++totals_.nothingToTranslate;
    }
}

// The frame goes on at once when none before it waits.
void Replay::pass(CapturedFrame& frame, size_t offset, bool held) {
    if (waiting_.empty() && !held) {
        sink_(frame);
        ++firstWaiting_;
        return;
    }
    waitingOctets_ += sizeof(Waiting) + frame.octets.size();
    waiting_.push_back({std::move(frame), offset, held});
}

void Replay::writeReady() {
    while (!waiting_.empty() && !waiting_.front().held) {
        waitingOctets_ -= sizeof(Waiting) + waiting_.front().frame.octets.size();
        sink_(waiting_.front().frame);
        waiting_.pop_front();
        ++firstWaiting_;
    }
}

void Replay::finish() {
    expire({}, true);
    totals_.hold = hold_.counts();
}

} // namespace gateway
