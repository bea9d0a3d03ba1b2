#include "gateway/segment_hold.h"

#include <algorithm>
#include <iterator>

namespace gateway {
namespace {

constexpr size_t longestJoint = 65000; // octets of payload in one packet, headers left room for
constexpr size_t mostSegments = 1024;  // of one direction: each further one is looked for in all

int32_t distance(uint32_t from, uint32_t to) {
    return static_cast<int32_t>(to - from);
}

uint32_t endOf(const HeldSegment& segment) {
    return segment.sequence + static_cast<uint32_t>(segment.layout.payloadLength);
}

std::span<const uint8_t> payloadOf(const HeldSegment& segment) {
    return std::span(segment.packet)
        .subspan(segment.layout.payloadOffset, segment.layout.payloadLength);
}

// Octets of payload in the packet that segments, in order, would make together.
size_t jointOctets(const std::vector<HeldSegment>& segments) {
    int32_t end = 0;
    for (const HeldSegment& segment : segments) {
        end = std::max(end, distance(segments.front().sequence, endOf(segment)));
    }
    return static_cast<size_t>(end);
}

// Whether held segments cover every octet from `first` to `end`.
bool covers(const std::vector<HeldSegment>& held, uint32_t first, uint32_t end) {
    for (const HeldSegment& segment : held) {
        if (distance(segment.sequence, first) >= 0 && distance(first, endOf(segment)) > 0) {
            first = endOf(segment);
        }
    }
    return distance(end, first) >= 0;
}

size_t tpktLength(std::span<const uint8_t> header) {
    return static_cast<size_t>(header[2]) << 8 | header[3];
}

} // namespace

bool mayBeTpkt(std::span<const uint8_t> octets) {
    constexpr uint8_t version = 3;
    return (octets.empty() || octets[0] == version) && (octets.size() < 2 || octets[1] == 0) &&
           (octets.size() < tpktHeader || tpktLength(octets) > tpktHeader);
}

// Cuts further octets, which begin at sequence number `position`, into messages.
SegmentHold::Cut SegmentHold::cut(Framing& framing, uint32_t position,
                                  std::span<const uint8_t> octets) {
    for (;;) {
        if (framing.headerOctets == 0) {
            const int32_t inMessage = distance(position, framing.messageEnd);
            if (inMessage > 0) {
                if (octets.size() < static_cast<size_t>(inMessage)) {
                    return Cut::Partial;
                }
                octets = octets.subspan(static_cast<size_t>(inMessage));
                position = framing.messageEnd;
            }
            if (octets.empty()) {
                return Cut::Whole;
            }
        }
        const size_t begun = framing.headerOctets;
        const size_t taken = std::min(tpktHeader - begun, octets.size());
        std::copy_n(octets.begin(), taken, framing.header + begun);
        const size_t known = begun + taken;
        if (!mayBeTpkt(std::span(framing.header).first(known))) {
            return Cut::Broken;
        }
        framing.headerOctets = known;
        if (known < tpktHeader) {
            return Cut::HeaderOnly;
        }
        framing.headerOctets = 0;
        framing.messageEnd = position - static_cast<uint32_t>(begun) +
                             static_cast<uint32_t>(tpktLength(framing.header));
        if (taken == octets.size()) {
            return Cut::HeaderOnly;
        }
        octets = octets.subspan(taken);
        position += static_cast<uint32_t>(taken);
    }
}

// The held octets from `next` on, as far as they are consecutive.
std::vector<uint8_t> SegmentHold::consecutive(const Stream& stream) {
    std::vector<uint8_t> octets;
    uint32_t position = stream.next;
    for (const HeldSegment& segment : stream.held) {
        const int32_t known = distance(segment.sequence, position);
        if (known < 0) {
            break;
        }
        const auto payload = payloadOf(segment);
        if (static_cast<size_t>(known) < payload.size()) {
            octets.insert(octets.end(), payload.begin() + known, payload.end());
            position = endOf(segment);
        }
    }
    return octets;
}

void SegmentHold::begin(const FlowId& flow, uint32_t firstSequence) {
    forget(flow);
    if (streams_.size() >= limits_.streams) {
        // The one longest unused; what it holds, if anything, is let go by `expire` first.
        const auto oldest = std::find_if(ages_.begin(), ages_.end(), [this](const FlowId& id) {
            return streams_.at(id).held.empty();
        });
        if (oldest == ages_.end()) {
            return;
        }
        forget(*oldest);
    }
    Stream& stream = streams_[flow];
    stream.next = firstSequence;
    stream.framing.messageEnd = firstSequence;
    stream.age = ages_.insert(ages_.end(), flow);
}

void SegmentHold::forget(const FlowId& flow) {
    const auto found = streams_.find(flow);
    if (found != streams_.end()) {
        ages_.erase(found->second.age);
        if (!found->second.held.empty()) {
            waiting_.erase(found->second.wait);
            octets_ -= found->second.octets;
            segments_ -= found->second.held.size();
        }
        streams_.erase(found);
    }
}

void SegmentHold::keep(Stream& stream, const FlowId& flow, HeldSegment&& segment,
                       Milliseconds now) {
    if (stream.held.empty()) {
        stream.since = now;
        stream.wait = waiting_.insert(waiting_.end(), flow);
    }
    stream.octets += segment.layout.payloadLength;
    octets_ += segment.layout.payloadLength;
    ++segments_;
    const auto behind =
        std::find_if(stream.held.begin(), stream.held.end(), [&](const HeldSegment& other) {
            return distance(segment.sequence, other.sequence) > 0;
        });
    stream.held.insert(behind, std::move(segment));
    ++counts_.held;
}

// Lets go what is consecutive, as one packet; what lies behind a hole stays only if more is to
// come.
void SegmentHold::release(Stream& stream, const Framing& framing, ReleasedSegments& released) {
    released.segments = std::move(stream.held);
    released.joint = released.segments.size() > 1 && jointOctets(released.segments) <= longestJoint;
    stream.held.clear();
    stream.framing = framing;
    for (const HeldSegment& segment : released.segments) {
        if (distance(stream.next, endOf(segment)) > 0) {
            stream.next = endOf(segment);
        }
    }
    octets_ -= stream.octets;
    segments_ -= released.segments.size();
    stream.octets = 0;
    waiting_.erase(stream.wait);
}

// Nothing more is known of the messages of this direction afterwards if there was a hole.
void SegmentHold::releaseAsItCame(const FlowId& flow, ReleasedSegments& released) {
    Stream& stream = streams_.at(flow);
    const std::vector<uint8_t> octets = consecutive(stream);
    const uint32_t end = stream.next + static_cast<uint32_t>(octets.size());
    const bool whole = !stream.held.empty() && distance(end, endOf(stream.held.back())) <= 0;
    Framing framing = stream.framing;
    const bool framed = cut(framing, stream.next, octets) != Cut::Broken;
    release(stream, framing, released);
    released.joint = released.joint && whole && framed;
    if (!whole || !framed) {
        forget(flow);
    }
}

SegmentHold::Decision SegmentHold::take(const FlowId& flow, std::span<const uint8_t> packet,
                                        const PacketLayout& layout, uint64_t token,
                                        Milliseconds now, ReleasedSegments& released) {
    const uint8_t flags = tcpFlags(packet, layout);
    const uint32_t sequence = sequenceNumber(packet, layout);
    if ((flags & tcpSyn) != 0) {
        const auto known = streams_.find(flow);
        const bool repeated = known != streams_.end() && known->second.next == sequence + 1;
        if (!repeated && (known == streams_.end() || known->second.held.empty())) {
            begin(flow, sequence + 1);
        }
        return Decision::Pass;
    }
    const auto found = streams_.find(flow);
    if (found == streams_.end()) {
        return Decision::Pass;
    }
    Stream& stream = found->second;
    if ((flags & (tcpFin | tcpReset)) != 0 && !stream.held.empty()) {
        counts_.broken += stream.held.size() + 1;
        keep(stream, flow, {token, {packet.begin(), packet.end()}, layout, sequence}, now);
        releaseAsItCame(flow, released);
        return Decision::Release;
    }
    const uint32_t end = sequence + static_cast<uint32_t>(layout.payloadLength);
    if ((flags & tcpReset) != 0 || ((flags & tcpFin) != 0 && end == stream.next)) {
        forget(flow);
        return Decision::Pass;
    }
    ages_.splice(ages_.end(), ages_, stream.age);
    if (layout.payloadLength == 0 || distance(stream.next, end) <= 0) {
        return Decision::Pass; // nothing new: what went on goes on again
    }
    return takeNew(stream, flow, packet, layout, token, now, released);
}

SegmentHold::Decision SegmentHold::takeNew(Stream& stream, const FlowId& flow,
                                           std::span<const uint8_t> packet,
                                           const PacketLayout& layout, uint64_t token,
                                           Milliseconds now, ReleasedSegments& released) {
    const uint32_t sequence = sequenceNumber(packet, layout);
    const uint32_t end = sequence + static_cast<uint32_t>(layout.payloadLength);
    const int32_t known = distance(sequence, stream.next);
    Framing framing = stream.framing;
    if (stream.held.empty() && known >= 0) {
        const auto fresh = packet.subspan(layout.payloadOffset + static_cast<size_t>(known),
                                          layout.payloadLength - static_cast<size_t>(known));
        const Cut result = cut(framing, stream.next, fresh);
        if (result == Cut::Broken) {
            forget(flow);
            return Decision::Pass;
        }
        if (result != Cut::Partial) {
            stream.framing = framing;
            stream.next = end;
            return Decision::Pass;
        }
    } else if (covers(stream.held, known > 0 ? stream.next : sequence, end)) {
        ++counts_.repeated;
        return Decision::Drop;
    }
    keep(stream, flow, {token, {packet.begin(), packet.end()}, layout, sequence}, now);
    const std::vector<uint8_t> octets = consecutive(stream);
    const uint32_t reached = stream.next + static_cast<uint32_t>(octets.size());
    framing = stream.framing;
    const Cut result = cut(framing, stream.next, octets);
    if (result == Cut::Broken) {
        counts_.broken += stream.held.size();
        releaseAsItCame(flow, released);
        return Decision::Release;
    }
    const bool holes = distance(reached, endOf(stream.held.back())) > 0;
    if (!holes && result != Cut::Partial) {
        const bool fits = jointOctets(stream.held) <= longestJoint;
        (fits ? counts_.completed : counts_.crowded) += stream.held.size();
        release(stream, framing, released);
        return Decision::Release;
    }
    if (stream.octets > std::min(limits_.connectionOctets, longestJoint) ||
        stream.held.size() > mostSegments || octets_ > limits_.allOctets ||
        segments_ > limits_.allSegments) {
        counts_.crowded += stream.held.size();
        releaseAsItCame(flow, released);
        return Decision::Release;
    }
    return Decision::Held;
}

bool SegmentHold::expire(Milliseconds now, bool all, ReleasedSegments& released) {
    if (waiting_.empty()) {
        return false;
    }
    const FlowId flow = waiting_.front();
    const Stream& stream = streams_.at(flow);
    if (!all && now - stream.since < limits_.longest) {
        return false;
    }
    counts_.late += stream.held.size();
    releaseAsItCame(flow, released);
    return true;
}

Milliseconds SegmentHold::nextExpiry() const {
    return waiting_.empty() ? -1 : streams_.at(waiting_.front()).since + limits_.longest;
}

std::vector<uint8_t> joinSegments(std::span<const HeldSegment> segments) {
    const HeldSegment& first = segments.front();
    std::vector<uint8_t> joint(first.packet.begin(),
                               first.packet.begin() +
                                   static_cast<std::ptrdiff_t>(first.layout.payloadOffset));
    const size_t headers = joint.size();
    for (const HeldSegment& segment : segments) {
        const auto place =
            static_cast<size_t>(distance(first.sequence, segment.sequence)) + headers;
        const auto payload = payloadOf(segment);
        joint.resize(std::max(joint.size(), place + payload.size()));
        std::copy(payload.begin(), payload.end(),
                  joint.begin() + static_cast<std::ptrdiff_t>(place));
    }
    joint[2] = static_cast<uint8_t>(joint.size() >> 8);
    joint[3] = static_cast<uint8_t>(joint.size());
    return joint;
}

std::vector<bool> splitJoint(std::span<const uint8_t> joint, std::span<HeldSegment> segments) {
    std::vector<bool> changed;
    const uint32_t first = segments.front().sequence;
    const size_t headers = segments.front().layout.payloadOffset;
    for (HeldSegment& segment : segments) {
        const auto octets =
            joint.subspan(headers + static_cast<size_t>(distance(first, segment.sequence)),
                          segment.layout.payloadLength);
        const auto place =
            segment.packet.begin() + static_cast<std::ptrdiff_t>(segment.layout.payloadOffset);
        changed.push_back(!std::equal(octets.begin(), octets.end(), place));
        std::copy(octets.begin(), octets.end(), place);
    }
    return changed;
}

} // namespace gateway
