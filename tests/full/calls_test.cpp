// Calls of several hosts: inbound and outbound, one after the other and at once, transferred,
// routed by a gatekeeper; and what an observer is told of them.

#include <gtest/gtest.h>

#include <memory>

#include "nat/full/endpoints.h"
#include "nat/full/scope.h"
#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;
using Lines = std::vector<std::string>;

namespace {

constexpr EndpointKey caller = {privateParty, 50000};
constexpr EndpointKey called = {outsideParty, 1720};
constexpr EndpointKey keeper = {gatekeeper, 1719};

void registerHost(FullHost& host, const EndpointKey& ras, const EndpointKey& signalling) {
    host.discover(ras);
    host.sendDatagram(ras, keeper, registrationRequest({at(signalling)}, {at(ras)}));
}

TEST(Calls, OutboundWithSeparateControlConnection) {
    FullHost host;
    {
        ControlledCall controlled(host);
        auto& [call, h245] = controlled;
        h245.sent(openChannel({privateParty, 5000}));
        h245.received(openChannel({outsideParty, 6000}));
        h245.sent(openLogicalChannelAck({true, at({privateParty, 5002})}));
        EXPECT_EQ(host.takeAsked(),
                  (Lines{"media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:5002 > 1.1.1.1"}));
        // Released signalling, then the H.245 connection goes.
        call.sent(q931({releaseComplete()}));
        EXPECT_EQ(h245.sent(openChannel({privateParty, 5004})), openChannel({privateParty, 5004}));
        // Also when another call has its record.
        TcpCall other(host, {privateParty, 50001}, called);
        other.sent(plainSetup());
        EXPECT_EQ(h245.sent(openChannel({privateParty, 5006})), openChannel({privateParty, 5006}));
        other.close();
        h245.close();
        call.close();
    }
    EXPECT_EQ(host.takeAsked(), Lines{});
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
    EXPECT_EQ(full_scope::state.calls.used, 0U);
}

TEST(Calls, TheControlConnectionCarriesACallWhoseSignallingIsClosed) {
    FullHost host;
    ControlledCall controlled(host);
    auto& [call, h245] = controlled;
    call.close();
    EXPECT_EQ(host.takeTold("ended"), Lines{});
    h245.sent(openChannel({privateParty, 5000}));
    EXPECT_EQ(host.takeAsked().size(), 1U);
    h245.close();
    EXPECT_EQ(host.takeTold("ended").size(), 1U);
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

TEST(Calls, InboundToThePublishedHostToRegisteredOnesAndToWhomeverTheHostForwards) {
    FullHost host;
    TarvexActivateInboundMapping(privateParty);
    registerHost(host, {otherPrivateParty, 1719}, {otherPrivateParty, 1720});
    const EndpointKey forwarded = {address(10, 0, 0, 7), 1720}; // nobody told the module of it
    uint16_t port = 40000;
    for (const EndpointKey& inside :
         {EndpointKey{privateParty, 1720}, EndpointKey{otherPrivateParty, 1720}, forwarded}) {
        SCOPED_TRACE(text(inside));
        host.takeAsked();
        host.takeTold();
        TcpCall call(host, inside, {outsideParty, port++}, TcpCall::Opened::byOutside);
        call.received(plainSetup());
        const EndpointKey listening = {inside.address, 47231};
        const Octets connect = connectWith(listening);
        EXPECT_EQ(firstRewritten(connect, call.sent(connect)), FullHost::publicOf(listening));
        TcpCall h245(host, listening, {outsideParty, port++}, TcpCall::Opened::byOutside);
        h245.received(openChannel({outsideParty, 6000}));
        h245.sent(openLogicalChannelAck({true, at({inside.address, 5000})}));
        EXPECT_EQ(host.takeAsked(),
                  (Lines{"control " + text(listening) + " > 1.1.1.1",
                         "media " + text({inside.address, 5000}) + " > 1.1.1.1"}));
        EXPECT_EQ(host.takeTold("message").size(), 4U);
        call.received(q931({releaseComplete()}));
    }
    EXPECT_EQ(full_scope::state.unplaced, 0U);
    TarvexActivateInboundMapping(0);
}

TEST(Calls, ForwardedByAnotherPortThanTheMappedOne) {
    // The host program forwards a port of its own choice to a listener that is mapped as well.
    FullHost host;
    registerHost(host, {privateParty, 1719}, {privateParty, 1720});
    const EndpointKey forwarded = {publicAddress, 1799};
    TcpCall call(host, {privateParty, 1720}, {outsideParty, 40000}, TcpCall::Opened::byOutside,
                 forwarded);
    // A segment that acknowledges nothing, or what was never sent, does not show where it is.
    call.receivedAt(0, plainSetup(), 0);
    const size_t sentSoFar = std::exchange(call.sentSoFar, 0x10000000);
    call.receivedAt(0, plainSetup());
    call.sentSoFar = sentSoFar;
    EXPECT_EQ(host.takeTold("message received setup"), Lines{});
    call.received(plainSetup());
    call.sent(connectWith({privateParty, 47231}));
    EXPECT_EQ(host.takeTold("message received setup").size(), 1U);
    EXPECT_EQ(host.takeAsked().back(), "control 10.0.0.5:47231 > 1.1.1.1");
}

TEST(Calls, OneControlPortServesOneCallAfterTheOther) {
    FullHost host;
    for (uint16_t round = 0; round < 5; ++round) {
        ControlledCall controlled(host, {privateParty, static_cast<uint16_t>(50000 + round)});
        auto& [call, h245] = controlled;
        host.takeTold();
        h245.sent(openChannel({privateParty, 5000}));
        EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:5000 > 1.1.1.1"});
        EXPECT_EQ(host.takeTold("rewritten").size(), 1U);
        if (round % 2 == 0) {
            h245.close();
        }
        call.received(q931({releaseComplete()}));
        EXPECT_EQ(host.takeTold("ended").size(), 1U);
        EXPECT_EQ(full_scope::state.mappings.used, 0U);
        EXPECT_EQ(full_scope::state.announced.used, 0U);
    }
}

TEST(Calls, OneControlPortServesTwoCallsAtOnce) {
    FullHost host;
    const EndpointKey control = {outsideParty, 38333};
    TcpCall one(host, caller, called);
    TcpCall other(host, {privateParty, 50001}, called);
    for (TcpCall* call : {&one, &other}) {
        call->sent(plainSetup());
        call->received(connectWith(control));
    }
    one.sent(q931({releaseComplete()}));
    TcpCall h245(host, {privateParty, 51000}, control);
    h245.sent(openChannel({privateParty, 5000}));
    EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:5000 > 1.1.1.1"});
}

TEST(Calls, TheSameListenerServesTheNextCallToo) {
    FullHost host;
    TarvexActivateInboundMapping(privateParty);
    const EndpointKey listening = {privateParty, 47231};
    for (uint16_t round = 0; round < 3; ++round) {
        const auto port = static_cast<uint16_t>(40000 + 2 * round);
        TcpCall call(host, {privateParty, 1720}, {outsideParty, port}, TcpCall::Opened::byOutside);
        call.received(plainSetup());
        call.sent(connectWith(listening));
        TcpCall h245(host, listening, {outsideParty, static_cast<uint16_t>(port + 1)},
                     TcpCall::Opened::byOutside);
        h245.sent(openChannel({privateParty, 5000}));
        EXPECT_EQ(host.takeAsked().size(), 2U);
        call.sent(q931({releaseComplete()}));
    }
    TarvexActivateInboundMapping(0);
}

TEST(Calls, AListenerThatOutlivesItsCallServesNoOther) {
    FullHost host;
    const EndpointKey ras = {privateParty, 1719};
    const EndpointKey listening = {privateParty, 47231};
    host.discover(ras);
    // The registration needs the mapping too, and keeps it.
    host.sendDatagram(ras, keeper, messageWith("perCallInfo[0].h245.sendAddress", listening));
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    call.sent(connectWith(listening));
    call.sent(q931({releaseComplete()}));
    TcpCall other(host, {privateParty, 50001}, called);
    other.sent(plainSetup());
    TcpCall h245(host, listening, {outsideParty, 40000}, TcpCall::Opened::byOutside);
    EXPECT_EQ(h245.sent(openChannel({privateParty, 5000})), openChannel({privateParty, 5000}));
    EXPECT_EQ(host.takeTold("message sent openLogicalChannel").size(), 1U);
}

TEST(Calls, SeveralAtOnceOnOneConnection) {
    FullHost host;
    TcpCall call(host, caller, called);
    for (uint8_t number = 1; number <= 3; ++number) {
        const auto port = static_cast<uint16_t>(5000 + 2 * number);
        call.sent(
            q931({setup({{}, {{fastStartElement({true, at({privateParty, port})})}}, number})}));
    }
    EXPECT_EQ(host.takeTold("began").size(), 3U);
    EXPECT_EQ(full_scope::state.mappings.used, 3U);
    call.sent(q931({setup({{}, {}, 1})})); // of the first one again
    EXPECT_EQ(host.takeTold("began"), Lines{});
    call.sent(q931({releaseComplete()})); // names no call: the newest
    EXPECT_EQ(full_scope::state.mappings.used, 2U);
    call.close();
    EXPECT_EQ(host.takeTold("ended").size(), 3U);
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

TEST(Calls, NothingBeginsAfterARelease) {
    FullHost host;
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    call.received(q931({releaseComplete()}));
    call.sent(q931({releaseComplete()})); // both released at once
    call.received(connectWith({outsideParty, 38333}));
    const Lines told = host.takeTold();
    const auto timesTold = [&](const char* word) {
        return std::count_if(told.begin(), told.end(),
                             [&](const std::string& line) { return line.starts_with(word); });
    };
    EXPECT_EQ(timesTold("began"), 1);
    EXPECT_EQ(timesTold("announced"), 0);
    call.sent(plainSetup()); // the connection is used again
    EXPECT_EQ(host.takeTold("began").size(), 1U);
}

TEST(Calls, NothingBeginsOnAConnectionThatIsOver) {
    FullHost host;
    TcpCall call(host, caller, called);
    call.sentAt(0, {}, tcpRst);
    call.received(plainSetup()); // it was under way
    EXPECT_EQ(host.takeTold(), Lines{"message received setup"});
    EXPECT_EQ(full_scope::state.calls.used, 0U);
}

TEST(Calls, TransferredByFacilityToAnotherPort) {
    FullHost host;
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    const EndpointKey target = {address(198, 51, 100, 7), 17200};
    call.received(q931({messageWith("facility.alternativeAddress", target)}));
    call.close();
    TcpCall transferred(host, {privateParty, 50001}, target);
    transferred.sent(q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})}));
    EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:5000 > 1.1.1.1"});
}

