// Segments in any order, again, joined and lost: what leaves, and what is kept meanwhile.

#include <gtest/gtest.h>

#include <random>

#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

constexpr EndpointKey caller = {privateParty, 50000};
constexpr EndpointKey called = {outsideParty, 1720};

// What a private host sends, and where its own addresses stand.
struct Sent {
    Octets octets;
    std::vector<size_t> places;

    Sent() {
        for (uint16_t port = 5000; port < 5010; port = static_cast<uint16_t>(port + 2)) {
            add(q931({setup({{}, {{fastStartElement({true, at({privateParty, port})})}}})}));
            add(q931({answer(Answer::connect,
                             at({privateParty, static_cast<uint16_t>(port + 40000)}))}));
            add(q931({answer(Answer::alerting, {})}));
        }
        const Octets own = octetsOfAddress(privateParty);
        for (auto found = octets.begin();; ++found) {
            found = std::search(found, octets.end(), own.begin(), own.end());
            if (found == octets.end()) {
                break;
            }
            places.push_back(static_cast<size_t>(found - octets.begin()));
        }
    }
    void add(const Octets& message) { octets.insert(octets.end(), message.begin(), message.end()); }

    Octets part(size_t from, size_t to) const {
        return {octets.begin() + static_cast<ptrdiff_t>(from),
                octets.begin() + static_cast<ptrdiff_t>(to)};
    }
    Octets translated() const {
        Octets after = octets;
        for (const size_t place : places) {
            setEndpoint(after, place, FullHost::publicOf(endpointAt(octets, place)));
        }
        return after;
    }
};

// Sends any parts of a stream and holds the module to its word: every octet leaves the same each
// time, and an address leaves whole.
class Sender {
public:
    explicit Sender(FullHost& host)
        : call_(host, caller, called, TcpCall::Opened::byPrivate, 0xffffff00),
          left_(sent.octets.size(), -1) {}

    void send(size_t from, size_t to) {
        const Octets after = call_.sentAt(from, sent.part(from, to));
        for (size_t index = from; index < to; ++index) {
            const int octet = after[index - from];
            ASSERT_TRUE(left_[index] == -1 || left_[index] == octet) << index;
            left_[index] = octet;
        }
    }
    void finish() const {
        const Octets translated = sent.translated();
        Octets allowed = sent.octets;
        for (const size_t place : sent.places) {
            const bool rewritten = left_[place] == translated[place];
            setEndpoint(allowed, place, endpointAt(rewritten ? translated : sent.octets, place));
        }
        EXPECT_EQ(toHex(left()), toHex(allowed));
    }
    Octets left() const { return Octets(left_.begin(), left_.end()); }

    Sent sent;

private:
    TcpCall call_;
    std::vector<int> left_;
};

TEST(Stream, WholeMessagesAreTranslatedWhateverIsJoined) {
    for (const size_t size : {40U, 200U, 333U, 5000U}) {
        FullHost host;
        Sender sender(host);
        // Segments that begin and end with messages.
        size_t from = 0;
        for (size_t to = 0; to < sender.sent.octets.size();) {
            while (to < sender.sent.octets.size() && (to == from || to - from < size)) {
                to += static_cast<size_t>(sender.sent.octets[to + 2] << 8 |
                                          sender.sent.octets[to + 3]);
            }
            sender.send(from, to);
            from = to;
        }
        EXPECT_EQ(toHex(sender.left()), toHex(sender.sent.translated()));
        const size_t asked = host.takeAsked().size();
        EXPECT_EQ(asked, sender.sent.places.size());
        // Again, in part, joined: nothing is asked anew.
        for (size_t first = 0; first + 400 < sender.sent.octets.size(); first += 37) {
            sender.send(first, first + 400);
        }
        sender.send(0, sender.sent.octets.size());
        EXPECT_EQ(host.takeAsked().size(), 0U);
    }
}

TEST(Stream, AnyOrderAndRepetitionKeepsEveryOctet) {
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        FullHost host;
        Sender sender(host);
        const size_t total = sender.sent.octets.size();
        const size_t longest = 1 + random() % 300;
        std::vector<std::pair<size_t, size_t>> parts;
        for (size_t from = 0; from < total;) {
            const size_t to = std::min(total, from + 1 + random() % longest);
            parts.emplace_back(from, to);
            from = to;
        }
        for (size_t index = 0; index + 1 < parts.size(); ++index) {
            if (random() % 3 == 0) {
                std::swap(parts[index],
                          parts[std::min(parts.size() - 1, index + 1 + random() % 4)]);
            }
        }
        for (const auto& [from, to] : parts) {
            sender.send(from, to);
            if (random() % 2 == 0) { // again, with what lies before and behind
                const size_t first = from - std::min<size_t>(from, random() % 200);
                sender.send(first, std::min(total, to + random() % 100));
            }
            ASSERT_FALSE(testing::Test::HasFailure());
        }
        sender.finish();
        ASSERT_FALSE(testing::Test::HasFailure());
        EXPECT_EQ(full_scope::state.streams.blocks.used, 0U);
        // The stream goes on behind all that.
        EXPECT_GE(full_scope::state.messagesSoFar, 10U);
    }
}

