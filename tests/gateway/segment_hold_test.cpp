#include "gateway/segment_hold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace gateway {
namespace {

constexpr Endpoint client{0x0A000005, 40000};
constexpr Endpoint server{0xCB007109, 1720};
constexpr FlowId flow{Protocol::Tcp, client, server};
constexpr uint32_t first = 0xFFFFFFF0; // the numbers wrap within the first message

std::vector<uint8_t> message(size_t length, uint8_t filling) {
    std::vector<uint8_t> octets(length, filling);
    octets[0] = 3;
    octets[1] = 0;
    octets[2] = static_cast<uint8_t>(length >> 8);
    octets[3] = static_cast<uint8_t>(length);
    return octets;
}

std::vector<uint8_t> segment(uint32_t position, std::span<const uint8_t> payload,
                             uint8_t flags = tcpAck) {
    std::vector<uint8_t> packet = emptySegment(client, server, flags, first + position, 1);
    packet.insert(packet.end(), payload.begin(), payload.end());
    packet[2] = static_cast<uint8_t>(packet.size() >> 8);
    packet[3] = static_cast<uint8_t>(packet.size());
    return packet;
}

// One direction of a connection; what went on is gathered in order of release.
class SegmentHoldTest : public testing::Test {
protected:
    SegmentHold::Decision take(uint32_t position, std::span<const uint8_t> payload,
                               uint8_t flags = tcpAck) {
        const std::vector<uint8_t> packet = segment(position, payload, flags);
        PacketLayout layout;
        EXPECT_EQ(classifyPacket(packet, layout), PacketKind::Tcp);
        released = {};
        return hold.take(flow, packet, layout, ++token, now, released);
    }

    void begin() { take(0xFFFFFFFF, {}, tcpSyn); }

