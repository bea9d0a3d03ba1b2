// Many calls, at once and one after the other: what they cost, what is remembered, who gives way.

#include <gtest/gtest.h>

#include "nat/full/scope.h"
#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

constexpr EndpointKey called = {outsideParty, 1720};

void playCall(FullHost& host, uint32_t number, bool releases) {
    const auto port = static_cast<uint16_t>(2000 + number % 30000);
    const EndpointKey inside = {privateParty + number / 30000, port};
    const EndpointKey control = {outsideParty, static_cast<uint16_t>(30000 + number % 30000)};
    ControlledCall controlled(host, inside, control, number * 7919);
    auto& [call, h245] = controlled;
    const EndpointKey media = {inside.address, port};
    const Octets open = openChannel(media);
    ASSERT_EQ(firstRewritten(open, h245.sent(open)), FullHost::publicOf(media)) << number;
    if (releases) {
        h245.close();
        call.sent(q931({releaseComplete()}));
        call.close();
    }
}

// Records of a kind, in octets.
template <typename Record> size_t octetsOf(const full_scope::Pool<Record>& pool) {
    return pool.used * sizeof(Record);
}

TEST(Load, ACallWithNothingInFlightIsSmall) {
    FullHost host(1000);
    constexpr uint32_t calls = 100;
    for (uint32_t number = 0; number < calls; ++number) {
        playCall(host, number, false);
    }
    const full_scope::State& state = full_scope::state;
    const size_t records = octetsOf(state.calls) + octetsOf(state.connections) +
                           octetsOf(state.mappings) + octetsOf(state.claims) +
                           octetsOf(state.announced) + octetsOf(state.streams.edits) +
                           octetsOf(state.streams.blocks);
    EXPECT_LE(records / calls, 1024U);
    RecordProperty("octets", static_cast<int>(records / calls));
    full_scope::leave();
    EXPECT_TRUE(full_scope::enter(1000));
    RecordProperty("octetsOfRoom",
                   static_cast<int>(full_scope::state.streams.scratch -
                                    static_cast<uint8_t*>(full_scope::state.memory)) /
                       1000);
}

Octets setupWithChannels(uint16_t count) {
    std::vector<Octets> channels;
    for (uint16_t channel = 0; channel < count; ++channel) {
        const auto media = static_cast<uint16_t>(5000 + 2 * channel);
        channels.push_back(fastStartElement({true, at({privateParty, media})}));
    }
    return q931({setup({{}, channels})});
}

TEST(Load, RunningCallsShareWhatIsRemembered) {
    FullHost host(64); // 1,024 changes
    const full_scope::Pool<full_scope::Edit>& edits = full_scope::state.streams.edits;
    const Octets message = setupWithChannels(20);
    std::vector<TcpCall> calls;
    const auto send = [&](int times) {
        const auto port = static_cast<uint16_t>(50000 + calls.size());
        TcpCall& call = calls.emplace_back(host, EndpointKey{privateParty, port}, called);
        for (int time = 0; time < times; ++time) {
            call.sent(message);
        }
    };
    const auto repeatsLast = [&] {
        TcpCall& call = calls.back();
        return call.sentAt(call.sentSoFar - message.size(), message) != message;
    };
    send(10);
    EXPECT_EQ(edits.used, 128U); // of one stream
    EXPECT_TRUE(repeatsLast());
    for (int call = 1; call < 7; ++call) {
        send(7);
    }
    send(5);
    send(2); // the last of them in place of the first of its own
    EXPECT_EQ(edits.used, 1024U);
    const Octets translated = calls[0].sentAt(calls[0].sentSoFar - message.size(), message);
    EXPECT_EQ(calls.back().sentAt(message.size(), message), translated);
    // Nothing is left for one more until others have been quiet for a minute.
    host.clock.advance(60);
    send(1);
    EXPECT_FALSE(repeatsLast());
    host.clock.advance(1);
    send(1);
    EXPECT_TRUE(repeatsLast());
}

