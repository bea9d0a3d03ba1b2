#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "nat/listed/connection_pools.h"
#include "tests/support/fake_clock.h"
#include "tests/support/pools.h"

namespace {

using Octets = std::vector<uint8_t>;

// A TPKT message whose body is `length - 4` octets of ascending values from `first`.
Octets message(size_t length, uint8_t first) {
    Octets octets{3, 0, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    while (octets.size() < length) {
        octets.push_back(first++);
    }
    return octets;
}

Octets operator+(Octets left, const Octets& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Octets part(const Octets& octets, size_t begin, size_t end) {
    return {octets.begin() + static_cast<ptrdiff_t>(begin),
            octets.begin() + static_cast<ptrdiff_t>(end)};
}

// What the processor saw, and whether each message could be found in the current segment.
struct Seen {
    std::vector<Octets> messages;
    MessageOutcome answer = MessageOutcome::done;

    static MessageOutcome look(StreamBuffer& stream, void* owner) {
        auto* seen = static_cast<Seen*>(owner);
        seen->messages.emplace_back(stream.data, stream.data + stream.messageLength);
        const auto length = static_cast<int32_t>(stream.messageLength);
        const int32_t end =
            std::min(length, stream.segmentOffset + static_cast<int32_t>(stream.segmentLength));
        for (int32_t p = std::max(stream.segmentOffset, 0); p < end; ++p) {
            EXPECT_EQ(stream.segmentData[p - stream.segmentOffset], stream.data[p]) << p;
        }
        return seen->answer;
    }
};

constexpr uint32_t base = 0xFFFFFFE0; // sequence numbers wrap round within every test

template <typename Record> class Connection {
public:
    int32_t append(Octets payload, uint32_t position) {
        return appendSegment(
            record, {payload.data(), static_cast<uint32_t>(payload.size()), base + position},
            {Seen::look, &seen});
    }

    Record record{};
    Seen seen;
};

class StreamBufferTest : public testing::Test {
protected:
    FakeClock clock{1000};
    Connection<ControlChannelConnection> control;
    Connection<CallSignalConnection> signalling;
};

TEST_F(StreamBufferTest, HandsOnWholeMessagesHoweverTheyAreCut) {
    const Octets first = message(40, 1);
    const Octets second = message(9, 100);
    const Octets third = message(300, 7);
    const Octets stream = first + second + third;
    for (const std::vector<size_t>& ends :
         {std::vector<size_t>{349}, {1, 4, 349}, {2, 39, 40, 349}, {43, 60, 348, 349}, {49, 349}}) {
        Connection<ControlChannelConnection> connection;
        size_t begin = 0;
        for (const size_t end : ends) {
            EXPECT_EQ(connection.append(part(stream, begin, end), static_cast<uint32_t>(begin)), 0);
            begin = end;
        }
        EXPECT_EQ(connection.seen.messages, (std::vector<Octets>{first, second, third}));
        EXPECT_EQ(connection.record.stream.baseSequence, base + 349);
        EXPECT_EQ(connection.record.stream.segmentData, nullptr);
    }
}

TEST_F(StreamBufferTest, EmptyBufferIsClearedAndRestMovesDown) {
    EXPECT_EQ(control.append(message(40, 1) + part(message(30, 50), 0, 10), 0), 0);
    const StreamBuffer& stream = control.record.stream;
    EXPECT_EQ(stream.heldBytes, 10u);
    EXPECT_EQ(stream.messageLength, 30u);
    EXPECT_EQ(stream.segmentOffset, -40);
    EXPECT_EQ(stream.baseSequence, base + 40);
    EXPECT_EQ(control.append(part(message(30, 50), 10, 30), 50), 0);
    EXPECT_EQ(stream.heldBytes, 0u);
    EXPECT_EQ(stream.baseSequence, base + 70);
    EXPECT_TRUE(std::all_of(std::begin(stream.data), std::end(stream.data),
                            [](uint8_t octet) { return octet == 0; }));
}

TEST_F(StreamBufferTest, CapacityRefusesWithoutChange) {
    const Octets beginning = part(message(5000, 1), 0, 4000);
    EXPECT_EQ(control.append(beginning, 0), 0);
    clock.advance(5);
    EXPECT_EQ(control.append(Octets(97), 4000), -1);
    // Counted behind the held octets, though it is a retransmission.
    EXPECT_EQ(control.append(Octets(97), 0), -1);
    EXPECT_EQ(control.append(Octets(96), 4001), -1);
    EXPECT_EQ(control.record.stream.heldBytes, 4000u);
    EXPECT_EQ(control.record.lastActivity, 1000u);
    EXPECT_EQ(control.append(Octets(96), 4000), 0);
    EXPECT_EQ(control.record.stream.heldBytes, 4096u);
    EXPECT_EQ(control.append(Octets(1), 4096), -1);

    // A first segment longer than the buffer, and a message of the buffer's length.
    EXPECT_EQ(signalling.append(Octets(4097, 3), 0), -1);
    EXPECT_EQ(signalling.record.stream.baseSequence, 0u);
    EXPECT_EQ(signalling.append(message(4096, 1), 0), 0);
    EXPECT_EQ(signalling.seen.messages.size(), 1u);
}

TEST_F(StreamBufferTest, ImpossibleLengthsHoldTheStream) {
    EXPECT_EQ(control.append({3, 0, 0, 0, 9, 9}, 0), 0);
    EXPECT_EQ(control.append(message(20, 1), 6), 0);
    EXPECT_TRUE(control.seen.messages.empty());
    EXPECT_EQ(control.record.stream.heldBytes, 26u);

    // Lengths below the header's own are a message like any other.
    EXPECT_EQ(signalling.append({3, 0, 0, 1}, 0), 0);
    EXPECT_EQ(signalling.seen.messages, (std::vector<Octets>{{3}}));
    EXPECT_EQ(signalling.record.stream.heldBytes, 3u);
}

TEST_F(StreamBufferTest, SegmentsThatBringNothingNew) {
    for (const uint32_t position : {0u, 10u}) {
        Connection<ControlChannelConnection> quiet;
        Connection<CallSignalConnection> renewed;
        quiet.append(message(40, 1), 0);
        renewed.append(message(40, 1), 0);
        clock.set(1030);
        EXPECT_EQ(quiet.append(Octets(30), position), 0);
        EXPECT_EQ(renewed.append(Octets(30), position), 0);
        EXPECT_EQ(quiet.record.lastActivity, 1000u);
        EXPECT_EQ(renewed.record.lastActivity, 1030u);
        EXPECT_EQ(renewed.record.stream.heldBytes, 0u);
        EXPECT_EQ(renewed.append({}, 40), 0);
        clock.set(1000);
    }
}

TEST_F(StreamBufferTest, RetransmissionWithNewOctetsGivesItsTail) {
    const Octets stream = message(40, 1) + message(30, 50);
    control.append(part(stream, 0, 40), 0);
    EXPECT_EQ(control.append(part(stream, 25, 70), 25), 0);
    ASSERT_EQ(control.seen.messages.size(), 2u);
    EXPECT_EQ(control.seen.messages[1], message(30, 50));
}

TEST_F(StreamBufferTest, FramingFailureStaysAndIsTriedAgain) {
    signalling.seen.answer = MessageOutcome::framingFailure;
    signalling.append(message(20, 1), 0);
    signalling.append(message(20, 2), 20);
    EXPECT_EQ(signalling.seen.messages, (std::vector<Octets>{message(20, 1), message(20, 1)}));
    EXPECT_EQ(signalling.record.stream.heldBytes, 40u);
}

// Octets that no segment wrote are whatever lay in the buffer before: here the end of a message
// that was handed on already.
TEST_F(StreamBufferTest, GapIsNoPartOfAMessage) {
    const Octets secret = message(200, 77);
    const Octets wanted = message(60, 1);
    const Octets stream = secret + wanted + message(20, 9);
    control.append(part(stream, 0, 210), 0);
    ASSERT_EQ(control.seen.messages.size(), 1u);

    EXPECT_EQ(control.append(part(stream, 240, 260), 240), 0);
    EXPECT_EQ(control.record.stream.heldBytes, 10u);
    EXPECT_EQ(control.seen.messages.size(), 1u) << "30 octets of it were never received";

    // The gap is filled, and the stream goes on behind it.
    EXPECT_EQ(control.append(part(stream, 210, 240), 210), 0);
    EXPECT_EQ(control.append(part(stream, 260, 280), 260), 0);
    EXPECT_EQ(control.seen.messages, (std::vector<Octets>{secret, wanted, message(20, 9)}));
}

// Segments in any order, some of them twice or half: every message comes, in order, as soon as its
// last octet is there. The bounds are positions in five messages of 269 octets in all.
TEST_F(StreamBufferTest, SegmentsOutOfOrderLoseNothing) {
    const std::vector<Octets> messages = {message(40, 1), message(9, 60), message(100, 9),
                                          message(60, 3), message(60, 7)};
    Octets stream;
    for (const Octets& each : messages) {
        stream = stream + each;
    }
    using Segments = std::vector<std::pair<uint32_t, uint32_t>>;
    const Segments orders[] = {
        {{0, 40}, {49, 149}, {40, 49}, {149, 209}, {209, 269}}, // whole ones swapped
        {{0, 40}, {149, 269}, {49, 149}, {40, 49}},             // three of them
        {{0, 50}, {80, 120}, {60, 90}, {200, 269}, {120, 200}, {50, 60}},
        {{0, 40}, {149, 269}, {40, 100}, {20, 60}, {100, 149}}, // a repetition within the gap
        {{0, 10}, {45, 49}, {20, 30}, {5, 25}, {30, 45}, {209, 269}, {49, 209}},
        {{0, 40}, {60, 70}, {0, 40}, {40, 149}, {60, 70}, {140, 269}},
        {{0, 39}, {60, 100}, {39, 40}, {40, 60}, {100, 269}}, // the late part outlives a message
    };
    for (const Segments& order : orders) {
        Connection<ControlChannelConnection> connection;
        for (const auto& [begin, end] : order) {
            EXPECT_EQ(connection.append(part(stream, begin, end), begin), 0);
        }
        EXPECT_EQ(connection.seen.messages, messages) << order[1].first;
        EXPECT_EQ(connection.record.stream.baseSequence, base + 269);
        EXPECT_TRUE(connection.record.stream.written.none());
    }
}

TEST_F(StreamBufferTest, LengthFromAGapHandsOnNothing) {
    // Of the second message only the first two octets and the body came; where its length belongs,
    // that of the first message still lies.
    control.append(message(40, 1) + Octets{3, 0}, 0);
    EXPECT_EQ(control.append(Octets(60, 5), 44), 0);
    EXPECT_EQ(control.record.stream.messageLength, 0u);
    EXPECT_EQ(control.seen.messages.size(), 1u);
}

} // namespace