    SegmentHold hold{{300, 1000, 1500, 2}};
    ReleasedSegments released;
    uint64_t token = 0;
    Milliseconds now = 0;
};

using Decision = SegmentHold::Decision;

TEST_F(SegmentHoldTest, KeepsAMessageUntilItIsWhole) {
    begin();
    const auto whole = message(300, 7);
    const std::span<const uint8_t> octets(whole);
    EXPECT_EQ(take(0, octets.first(100)), Decision::Held);
    EXPECT_EQ(take(0, octets.first(100)), Decision::Drop);     // sent again
    EXPECT_EQ(take(200, octets.subspan(200)), Decision::Held); // out of order
    EXPECT_EQ(take(100, octets.subspan(100, 100)), Decision::Release);
    ASSERT_EQ(released.segments.size(), 3U);
    EXPECT_TRUE(released.joint);
    EXPECT_EQ(released.segments[1].token, 5U);
    const auto joint = joinSegments(released.segments);
    EXPECT_TRUE(std::equal(octets.begin(), octets.end(), joint.begin() + 40, joint.end()));
    // What went on goes on again, in whatever pieces.
    EXPECT_EQ(take(0, octets), Decision::Pass);
    EXPECT_EQ(hold.counts().completed, 3U);
    EXPECT_EQ(hold.heldOctets(), 0U);
}

TEST_F(SegmentHoldTest, EachCutPassesOrWaitsAndNothingIsLost) {
    std::vector<uint8_t> stream;
    for (const size_t length : {5, 90, 4 + 200, 33}) {
        const auto next = message(length, static_cast<uint8_t>(length));
        stream.insert(stream.end(), next.begin(), next.end());
    }
    const std::array<size_t, 5> ends = {0, 5, 95, 299, 332};
    for (uint32_t cut = 1; cut < stream.size(); ++cut) {
        SCOPED_TRACE(cut);
        begin();
        const std::span<const uint8_t> octets(stream);
        const Decision before = take(0, octets.first(cut));
        const auto end = std::upper_bound(ends.begin(), ends.end(), cut) - 1;
        // A lone header goes at once: its sender may wait for the acknowledgement.
        EXPECT_EQ(before, cut - *end <= 4 ? Decision::Pass : Decision::Held);
        EXPECT_EQ(take(cut, octets.subspan(cut)),
                  before == Decision::Held ? Decision::Release : Decision::Pass);
        EXPECT_EQ(hold.heldOctets(), 0U);
        EXPECT_EQ(take(0, {}, tcpReset), Decision::Pass);
    }
}

TEST_F(SegmentHoldTest, BoundsLetItGoAsItCame) {
    const auto whole = message(2000, 7);
    const std::span<const uint8_t> octets(whole);
    begin();
    EXPECT_EQ(take(0, octets.first(600)), Decision::Held);
    EXPECT_EQ(hold.nextExpiry(), 300);
    now = 299;
    EXPECT_FALSE(hold.expire(now, false, released));
    now = 300;
    EXPECT_TRUE(hold.expire(now, false, released));
    EXPECT_EQ(released.segments.size(), 1U);
    EXPECT_EQ(hold.counts().late, 1U);
    EXPECT_EQ(take(600, octets.subspan(600, 600)), Decision::Held);
    EXPECT_EQ(take(1200, octets.subspan(1200, 600)), Decision::Release); // 1,000 a connection
    EXPECT_EQ(hold.counts().crowded, 2U);
    EXPECT_EQ(hold.heldOctets(), 0U);
    EXPECT_EQ(hold.nextExpiry(), -1);
}

// A packet's length has 16 bits: what is longer together goes on one by one.
TEST_F(SegmentHoldTest, NothingIsJoinedThatNoPacketHolds) {
    hold.configure({});
    const auto whole = message(65500, 7);
    const std::span<const uint8_t> octets(whole);
    begin();
    EXPECT_EQ(take(0, octets.first(40000)), Decision::Held);
    EXPECT_EQ(take(40000, octets.subspan(40000)), Decision::Release);
    EXPECT_EQ(released.segments.size(), 2U);
    EXPECT_FALSE(released.joint);
    // Still more behind it, and not whole.
    begin();
    EXPECT_EQ(take(0, octets.first(50000)), Decision::Held);
    auto rest = message(3000, 7);
    rest.resize(1000);
    rest.insert(rest.begin(), octets.begin() + 50000, octets.end());
    EXPECT_EQ(take(50000, rest), Decision::Release);
    EXPECT_FALSE(released.joint);
    EXPECT_EQ(hold.counts().crowded, 4U);
}

// Each further segment is compared with all that wait.
TEST_F(SegmentHoldTest, ManySmallSegmentsAreNotWaitedFor) {
    hold.configure({});
    const auto whole = message(60000, 7);
    begin();
    uint32_t at = 5;
    EXPECT_EQ(take(0, std::span<const uint8_t>(whole).first(5)), Decision::Held);
    while (take(at, std::span<const uint8_t>(whole).subspan(at, 1)) == Decision::Held) {
        ++at;
    }
    EXPECT_LT(at, 2000U);
    EXPECT_EQ(hold.heldOctets(), 0U);
}

// Those that wait stay in the kernel's queue, which others need as well.
TEST_F(SegmentHoldTest, ShortSegmentsOfAllConnectionsHaveABound) {
    HoldLimits limits;
    limits.allSegments = 3;
    hold.configure(limits);
    const auto whole = message(900, 7);
    const auto octet = [&](uint32_t at) { return std::span<const uint8_t>(whole).subspan(at, 1); };
    for (const uint8_t end : {tcpFin, tcpReset}) {
        begin();
        EXPECT_EQ(take(0, std::span<const uint8_t>(whole).first(5)), Decision::Held);
        EXPECT_EQ(take(7, octet(7)), Decision::Held);
        EXPECT_EQ(take(6, {}, end), Decision::Release);
        begin();
        EXPECT_EQ(take(0, std::span<const uint8_t>(whole).first(5)), Decision::Held);
        EXPECT_EQ(take(7, octet(7)), Decision::Held);
        EXPECT_EQ(take(9, octet(9)), Decision::Held);
        EXPECT_EQ(take(11, octet(11)), Decision::Release);
        EXPECT_EQ(released.segments.size(), 4U);
    }
}

TEST_F(SegmentHoldTest, WhatIsNoTpktIsNeverHeld) {
    const std::array<uint8_t, 20> http = {'P', 'O', 'S', 'T'};
    begin();
    EXPECT_EQ(take(0, http), Decision::Pass);
    EXPECT_EQ(take(20, message(300, 1)), Decision::Pass);
    EXPECT_EQ(take(320, std::span<const uint8_t>(message(300, 1)).first(9)), Decision::Pass);
    // Nor what was first seen in its middle.
    SegmentHold other;
    const auto packet = segment(0, std::span<const uint8_t>(message(300, 1)).first(9));
    PacketLayout layout;
    classifyPacket(packet, layout);
    EXPECT_EQ(other.take(flow, packet, layout, 1, 0, released), Decision::Pass);
    other.begin(flow, first);
    EXPECT_EQ(other.take(flow, packet, layout, 1, 0, released), Decision::Held);
}

TEST_F(SegmentHoldTest, TheEndOfAConnectionLetsGo) {
    const auto whole = message(300, 7);
    for (const uint8_t flag : {tcpFin, tcpReset}) {
        begin();
        EXPECT_EQ(take(0, std::span<const uint8_t>(whole).first(100)), Decision::Held);
        EXPECT_EQ(take(100, {}, flag), Decision::Release);
        EXPECT_EQ(released.segments.size(), 2U);
        EXPECT_EQ(take(0, {}, tcpReset), Decision::Pass);
    }
}

TEST_F(SegmentHoldTest, ChangesComeBackInEverySegment) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        begin();
        const auto whole = message(400, 7);
        uint32_t at = 0;
        Decision decision = Decision::Pass;
        while (at < whole.size()) {
            const auto length = std::min<size_t>(5 + random() % 90, whole.size() - at);
            decision = take(at, std::span<const uint8_t>(whole).subspan(at, length));
            at += static_cast<uint32_t>(length);
        }
        ASSERT_EQ(decision, Decision::Release);
        auto joint = joinSegments(released.segments);
        const size_t place = 44 + random() % (joint.size() - 50);
        std::fill_n(joint.begin() + static_cast<std::ptrdiff_t>(place), 6, uint8_t{9});
        const auto changed = splitJoint(joint, released.segments);
        EXPECT_EQ(joinSegments(released.segments), joint);
        EXPECT_LE(std::count(changed.begin(), changed.end(), true), 3);
        EXPECT_GE(std::count(changed.begin(), changed.end(), true), 1);
        take(0, {}, tcpReset);
    }
}

} // namespace
} // namespace gateway