TEST(Load, QuietConnectionsGiveWay) {
    enum class Kind { silent, spoken, afterItsCall };
    struct Case {
        Kind kind;
        uint32_t seconds; // more than so many
    };
    for (const Case& each :
         {Case{Kind::silent, 10}, Case{Kind::spoken, 180}, Case{Kind::afterItsCall, 10}}) {
        SCOPED_TRACE(static_cast<int>(each.kind));
        FullHost host(1); // 18 connections
        std::vector<TcpCall> connections;
        uint16_t port = 40000;
        const auto speak = [](TcpCall& call) {
            call.sent(plainSetup());
            call.received(q931({answer(Answer::alerting, {})}));
        };
        while (connections.size() < (each.kind == Kind::afterItsCall ? 17 : 18)) {
            if (each.kind == Kind::afterItsCall) {
                ControlledCall call(host, {privateParty, ++port});
                call.h245.sent(openChannel({privateParty, 5000}));
                call.h245.received(openChannel({outsideParty, 6000}));
                call.call.sent(q931({releaseComplete()}));
                call.call.close();
                connections.push_back(call.h245);
                continue;
            }
            connections.emplace_back(host, EndpointKey{privateParty, ++port}, called);
            if (each.kind == Kind::spoken) {
                speak(connections.back());
            }
        }
        while (full_scope::state.overAges.oldest != 0) {
            TcpCall running(host, {privateParty, ++port}, called);
            speak(running);
        }
        const auto isFollowed = [&] {
            TcpCall call(host, {privateParty, ++port}, called);
            host.takeTold();
            call.sent(plainSetup());
            return !host.takeTold("message").empty();
        };
        host.clock.advance(each.seconds);
        EXPECT_FALSE(isFollowed());
        // Traffic renews: the one without gives way, wherever it stands.
        for (size_t index = 0; index + 1 < connections.size(); ++index) {
            connections[index].sentAt(connections[index].sentSoFar, {});
        }
        host.clock.advance(1);
        EXPECT_TRUE(isFollowed());
        EXPECT_FALSE(isFollowed());
    }
}

TEST(Load, OctetsAreRepeatedAfterAnyNumberOfCalls) {
    FullHost host(4); // 544 changes of octets are remembered, of 24 connections
    const Octets message = setupWithChannels(40);
    for (uint16_t number = 0; number < 200; ++number) {
        SCOPED_TRACE(number);
        const auto port = static_cast<uint16_t>(20000 + number);
        TcpCall call(host, {privateParty, port}, called);
        const Octets after = call.sent(message);
        ASSERT_NE(after, message);
        ASSERT_EQ(call.sentAt(0, message), after);
        call.close();
        ASSERT_EQ(call.sentAt(0, message), after);
    }
}

TEST(Load, ThousandCallsAtOnceAndTenThousandInSequence) {
    FullHost host(1000);
    for (uint32_t number = 0; number < 1000; ++number) {
        playCall(host, number, false);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(full_scope::state.calls.used, 1000U);
    {
        // One more than there is room for passes as it is; nobody is thrown out for it.
        TcpCall call(host, {privateParty, 1999}, {outsideParty, 1720});
        const Octets connect = connectWith({privateParty, 47231});
        EXPECT_EQ(call.sent(connect), connect);
        EXPECT_EQ(full_scope::state.calls.used, 1000U);
        EXPECT_EQ(host.takeTold("left").size(), 1U);
        // Calls that were quiet for an hour give way.
        host.clock.advance(3600);
        const Octets again = connectWith({privateParty, 47233});
        EXPECT_NE(call.sent(again), again);
        call.close();
    }
    full_scope::leave();
    EXPECT_TRUE(full_scope::enter(1000));
    for (uint32_t number = 0; number < 10000; ++number) {
        playCall(host, number, true);
        ASSERT_FALSE(HasFailure());
        host.told.clear();
        host.asked.clear();
    }
    const full_scope::State& state = full_scope::state;
    EXPECT_EQ(state.calls.used + state.mappings.used + state.claims.used + state.announced.used +
                  state.streams.blocks.used,
              0U);
    // Connections that are over stay for segments that come again, until their records are needed.
    full_scope::leave();
    EXPECT_TRUE(full_scope::enter(1000));
    EXPECT_EQ(recordsInUse(), 0U);
}

} // namespace
