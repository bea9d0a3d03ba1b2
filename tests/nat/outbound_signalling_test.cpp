// Call signalling of calls that private hosts place: which connections are followed, and how far a
// broken message gets.

#include <gtest/gtest.h>

#include "nat/listed/outbound_signalling.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

const TestAddress calledControl = ipv4(outsideParty, OutboundCall::controlPort);

size_t activeCalls() {
    return FreshState::count(callSignalPool.activeList);
}

size_t activeControls() {
    return FreshState::count(controlChannelPool.activeList);
}

class OutboundSignalling : public testing::Test {
protected:
    MemoryHost host;
    OutboundCall call{host};
};

TEST_F(OutboundSignalling, FollowsTheAnnouncedControlChannel) {
    for (const Answer kind :
         {Answer::callProceeding, Answer::connect, Answer::alerting, Answer::progress}) {
        const auto port = static_cast<uint16_t>(40000 + static_cast<int>(kind));
        call.fromCalled(q931({answer(kind, ipv4(outsideParty, port))}, fromHex("a1 0403808082")));
        const ControlChannelConnection* control = findByRemoteEndpoint({outsideParty, port});
        ASSERT_NE(control, nullptr) << port;
        EXPECT_EQ(control->publicAddress, MemoryHost::publicAddress);
        EXPECT_EQ(control->callHostRecord, call.signallingRecord);
        EXPECT_EQ(findByOutsideFlow(call.called.flow())->controlChannel, control);
    }
    EXPECT_EQ(host.takeLog("outside").size(), 4U);

    // The same address again, IPv6, and none at all.
    const size_t before = activeControls();
    call.fromCalled(q931({answer(Answer::connect, ipv4(outsideParty, 40001))}));
    call.fromCalled(q931({answer(Answer::connect, ipv6)}));
    call.fromCalled(q931({answer(Answer::connect, std::nullopt)}));
    EXPECT_EQ(activeControls(), before);

    // An address that another call announced stays that call's.
    Stream other({outsideParty, MemoryHost::publicAddress, 1720, 50001}, 1);
    Segment accept = other.next({});
    accept.flags = tcpSyn | tcpAck;
    host.receive(accept);
    host.receive(other.next(q931({answer(Answer::connect, ipv4(outsideParty, 40001))})));
    EXPECT_EQ(findByOutsideFlow(other.flow())->controlChannel, nullptr);
    EXPECT_EQ(activeControls(), before);
}

TEST_F(OutboundSignalling, EndsWithTheCalledPartysReleaseComplete) {
    call.announceControl();
    // The caller's own does not end it; the called party's does, in the segment that completes it.
    call.fromCaller(q931({releaseComplete()}));
    EXPECT_EQ(activeCalls(), 1U);
    const Octets release = q931({releaseComplete()});
    call.fromCalled({release.begin(), release.begin() + 20});
    EXPECT_EQ(activeCalls(), 1U);
    call.fromCalled({release.begin() + 20, release.end()});
    EXPECT_EQ(activeCalls(), 0U);
    EXPECT_EQ(activeControls(), 1U);
}

// The last message of a segment counts, whichever it is.
TEST_F(OutboundSignalling, GoesOnWhenAMessageFollowsTheReleaseComplete) {
    for (const Octets& last : {answer(Answer::progress, std::nullopt), emptyBody()}) {
        call.fromCalled(joined(q931({releaseComplete()}), q931({last})));
        EXPECT_EQ(activeCalls(), 1U);
    }
}

TEST_F(OutboundSignalling, NeedsTheConnectionToBeAcceptedFirst) {
    Stream stranger({outsideParty, MemoryHost::publicAddress, 1720, 50001}, 1);
    host.receive(stranger.next(q931({answer(Answer::connect, calledControl)})));
    EXPECT_EQ(activeCalls(), 1U);
    EXPECT_EQ(activeControls(), 0U);

    // Without a host record the caller's segments are not recognised.
    Segment accept = stranger.next({});
    accept.flags = tcpSyn | tcpAck;
    host.receive(accept);
    EXPECT_EQ(activeCalls(), 2U);
    EXPECT_EQ(findByInsideFlow({privateParty, outsideParty, 50001, 1720}), nullptr);
}

TEST_F(OutboundSignalling, GivesUpWhenEveryRecordIsBusy) {
    const auto accept = [&](uint16_t port) {
        return ReceiveCallSignalSegment({outsideParty, MemoryHost::publicAddress, 1720, port},
                                        nullptr, 0, 1);
    };
    for (uint16_t port = 1; port < poolSize; ++port) {
        EXPECT_EQ(accept(port), 0);
    }
    host.clock.advance(60);
    EXPECT_EQ(accept(1000), -101);
    host.clock.advance(1);
    EXPECT_EQ(accept(1000), 0);
    EXPECT_EQ(activeCalls(), 1U);
}