TEST(Calls, SignallingGoesWhereTheGatekeeperTells) {
    struct Case {
        const char* request;
        const char* answer;
    };
    for (const Case& each :
         {Case{"admissionRequest.srcCallSignalAddress", "admissionConfirm.destCallSignalAddress"},
          Case{"admissionRequest.srcCallSignalAddress", "admissionReject.callSignalAddress"},
          Case{"locationRequest.replyAddress", "locationConfirm.callSignalAddress"},
          Case{"registrationRequest.rasAddress", "registrationConfirm.callSignalAddress"}}) {
        SCOPED_TRACE(each.answer);
        FullHost host;
        const EndpointKey ras = {privateParty, 34567}; // any port will do
        host.discover(ras);
        const EndpointKey routed = {gatekeeper, 1721};
        host.sendDatagram(ras, keeper, messageWith(each.request, called));
        host.receiveDatagram(keeper, FullHost::publicOf(ras), messageWith(each.answer, routed));
        TcpCall call(host, caller, routed);
        host.takeAsked();
        call.sent(q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})}));
        EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:5000 > 1.1.1.1"});
    }
}

TEST(Calls, EndpointsThatWereToldLongestAgoGiveWay) {
    FullHost host(1); // 34 endpoints
    const EndpointKey ras = {privateParty, 1719};
    host.discover(ras);
    const auto tell = [&](uint16_t port) {
        host.sendDatagram(ras, keeper,
                          messageWith("admissionRequest.srcCallSignalAddress", called));
        host.receiveDatagram(
            keeper, FullHost::publicOf(ras),
            messageWith("admissionConfirm.destCallSignalAddress", {gatekeeper, port}));
    };
    for (uint16_t port = 2000; port < 2034; ++port) {
        tell(port);
    }
    tell(2000); // again
    tell(1720); // is followed anyway
    tell(3000);
    for (const auto& [port, told] : {std::pair<uint16_t, bool>{2000, true},
                                     {1720, false},
                                     {2001, false},
                                     {2002, true},
                                     {3000, true}}) {
        EXPECT_EQ(full_scope::findAnnounced({gatekeeper, port}) != 0, told) << port;
    }
    // One call cannot push out those of others: it has sixteen.
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    for (uint16_t port = 4000; port < 4020; ++port) {
        call.received(connectWith({outsideParty, port}));
    }
    EXPECT_EQ(host.takeTold("announced h245").size(), 16U);
    EXPECT_NE(full_scope::findAnnounced({gatekeeper, 3000}), 0U);
}

