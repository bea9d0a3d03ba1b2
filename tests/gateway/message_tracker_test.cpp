#include "gateway/capture_file.h"
#include "gateway/message_tracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace gateway;

constexpr uint32_t privateParty = 0x0A000005;
constexpr size_t ethernetHeader = 14;

struct Segment {
    Direction direction = Direction::Sent;
    FlowId insideView;
    uint32_t sequence = 0;
    uint8_t flags = 0;
    std::vector<uint8_t> octets;
};

// The TCP segments of a recorded call.
std::vector<Segment> segmentsOf(const std::string& sample) {
    CaptureReader reader(std::string(H323NAT_SAMPLES) + "/" + sample + ".pcap");
    std::vector<Segment> segments;
    CapturedFrame frame;
    while (reader.next(frame)) {
        const auto packet = std::span<const uint8_t>(frame.octets).subspan(ethernetHeader);
        PacketLayout layout;
        if (classifyPacket(packet, layout) != PacketKind::Tcp) {
            continue;
        }
        Segment segment;
        const bool sent = sourceOf(packet, layout).address == privateParty;
        segment.direction = sent ? Direction::Sent : Direction::Received;
        segment.insideView = {Protocol::Tcp, sourceOf(packet, layout),
                              destinationOf(packet, layout)};
        if (!sent) {
            std::swap(segment.insideView.local, segment.insideView.remote);
        }
        segment.sequence = sequenceNumber(packet, layout);
        segment.flags = tcpFlags(packet, layout);
        const auto payload = packet.subspan(layout.payloadOffset, layout.payloadLength);
        segment.octets.assign(payload.begin(), payload.end());
        segments.push_back(segment);
    }
    return segments;
}

// What a translation does to the octets: the private address becomes the public one.
std::vector<uint8_t> translated(std::vector<uint8_t> octets) {
    const std::vector<uint8_t> from = {10, 0, 0, 5};
    const std::vector<uint8_t> to = {203, 0, 113, 1};
    auto at = octets.begin();
    while ((at = std::search(at, octets.end(), from.begin(), from.end())) != octets.end()) {
        at = std::copy(to.begin(), to.end(), at);
    }
    return octets;
}

std::string describe(const std::vector<ObservedMessage>& messages) {
    std::string text;
    for (const ObservedMessage& message : messages) {
        text += message.description.decoded ? message.description.name : "?";
        text += message.repeated ? " again" : "";
        for (const AddressChange& change : message.changes) {
            text += ' ' + change.field + ' ' + toText(change.from) + ' ' + toText(change.to);
        }
        text += '\n';
    }
    return text;
}

class Observer {
public:
    std::string observe(const Segment& segment, size_t from, size_t count) {
        const std::vector<uint8_t> after = translated(segment.octets);
        ObservedPayload payload;
        payload.direction = segment.direction;
        payload.insideView = segment.insideView;
        payload.sequence = segment.sequence + static_cast<uint32_t>(from);
        payload.tcpFlags = segment.flags;
        payload.before = std::span<const uint8_t>(segment.octets).subspan(from, count);
        payload.after = std::span<const uint8_t>(after).subspan(from, count);
        return describe(tracker_.observe(payload));
    }

    std::string observe(const Segment& segment) {
        return observe(segment, 0, segment.octets.size());
    }

private:
    MessageTracker tracker_;
};

std::string observeInPieces(const std::vector<Segment>& segments, size_t pieceSize) {
    Observer observer;
    std::string text;
    for (const Segment& segment : segments) {
        size_t at = 0;
        do {
            const size_t count = std::min(pieceSize, segment.octets.size() - at);
            text += observer.observe(segment, at, count);
            at += count;
        } while (at < segment.octets.size());
    }
    return text;
}

// However TCP cuts the streams, the same messages are told, with the same changes.
TEST(MessageTracker, MessagesDoNotDependOnSegments) {
    const auto segments = segmentsOf("h245");
    const std::string whole = observeInPieces(segments, 10000);
    EXPECT_NE(whole.find("openLogicalChannelAck olcAck.mediaChannel 10.0.0.5:5000 203.0.113.1:5000 "
                         "olcAck.mediaControlChannel 10.0.0.5:5001 203.0.113.1:5001\n"),
              std::string::npos)
        << whole;
    EXPECT_EQ(std::count(whole.begin(), whole.end(), '\n'), 19);
    for (const size_t pieceSize : {1, 3, 50}) {
        EXPECT_EQ(observeInPieces(segments, pieceSize), whole) << pieceSize;
    }
}

TEST(MessageTracker, RepeatedSegmentsAreToldOnlyWhenRewritten) {
    const auto segments = segmentsOf("h245");
    Observer observer;
    size_t told = 0;
    for (const Segment& segment : segments) {
        const std::string first = observer.observe(segment);
        const std::string again = observer.observe(segment);
        if (!again.empty()) {
            ++told;
            EXPECT_NE(again.find(" again"), std::string::npos);
            EXPECT_NE(translated(segment.octets), segment.octets);
        } else {
            EXPECT_TRUE(first.empty() || translated(segment.octets) == segment.octets) << first;
        }
    }
    EXPECT_GT(told, 0U);
}

// A lost segment costs the messages that it touches and no other.
TEST(MessageTracker, GapsEndWithTheNextMessage) {
    const auto segments = segmentsOf("h245");
    const std::string whole = observeInPieces(segments, 10000);
    Observer observer;
    std::string text;
    bool dropped = false;
    for (const Segment& segment : segments) {
        const bool isSetup = !segment.octets.empty() && !dropped;
        if (isSetup) {
            observer.observe(segment, 0, 20);
            dropped = true;
            continue;
        }
        text += observer.observe(segment);
    }
    EXPECT_EQ("setup\n" + text, whole);
}

TEST(MessageTracker, OtherTrafficHoldsNothing) {
    MessageTracker tracker;
    const std::vector<uint8_t> noise(1400, 3); // looks like the start of a TPKT, and is none
    for (uint16_t port = 1; port < 5000; ++port) {
        ObservedPayload payload;
        payload.insideView = {Protocol::Tcp, {privateParty, port}, {0xCB007109, 1720}};
        payload.before = noise;
        payload.after = noise;
        for (const ObservedMessage& message : tracker.observe(payload)) {
            EXPECT_FALSE(message.description.decoded);
        }
    }
    EXPECT_FALSE(
        tracker.mayCarryMessages({Protocol::Tcp, {privateParty, 4000}, {0xCB007109, 443}}));
    EXPECT_FALSE(
        tracker.mayCarryMessages({Protocol::Udp, {privateParty, 5000}, {0xCB007109, 5000}}));
}

} // namespace
