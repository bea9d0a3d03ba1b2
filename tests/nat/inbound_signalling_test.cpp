// Call signalling of the call to the published host.

#include <gtest/gtest.h>

#include "nat/listed/inbound_state.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

constexpr uint32_t publicAddress = MemoryHost::publicAddress;

Octets setupTo(const TestAddress& address) {
    return q931({setup({.destCallSignalAddress = address})}, fromHex("a1 0403808082"));
}

class InboundSignalling : public testing::TestWithParam<RewriteMode> {
protected:
    InboundSignalling() { setRewriteMode(GetParam()); }

    static void expect(const Delivered& delivered, const Octets& payload, bool changed) {
        EXPECT_EQ(toHex(delivered.payload), toHex(payload));
        EXPECT_EQ(delivered.changed, changed);
    }

    MemoryHost host;
    InboundCall call{host};
};

TEST_P(InboundSignalling, SetupNamesThePublishedHost) {
    expect(call.fromRemote(setupTo(ipv4(publicAddress, 1720))), setupTo(ipv4(privateParty, 1720)),
           true);
    for (const Octets& message : {setupTo(ipv6), q931({setup({})}), q931({releaseComplete()}),
                                  q931({answer(Answer::connect, ipv4(outsideParty, 5))})}) {
        expect(call.fromRemote(message), message, false);
    }
    EXPECT_TRUE(host.log.empty());
}

TEST_P(InboundSignalling, SetupWithoutPublishedHost) {
    TarvexActivateInboundMapping(0);
    Segment syn = call.remote.next({});
    syn.flags = tcpSyn;
    host.receive(syn);
    expect(call.fromRemote(setupTo(ipv4(publicAddress, 1720))), setupTo(ipv4(0, 1720)), true);
}

TEST_P(InboundSignalling, ConnectNamesThePublicControlAddress) {
    const Octets sent = q931({answer(Answer::connect, ipv4(privateParty, 5000))});
    const Octets translated =
        q931({answer(Answer::connect, ipv4(publicAddress, MemoryHost::firstControlPort))});
    // Every Connect asks anew; the address in the message is not what the host is asked for.
    for (const TestAddress& address : {ipv4(privateParty, 5000), ipv4(0x0a000006, 5000)}) {
        expect(call.fromPublished(q931({answer(Answer::connect, address)})), translated, true);
        EXPECT_EQ(host.takeLog(""),
                  std::vector<std::string>{"control 10.0.0.5:5000 > 203.0.113.9"});
        EXPECT_EQ(inboundMappingState.publishedControlPort, 5000);
    }

    for (const uint8_t refusal : {uint8_t{1}, uint8_t{2}, uint8_t{255}}) {
        host.controlRefusal = refusal;
        const auto port = static_cast<uint16_t>(6000 + refusal);
        const Octets refused = q931({answer(Answer::connect, ipv4(privateParty, port))});
        expect(call.fromPublished(refused), refused, false);
        EXPECT_EQ(inboundMappingState.publishedControlPort, port);
    }
}

TEST_P(InboundSignalling, OtherAnswersPass) {
    for (const Octets& message :
         {q931({answer(Answer::alerting, ipv4(privateParty, 5000))}),
          q931({answer(Answer::callProceeding, ipv4(privateParty, 5000))}),
          q931({answer(Answer::connect, ipv6)}), q931({answer(Answer::connect, std::nullopt)})}) {
        expect(call.fromPublished(message), message, false);
    }
    EXPECT_TRUE(host.log.empty());
    EXPECT_EQ(inboundMappingState.publishedControlPort, 0);
}

TEST_P(InboundSignalling, OnlyTheCurrentPartyIsFollowed) {
    const Octets message = setupTo(ipv4(publicAddress, 1720));
    Stream otherPort({outsideParty, publicAddress, 50001, 1720}, 1);
    Stream otherParty({gatekeeper, publicAddress, 50000, 1720}, 1);
    for (Stream* stream : {&otherPort, &otherParty}) {
        expect(host.receive(stream->next(message)), message, false);
    }
    // Its SYN is ignored while the call is active, and takes over afterwards. What the SYN carries
    // is not a part of the stream.
    Segment syn = otherParty.next(message);
    syn.flags = tcpSyn;
    host.receive(syn);
    expect(host.receive(otherParty.next(message)), message, false);
    host.clock.advance(61);
    expect(host.receive(syn), message, false);
    expect(host.receive(otherParty.next(message)), setupTo(ipv4(privateParty, 1720)), true);
}

// The first element is translated before the broken one is met; then the message blocks its stream.
TEST_P(InboundSignalling, StopsAtABrokenMessage) {
    Octets message = q931({setup({.destCallSignalAddress = ipv4(publicAddress, 1720)})});
    const Octets beyond = fromHex("7effff");
    message.insert(message.end(), beyond.begin(), beyond.end());
    message[3] = static_cast<uint8_t>(message[3] + beyond.size());
    Octets translated = q931({setup({.destCallSignalAddress = ipv4(privateParty, 1720)})});
    translated[3] = message[3];
    translated.insert(translated.end(), beyond.begin(), beyond.end());
    expect(call.fromRemote(message), translated, true);
    EXPECT_EQ(inboundMappingState.signallingFromRemote.heldBytes, message.size());

    const Octets next = setupTo(ipv4(publicAddress, 1720));
    expect(call.fromRemote(next), next, false);
}

TEST_P(InboundSignalling, HandlesEveryUserUserElement) {
    const Octets toNat = setup({.destCallSignalAddress = ipv4(publicAddress, 1720)});
    const Octets toHost = setup({.destCallSignalAddress = ipv4(privateParty, 1720)});
    expect(call.fromRemote(q931({toNat, {}, fromHex("ff"), toNat})),
           q931({toHost, {}, fromHex("ff"), toHost}), true);
}

INSTANTIATE_TEST_SUITE_P(, InboundSignalling, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