TEST(Calls, GatekeepersAreHeardByTheirOwnPortsToo) {
    FullHost host;
    const Octets confirm = messageWith("gatekeeperConfirm.rasAddress.ipAddress", keeper);
    for (const auto& [port, heard] : {std::pair<uint16_t, size_t>{1717, 0}, {1718, 1}, {1719, 1}}) {
        const EndpointKey unmapped = {publicAddress, 34567};
        EXPECT_EQ(host.receiveDatagram({gatekeeper, port}, unmapped, confirm), confirm);
        EXPECT_EQ(host.takeTold("message received gatekeeperConfirm").size(), heard) << port;
    }
}

TEST(Calls, TwoPrivateHostsThroughAGatekeeperOutside) {
    FullHost host;
    registerHost(host, {privateParty, 1719}, {privateParty, 1720});
    registerHost(host, {otherPrivateParty, 1719}, {otherPrivateParty, 1720});
    // The gatekeeper tells the one where the other listens, as it knows it.
    const EndpointKey listener = {otherPrivateParty, 1720};
    host.sendDatagram({privateParty, 1719}, keeper,
                      messageWith("admissionRequest.srcCallSignalAddress", caller));
    const Octets confirm =
        messageWith("admissionConfirm.destCallSignalAddress", FullHost::publicOf(listener));
    EXPECT_EQ(firstRewritten(
                  confirm,
                  host.receiveDatagram(keeper, FullHost::publicOf({privateParty, 1719}), confirm)),
              listener);
    // Routed signalling: what one side says comes back to the other side.
    TcpCall out(host, caller, {gatekeeper, 1720});
    const EndpointKey media = {privateParty, 5000};
    const Octets message = q931({setup({{}, {{fastStartElement({true, at(media)})}}})});
    const Octets outside = out.sent(message);
    TcpCall in(host, listener, {gatekeeper, 40000}, TcpCall::Opened::byOutside);
    EXPECT_EQ(in.received(outside), message);
}

