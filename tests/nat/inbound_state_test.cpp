#include "nat/listed/inbound_state.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/fake_clock.h"

namespace {

constexpr uint32_t hostA = 0x0A000005;
constexpr uint32_t hostB = 0x0A000006;
constexpr uint32_t caller = 0xC0000201;
constexpr uint32_t otherCaller = 0xC0000202;

uint32_t processed = 0;

MessageOutcome markChanged(StreamBuffer& stream, void* rewrite) {
    ++processed;
    if (*static_cast<bool*>(rewrite)) {
        stream.messageChanged = 1;
    }
    return MessageOutcome::done;
}

class InboundStateTest : public testing::Test {
protected:
    InboundStateTest() {
        ResetInboundMapping();
        processed = 0;
    }

    uint32_t append(std::vector<uint8_t> payload, uint32_t sequence) {
        return AppendInboundSegment(
            state.signallingToRemote,
            {payload.data(), static_cast<uint32_t>(payload.size()), sequence},
            {markChanged, &rewrite});
    }

    FakeClock clock{1000};
    InboundMappingState& state = inboundMappingState;
    bool rewrite = true;
};

TEST_F(InboundStateTest, ActivationKeepsOnlyALiveCallOfTheSameHost) {
    const struct {
        uint32_t address;
        uint32_t secondsLater;
        bool kept;
    } cases[] = {{hostA, 0, true},  {hostA, 60, true},        {hostA, 61, false},
                 {hostB, 0, false}, {hostA, 0u - 500u, true}, {0, 0, false}};
    for (const auto& tried : cases) {
        clock.set(1000);
        ActivateInboundMapping(hostA);
        BeginInboundCall(caller, 4000);
        append({3, 0}, 100);
        clock.advance(tried.secondsLater);
        ActivateInboundMapping(tried.address);
        EXPECT_EQ(state.publishedAddress, tried.address);
        EXPECT_EQ(state.remoteAddress, tried.kept ? caller : 0u) << tried.secondsLater;
        EXPECT_EQ(state.signallingToRemote.heldBytes, tried.kept ? 2u : 0u);
        ResetInboundMapping();
    }
    // Nor does a state without a call count as busy in years when time is far from 0.
    clock.set(0x90000000);
    ActivateInboundMapping(hostA);
    BeginInboundCall(caller, 4000);
    EXPECT_EQ(state.remoteAddress, caller);
    ResetInboundMapping();
    clock.set(1000);
    ActivateInboundMapping(hostA);
    // No traffic yet: the same address resets again.
    ActivateInboundMapping(hostA);
    state.publishedControlPort = 5;
    ActivateInboundMapping(hostA);
    EXPECT_EQ(state.publishedControlPort, 0);
}

TEST_F(InboundStateTest, SynStartsACallUnlessAnotherPartyIsTalking) {
    ActivateInboundMapping(hostA);
    BeginInboundCall(caller, 4000);
    append({3, 0}, 100);
    clock.set(1060);
    BeginInboundCall(otherCaller, 5000);
    EXPECT_EQ(state.remoteAddress, caller);

    BeginInboundCall(caller, 4001);
    EXPECT_EQ(state.remoteSignallingPort, 4001);
    EXPECT_EQ(state.signallingToRemote.heldBytes, 0u);
    EXPECT_EQ(state.publishedAddress, hostA);
    EXPECT_EQ(state.lastActivity, 1060u);

    clock.set(1121);
    BeginInboundCall(otherCaller, 5000);
    EXPECT_EQ(state.remoteAddress, otherCaller);
    EXPECT_EQ(state.remoteSignallingPort, 5000);
}

TEST_F(InboundStateTest, AppendReportsARewriteOnceAndRenewsActivity) {
    EXPECT_EQ(append({}, 100), 0u);
    EXPECT_EQ(state.lastActivity, 0u);
    EXPECT_EQ(state.signallingToRemote.baseSequence, 0u);

    EXPECT_EQ(append({3, 0, 0, 5}, 100), 0u);
    EXPECT_EQ(state.lastActivity, 1000u);
    EXPECT_EQ(append({1, 3, 0, 0, 4, 3}, 104), 1u);
    EXPECT_EQ(processed, 2u);
    rewrite = false;
    EXPECT_EQ(append({0, 0, 4}, 110), 0u);
    EXPECT_EQ(processed, 3u);

    clock.set(1010);
    EXPECT_EQ(append({3, 0, 0, 5}, 100), 0u) << "nothing new";
    EXPECT_EQ(processed, 3u);
    EXPECT_EQ(state.lastActivity, 1010u);
}

TEST_F(InboundStateTest, CapacityIs4000AndEarlierSegmentsTakeNothingAway) {
    std::vector<uint8_t> beginning(3500, 7);
    beginning[2] = 0x0F;
    beginning[3] = 0xA0; // a message of 4000
    EXPECT_EQ(append(beginning, 100), 0u);
    EXPECT_EQ(append(beginning, 100), 0u) << "the held octets do not count against it";
    EXPECT_EQ(state.signallingToRemote.heldBytes, 3500u);
    beginning.resize(3000);
    EXPECT_EQ(append(beginning, 100), 0u);
    EXPECT_EQ(state.signallingToRemote.heldBytes, 3500u);

    // Neither does one that begins before what is held.
    EXPECT_EQ(append(std::vector<uint8_t>(4101, 1), 0), 0u);
    EXPECT_EQ(append(std::vector<uint8_t>(5000, 1), 0), 0u);
    EXPECT_EQ(state.signallingToRemote.heldBytes, 3500u);

    clock.set(1020);
    EXPECT_EQ(append(std::vector<uint8_t>(1001, 1), 3100), 0u);
    EXPECT_EQ(state.signallingToRemote.heldBytes, 3500u);
    EXPECT_EQ(state.lastActivity, 1020u) << "refused, and activity all the same";
    EXPECT_EQ(append(std::vector<uint8_t>(1000, 1), 3100), 1u);
    EXPECT_EQ(processed, 1u);
    EXPECT_EQ(state.signallingToRemote.data[4000], 0);
}

} // namespace