TEST(Stream, NothingIsSaidToChangeBesideWhatWasWritten) {
    const Sent sent;
    FullHost host;
    TcpCall call(host, caller, called);
    call.sent(sent.octets);
    const size_t place = sent.places.front();
    const auto saidToChange = [&](size_t from, size_t to) {
        Segment segment;
        segment.flow = {caller.address, called.address, caller.port, called.port};
        segment.sequence = 1000 + static_cast<uint32_t>(from);
        segment.payload = sent.part(from, to);
        return sendSegment(host.context, segment).changed;
    };
    EXPECT_FALSE(saidToChange(0, place));
    EXPECT_TRUE(saidToChange(0, place + 1));
    EXPECT_TRUE(saidToChange(place + 5, place + 10));
    EXPECT_FALSE(saidToChange(place + 6, sent.places[1]));
}

TEST(Stream, OctetsOfOneMessageThatCameInAnyOrderAreReadOnce) {
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})});
    const size_t third = message.size() / 3;
    const auto part = [&](size_t index) {
        return Octets(message.begin() + static_cast<ptrdiff_t>(index * third),
                      index == 2 ? message.end()
                                 : message.begin() + static_cast<ptrdiff_t>((index + 1) * third));
    };
    std::vector<size_t> order = {0, 1, 2};
    do {
        FullHost host;
        TcpCall call(host, caller, called);
        for (const size_t index : order) {
            call.sentAt(index * third, part(index));
        }
        EXPECT_EQ(host.takeTold("message").size(), 1U);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(Stream, GapThatIsNeverFilledIsGivenUpAndCostsNoMore) {
    FullHost host(4);
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    const size_t begin = call.sentSoFar + 1; // an octet is missing
    for (size_t offset = 0; offset < 200000; offset += 1000) {
        const Octets octets(1000, 3);
        EXPECT_EQ(call.sentAt(begin + offset, octets), octets);
        ASSERT_LE(full_scope::state.streams.blocks.used, 80U);
    }
    EXPECT_EQ(full_scope::state.streams.blocks.used, 0U);
    // The other direction is still read.
    call.received(q931({answer(Answer::connect, at({outsideParty, 38333}))}));
    EXPECT_EQ(host.takeTold("announced").size(), 1U);
    // And the end is seen, far behind what was read.
    call.sentAt(begin + 200000, {}, tcpFin | tcpAck);
    call.receivedAt(call.receivedSoFar, {}, tcpFin | tcpAck);
    EXPECT_EQ(host.takeTold("ended").size(), 1U);
}

TEST(Stream, OneConnectionCannotTakeAllThatIsHeld) {
    FullHost host(64); // 144 blocks
    const full_scope::Pool<full_scope::HeldBlock>& blocks = full_scope::state.streams.blocks;
    std::vector<TcpCall> greedy;
    for (uint16_t index = 0; index < 8; ++index) {
        greedy.emplace_back(host, EndpointKey{privateParty, static_cast<uint16_t>(50000 + index)},
                            called);
        greedy.back().sent({3, 0, 0xff, 0xff});
        for (int piece = 0; piece < 64; ++piece) {
            greedy.back().sent(Octets(1000, 0));
        }
    }
    EXPECT_LE(blocks.used, blocks.capacity - blocks.capacity / 4);
    // A call like others can still put its message together.
    TcpCall call(host, {otherPrivateParty, 50000}, called);
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({otherPrivateParty, 5000})})}}})});
    const auto middle = message.begin() + 20;
    call.sent({message.begin(), middle});
    call.sent({middle, message.end()});
    EXPECT_EQ(host.takeAsked().size(), 1U);
}

TEST(Stream, FramingIsLostForGoodButWhatWasWrittenIsRepeated) {
    FullHost host;
    TcpCall call(host, caller, called);
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})});
    const Octets after = call.sent(message);
    EXPECT_NE(after, message);
    call.sent(Octets(10, 'A'));
    EXPECT_EQ(call.sent(message), message);
    EXPECT_EQ(call.sentAt(0, message), after);
    // Not over other octets than those that were there.
    Octets other = after;
    for (size_t index = 0; index < message.size(); ++index) {
        other[index] = after[index] == message[index] ? message[index] : 0x55;
    }
    EXPECT_EQ(call.sentAt(0, other), other);
}

TEST(Stream, IdleConnectionIsSmall) {
    EXPECT_LE(sizeof(full_scope::Connection), 256U);
    FullHost host;
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    EXPECT_EQ(full_scope::state.streams.blocks.used, 0U);
}

} // namespace