TEST(Calls, ObserverIsToldOfEveryStep) {
    FullHost host;
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    call.received(connectWith({outsideParty, 38333}));
    call.sent(connectWith({privateParty, 47231}));
    call.sent(connectWith({otherPrivateParty, 47231}));
    const Octets release = q931({releaseComplete()}, {0x08, 0x02, 0x80, 0x90}); // cause 16
    Octets ended = release;
    ended[8] = 0x5a; // the Q.931 message too is a RELEASE COMPLETE
    call.sent(ended);
    call.close();
    const Lines told = host.takeTold();
    const std::string number = told.at(0).substr(6, told[0].find(' ', 6) - 6);
    const Lines expected = {
        "began " + number + " sent 10.0.0.5:50000 203.0.113.9:1720",
        "message sent setup",
        "message received connect",
        "announced h245 tcp 10.0.0.5:0 0.0.0.0:0 203.0.113.9:38333",
        "message sent connect",
        "announced h245 tcp 10.0.0.5:47231 203.0.113.1:57231 0.0.0.0:0",
        "rewritten connect.h245Address.ipAddress h245 10.0.0.5:47231 203.0.113.1:57231",
        "message sent connect",
        "left connect.h245Address.ipAddress h245 10.0.0.6:47231 1",
        "message sent releaseComplete",
        "over h245 tcp 10.0.0.5:47231 203.0.113.1:57231 0.0.0.0:0",
        "over h245 tcp 10.0.0.5:0 0.0.0.0:0 203.0.113.9:38333",
        "ended " + number + " 1 16",
    };
    EXPECT_EQ(told, expected);
}

} // namespace