// No free control record: the announcement is not followed, the call is. Records that were idle for
// long enough are free again.
TEST_F(OutboundSignalling, LeavesControlChannelsBeyondThePool) {
    for (uint16_t port = 1; port <= poolSize + 1; ++port) {
        call.fromCalled(q931({answer(Answer::alerting, ipv4(outsideParty, port))}));
    }
    EXPECT_EQ(activeControls(), poolSize);
    EXPECT_EQ(findByRemoteEndpoint({outsideParty, poolSize + 1}), nullptr);
    EXPECT_EQ(activeCalls(), 1U);

    host.clock.advance(61);
    call.fromCalled(q931({answer(Answer::alerting, ipv4(outsideParty, poolSize + 1))}));
    EXPECT_EQ(activeControls(), 1U);
    EXPECT_NE(findByRemoteEndpoint({outsideParty, poolSize + 1}), nullptr);
}

// A received message whose element reaches beyond it stays and blocks its stream.
TEST_F(OutboundSignalling, StopsAtABrokenReceivedMessage) {
    Octets broken = q931({answer(Answer::connect, calledControl)});
    broken[11] = static_cast<uint8_t>(broken[11] + 1); // length of the User-user element
    const CallSignalConnection& record = *findByOutsideFlow(call.called.flow());
    call.fromCalled(broken);
    call.fromCalled(q931({releaseComplete()}));
    EXPECT_EQ(activeCalls(), 1U);
    EXPECT_GT(record.stream.heldBytes, broken.size());
    EXPECT_EQ(activeControls(), 0U);
}

// Such a message is read again with every segment behind it, none of which holds its octets.
TEST_F(OutboundSignalling, DoesNotSeekABrokenMessageInLaterSegments) {
    setRewriteMode(REWRITE_LOSSLESS);
    Octets broken = joined(q931({answer(Answer::connect, calledControl)}), fromHex("7e000205"));
    broken[3] = static_cast<uint8_t>(broken[3] + 4);
    Segment late = call.called.next(broken);
    host.receive(late);
    host.receive(call.called.next({0}));
    late.payload = {broken[0]};
    host.receive(late);
    late.sequence -= 1; // before all that is held
    host.receive(late);
    EXPECT_EQ(activeControls(), 1U);
    EXPECT_EQ(host.takeLog("").size(), 1U);
}

// Messages of nine octets or less have no elements; the stream goes on behind them.
TEST_F(OutboundSignalling, StepsOverShortReceivedMessages) {
    for (size_t length = 4; length <= 9; ++length) {
        Octets octets = tpkt(Octets(length - 4, 0x7e));
        const Octets next =
            q931({answer(Answer::connect, ipv4(outsideParty, static_cast<uint16_t>(length)))});
        octets.insert(octets.end(), next.begin(), next.end());
        call.fromCalled(octets);
        EXPECT_EQ(activeControls(), length - 3);
    }
}

class SentSetup : public testing::TestWithParam<RewriteMode> {
protected:
    SentSetup() { setRewriteMode(GetParam()); }

    MemoryHost host;
    OutboundCall call{host};
    const Octets proposal =
        setup({.fastStart = {{fastStartElement({.forwardControl = ipv4(privateParty, 5001)})}}});
};

TEST_P(SentSetup, PassesUnlessItFillsItsSegment) {
    Octets trailing = q931({proposal});
    trailing.push_back(0);
    Octets missing = q931({proposal});
    missing.pop_back();
    for (const Octets& segment : {trailing, missing, fromHex("0300"), fromHex("03000004"),
                                  fromHex("030000090802000105"), Octets{}}) {
        const Delivered delivered = call.fromCaller(segment);
        EXPECT_EQ(delivered.payload, segment);
        EXPECT_FALSE(delivered.changed);
    }
    EXPECT_TRUE(host.log.empty());
}

// Both elements are translated; when a third one is broken the segment no longer counts as changed.
TEST_P(SentSetup, HandlesEveryUserUserElement) {
    const Delivered two = call.fromCaller(q931({proposal, proposal}, fromHex("a1")));
    EXPECT_TRUE(two.changed);
    EXPECT_EQ(host.takeLog("media").size(), 2U);

    Octets broken = q931({proposal});
    const Octets beyond = fromHex("7e0000");
    broken.insert(broken.end(), beyond.begin(), beyond.end());
    broken[3] = static_cast<uint8_t>(broken[3] + beyond.size());
    const Delivered delivered = call.fromCaller(broken);
    EXPECT_FALSE(delivered.changed);
    EXPECT_EQ(host.takeLog("media").size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(, SentSetup, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
