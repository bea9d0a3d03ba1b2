// What strangers and web pages must not reach: each test plays one of them.

#include <gtest/gtest.h>

#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;
using Lines = std::vector<std::string>;

namespace {

constexpr EndpointKey caller = {privateParty, 50000};
constexpr EndpointKey called = {outsideParty, 1720};
constexpr EndpointKey control = {outsideParty, 38333};
constexpr EndpointKey ras = {privateParty, 1719};
constexpr EndpointKey keeper = {gatekeeper, 1719};
constexpr EndpointKey stranger = {address(198, 51, 100, 66), 1720};

Octets registration(const EndpointKey& signalling) {
    return registrationRequest({at(signalling)}, {at(ras)});
}

// Every octet of every record, and the lists of records.
Octets everything() {
    const full_scope::State& state = full_scope::state;
    const auto* memory = static_cast<const uint8_t*>(state.memory);
    Octets octets(memory, memory + (state.streams.scratch - memory));
    for (const uint32_t number : {state.calls.used, state.connections.used, state.mappings.used,
                                  state.claims.used, state.announced.used, state.registrations.used,
                                  state.connectionAges.oldest, state.announcedAges.oldest,
                                  state.registrationAges.oldest, state.unconfirmedAges.oldest}) {
        const Octets more = octetsOfAddress(number);
        octets.insert(octets.end(), more.begin(), more.end());
    }
    return octets;
}

// A registered private host with a call and its H.245 connection, and a published one.
struct Scene {
    FullHost host;
    TcpCall signalling;
    TcpCall h245;

    Scene() : signalling(begin(host)), h245(host, {privateParty, 51000}, control) {
        h245.sent(openLogicalChannel({true, at({privateParty, 5000})}));
        TarvexActivateInboundMapping(privateParty);
        host.takeAsked();
        host.takeTold();
    }
    ~Scene() { TarvexActivateInboundMapping(0); }

    static TcpCall begin(FullHost& host) {
        host.discover();
        host.sendDatagram(ras, keeper, registration({privateParty, 1730}));
        TcpCall call(host, caller, called);
        call.sent(plainSetup());
        call.received(q931({answer(Answer::connect, at(control))}));
        return call;
    }
};

Segment tcp(const EndpointKey& from, const EndpointKey& to, int flags, const Octets& payload = {},
            uint32_t sequence = 0x70000000) {
    Segment segment;
    segment.flow = {from.address, to.address, from.port, to.port};
    segment.flags = static_cast<uint8_t>(flags);
    segment.sequence = sequence;
    segment.payload = payload;
    return segment;
}

TEST(Strangers, PacketsFromOutsideMakeNoStateAndChangeNone) {
    Scene scene;
    const Octets setupMessage = plainSetup();
    const EndpointKey published = {publicAddress, 1720};
    const EndpointKey mapped = FullHost::publicOf({privateParty, 1730});
    const EndpointKey publicCaller = scene.signalling.publicEndpoint;
    std::vector<Segment> packets;
    for (const EndpointKey& from :
         {stranger, EndpointKey{stranger.address, 40000}, EndpointKey{outsideParty, 40000}}) {
        for (const EndpointKey& to : {published, mapped, publicCaller, scene.h245.publicEndpoint}) {
            for (const int flags : {int{tcpSyn}, tcpSyn | tcpAck, int{tcpAck}, int{tcpRst},
                                    tcpRst | tcpAck, tcpFin | tcpAck}) {
                packets.push_back(tcp(from, to, flags));
                packets.push_back(tcp(from, to, flags, setupMessage));
            }
        }
    }
    // On the call's own connections, outside of the window.
    for (const int flags : {tcpRst | tcpAck, tcpFin | tcpAck, int{tcpSyn}, tcpSyn | tcpAck}) {
        packets.push_back(tcp(called, publicCaller, flags));
    }
    packets.push_back(tcp(called, publicCaller, tcpAck, setupMessage));
    const Octets before = everything();
    for (const Segment& packet : packets) {
        SCOPED_TRACE(endpointText(packet.flow.sourceAddress, packet.flow.sourcePort) + " to " +
                     endpointText(packet.flow.destinationAddress, packet.flow.destinationPort) +
                     " flags " + std::to_string(packet.flags));
        ASSERT_EQ(scene.host.receive(packet), packet.payload);
        const bool own =
            packet.flow.sourceAddress == outsideParty && packet.flow.sourcePort == 1720;
        if (!own) { // of a connection's own ends the time of the last packet is noted
            ASSERT_EQ(everything(), before);
        }
    }
    EXPECT_EQ(scene.host.takeAsked(), Lines{});
    EXPECT_EQ(scene.host.takeTold(), Lines{});
    // The call goes on.
    scene.signalling.sent(q931({answer(Answer::connect, at({privateParty, 47231}))}));
    EXPECT_EQ(scene.host.takeAsked(), Lines{"control 10.0.0.5:47231 > 1.1.1.1"});
    scene.signalling.received(q931({answer(Answer::connect, at({outsideParty, 38334}))}));
    EXPECT_EQ(scene.host.takeTold("message received connect").size(), 1U);
}

TEST(Strangers, DatagramsFromOutsideMakeNoStateAndChangeNone) {
    Scene scene;
    const Octets before = everything();
    const EndpointKey publicRas = FullHost::publicOf(ras);
    for (const PlacedMessage& message : placedMessages()) {
        if (message.type != "H225RasMessage") {
            continue;
        }
        for (const EndpointKey& from :
             {EndpointKey{stranger.address, 1719}, EndpointKey{stranger.address, 40000}}) {
            for (const EndpointKey& to : {publicRas, EndpointKey{publicAddress, 40000}}) {
                scene.host.receiveDatagram(from, to, message.octets);
            }
        }
    }
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(scene.host.takeAsked(), Lines{});
    EXPECT_EQ(scene.host.takeTold("announced"), Lines{});
}

TEST(Strangers, ResetAndFinEndAConnectionOnlyInItsWindow) {
    struct Case {
        int64_t offset; // from the next octet
        uint8_t flags;
        bool ends;
    };
    const Case cases[] = {{0, tcpRst, true},           {1000, tcpRst, true},
                          {70000, tcpRst, false},      {-70000, tcpRst, false},
                          {0x7fffffff, tcpRst, false}, {70000, tcpFin, false},
                          {-70000, tcpFin, false},     {0, tcpFin, true}};
    for (const Case& end : cases) {
        SCOPED_TRACE(std::to_string(end.flags) + " " + std::to_string(end.offset));
        FullHost host;
        TcpCall call(host, caller, called);
        call.sent(plainSetup());
        call.sentAt(call.sentSoFar, {}, tcpFin | tcpAck);
        host.takeTold();
        const auto place =
            static_cast<size_t>(static_cast<int64_t>(call.receivedSoFar) + end.offset);
        call.receivedAt(place, {}, static_cast<uint8_t>(end.flags | tcpAck));
        EXPECT_EQ(host.takeTold("ended").size(), end.ends ? 1U : 0U);
    }
}

TEST(Strangers, NothingExpiresForTheirSake) {
    FullHost host(1); // 18 connections
    TcpCall call(host, caller, called);
    call.sent(plainSetup());
    call.received(q931({answer(Answer::alerting, {})}));
    host.clock.advance(3600);
    for (uint16_t port = 20000; port < 20100; ++port) {
        host.receive(tcp({stranger.address, port}, {publicAddress, 1720}, tcpSyn));
        host.receive(tcp({stranger.address, port}, {publicAddress, 50000}, tcpAck, plainSetup()));
        host.receiveDatagram({stranger.address, 1719}, {publicAddress, port},
                             gatekeeperRequest(at(stranger)));
    }
    EXPECT_EQ(host.takeTold("ended"), Lines{});
    EXPECT_EQ(full_scope::state.connections.used, 1U);
    call.sent(q931({answer(Answer::connect, at({privateParty, 47231}))}));
    EXPECT_EQ(host.takeAsked().size(), 1U);
}

TEST(Strangers, ConnectionThatBeginsOtherwiseIsNeverLookedAtAgain) {
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})});
    const Octets begins[] = {
        {'P', 'O', 'S', 'T', ' ', '/', ' ', 'H'},
        {0x16, 3, 1, 2, 0, 1, 0, 1}, // TLS
        {3, 1, 0, 8, 1, 2, 3, 4},    // TPKT's second octet is 0
        {3, 0, 0, 4},                // nothing in it
        {3, 0, 0, 0, 1, 2, 3, 4},
        {0, 3, 0, 0, 7},
        {2},
    };
    for (const Octets& begin : begins) {
        for (const bool fromOutside : {false, true}) {
            SCOPED_TRACE(toHex(begin));
            FullHost host;
            TcpCall page(host, caller, called);
            if (fromOutside) {
                page.received(begin);
            } else {
                page.sent(begin);
            }
            EXPECT_EQ(recordsInUse(), 0U);
            EXPECT_EQ(page.sent(message), message);
            EXPECT_EQ(host.takeAsked(), Lines{});
            EXPECT_EQ(recordsInUse(), 0U);
        }
    }
}

TEST(Strangers, PageCannotSkipTheBeginning) {
    FullHost host;
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})});
    TcpCall page(host, caller, called);
    // A message in the middle of other octets, whatever order they come in.
    EXPECT_EQ(page.sentAt(400, message), message);
    EXPECT_EQ(page.sentAt(0, Octets(400, 'A')), Octets(400, 'A'));
    EXPECT_EQ(page.sentAt(400, message), message);
    EXPECT_EQ(host.takeAsked(), Lines{});
    EXPECT_EQ(recordsInUse(), 0U);
}

TEST(Strangers, AnswerToAnotherBeginningIsNone) {
    FullHost host;
    const TcpCall before(host, caller, called); // so that the host knows the flow
    const EndpointKey publicEnd = before.publicEndpoint;
    constexpr uint32_t begun = 0x60000000;
    host.send(tcp(caller, called, tcpSyn, {}, begun));
    for (const uint32_t acknowledged : {0U, begun, begun + 2, begun + 1}) {
        Segment answer = tcp(called, publicEnd, tcpSyn | tcpAck, {}, acknowledged / 2);
        answer.acknowledgement = acknowledged;
        host.receive(answer);
    }
    const uint32_t answered = (begun + 1) / 2;
    host.receive(tcp(called, publicEnd, tcpAck, plainSetup(), answered + 1));
    EXPECT_EQ(host.takeTold("message received setup").size(), 1U);
    // Nor is the right one that comes again, with another number.
    Segment again = tcp(called, publicEnd, tcpSyn | tcpAck, {}, answered - 1000);
    again.acknowledgement = begun + 1;
    host.receive(again);
    const auto length = static_cast<uint32_t>(plainSetup().size());
    host.receive(tcp(called, publicEnd, tcpAck, plainSetup(), answered + 1 + length));
    EXPECT_EQ(host.takeTold("message received setup").size(), 1U);
}

TEST(Strangers, OtherPortsOutsideAreNotFollowed) {
    FullHost host;
    host.discover();
    host.takeAsked();
    const size_t before = recordsInUse();
    const Octets message =
        q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})});
    for (const uint16_t port : std::initializer_list<uint16_t>{80, 443, 1719, 1721, 5060, 38333}) {
        TcpCall page(host, caller, {stranger.address, port});
        EXPECT_EQ(page.sent(message), message);
    }
    // Neither is a connection whose beginning was not seen.
    Segment middle = tcp({privateParty, 50001}, called, tcpAck, message);
    EXPECT_EQ(host.send(middle), message);
    // Nor one that a private host accepts where nobody was told to connect to.
    TcpCall web(host, {privateParty, 8080}, {stranger.address, 40000}, TcpCall::Opened::byOutside);
    EXPECT_EQ(web.sent(message), message);
    EXPECT_EQ(host.takeAsked(), Lines{});
    EXPECT_EQ(recordsInUse(), before);
}

TEST(Strangers, RasOpensOnlyItsOwnWayBackUntilTheGatekeeperHasAnswered) {
    const EndpointKey signalling = {privateParty, 1730};
    const Lines rasAlone = {"media 10.0.0.5:1719 > 203.0.113.8"};
    const Lines both = {"media 10.0.0.5:1719 > 203.0.113.8", "control 10.0.0.5:1730 > 1.1.1.1"};
    struct Case {
        const char* answer; // its place
        EndpointKey from;
        bool confirms;
    };
    const Case cases[] = {
        {"gatekeeperConfirm.rasAddress.ipAddress", keeper, true},
        {"registrationConfirm.callSignalAddress", keeper, true},
        {"registrationConfirm.callSignalAddress", {gatekeeper, 40000}, true},
        {"registrationConfirm.callSignalAddress", stranger, false},
        {"admissionConfirm.destCallSignalAddress.ipAddress", keeper, false},
        {"locationConfirm.callSignalAddress.ipAddress", keeper, false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.answer) + text(each.from));
        FullHost host;
        host.sendDatagram(ras, keeper, registration(signalling));
        auto asked = host.takeAsked();
        std::sort(asked.begin(), asked.end());
        EXPECT_EQ(asked, rasAlone);
        EXPECT_EQ(host.takeTold("left").size(), 1U);
        host.receiveDatagram(each.from, FullHost::publicOf(ras), messageWith(each.answer, keeper));
        host.sendDatagram(ras, keeper, registration(signalling));
        asked = host.takeAsked();
        std::sort(asked.rbegin(), asked.rend());
        EXPECT_EQ(asked, each.confirms ? both : rasAlone);
    }
}

TEST(Strangers, PublishedPortNeedsNoAnswerOfAGatekeeper) {
    FullHost host;
    TarvexActivateInboundMapping(privateParty);
    const Octets message = registration({privateParty, 1720});
    const Octets after = host.sendDatagram(ras, keeper, message);
    const Octets outside = octetsOfEndpoint(publicAddress, 1720);
    EXPECT_NE(std::search(after.begin(), after.end(), outside.begin(), outside.end()), after.end());
    EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:1719 > 203.0.113.8"});
    TarvexActivateInboundMapping(0);
}

TEST(Strangers, AnswerThatNobodyAskedForAnnouncesNothing) {
    FullHost host;
    host.discover();
    host.takeTold();
    const EndpointKey mapped = FullHost::publicOf(ras);
    const EndpointKey elsewhere = {stranger.address, 4444};
    const Octets answer =
        messageWith("admissionConfirm.destCallSignalAddress.ipAddress", elsewhere);
    host.receiveDatagram(keeper, mapped, answer);
    EXPECT_EQ(host.takeTold("announced"), Lines{});
    host.sendDatagram(ras, keeper,
                      messageWith("admissionRequest.srcCallSignalAddress.ipAddress", called));
    host.receiveDatagram(stranger, mapped, answer);
    EXPECT_EQ(host.takeTold("announced"), Lines{});
    host.receiveDatagram(keeper, mapped, answer);
    EXPECT_EQ(host.takeTold("announced"),
              Lines{"announced signalling tcp 10.0.0.5:0 0.0.0.0:0 198.51.100.66:4444"});
    host.receiveDatagram(keeper, mapped, answer); // one answer for one request
    EXPECT_EQ(host.takeTold("announced"), Lines{});
    // Two for two.
    const Octets request = messageWith("admissionRequest.srcCallSignalAddress.ipAddress", called);
    host.sendDatagram(ras, keeper, request);
    host.sendDatagram(ras, keeper, request);
    for (const uint16_t port : {uint16_t{4445}, uint16_t{4446}, uint16_t{4447}}) {
        host.receiveDatagram(keeper, mapped,
                             messageWith("admissionConfirm.destCallSignalAddress.ipAddress",
                                         {stranger.address, port}));
    }
    EXPECT_EQ(host.takeTold("announced").size(), 2U);
}

TEST(Strangers, MappingsEndWithTheirCallOrRegistration) {
    FullHost host;
    host.discover();
    host.sendDatagram(ras, keeper, registration({privateParty, 1730}));
    const size_t registered = full_scope::state.mappings.used;
    EXPECT_EQ(registered, 2U);
    enum class End : uint16_t { release, bothFin, reset };
    for (const End end : {End::release, End::bothFin, End::reset}) {
        const auto port = static_cast<uint16_t>(50000 + static_cast<uint16_t>(end));
        TcpCall call(host, {privateParty, port}, called);
        call.sent(q931({setup({{}, {{fastStartElement({true, at({privateParty, 5000})})}}})}));
        EXPECT_EQ(full_scope::state.mappings.used, registered + 1);
        if (end == End::release) {
            call.received(q931({releaseComplete()}));
        } else if (end == End::bothFin) {
            call.close();
        } else {
            call.sentAt(call.sentSoFar, {}, tcpRst);
        }
        EXPECT_EQ(full_scope::state.mappings.used, registered);
    }
    host.sendDatagram(ras, keeper, unregistrationRequest(at({privateParty, 1730})));
    EXPECT_EQ(full_scope::state.mappings.used, registered);
    host.receiveDatagram(keeper, FullHost::publicOf(ras), {0x1c, 0, 0}); // UCF
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

TEST(Strangers, SetupsFromOutsideLeaveRecordsToThosePrivateHostsSend) {
    FullHost host(8);
    TcpCall knocking(host, {privateParty, 1720}, {outsideParty, 40000}, TcpCall::Opened::byOutside);
    for (uint8_t number = 1; number <= 20; ++number) {
        knocking.received(q931({setup({{}, {}, number})}));
    }
    EXPECT_EQ(full_scope::state.calls.used, 6U);
    for (uint16_t port = 50000; port < 50002; ++port) {
        TcpCall call(host, {privateParty, port}, called);
        const Octets own =
            q931({setup({{}, {{fastStartElement({true, at({privateParty, port})})}}})});
        EXPECT_NE(call.sent(own), own);
    }
}

TEST(Strangers, OneHostCannotTakeTheMappingsOfAll) {
    FullHost host(8); // 104 mappings
    std::vector<TcpCall> calls;
    for (uint16_t call = 0; call < 4; ++call) {
        std::vector<Octets> channels;
        for (uint16_t channel = 0; channel < 40; ++channel) {
            const auto port = static_cast<uint16_t>(2000 + 100 * call + 2 * channel);
            channels.push_back(fastStartElement({true, at({privateParty, port})}));
        }
        calls.emplace_back(host, EndpointKey{privateParty, static_cast<uint16_t>(50000 + call)},
                           called);
        calls.back().sent(q931({setup({{}, channels})}));
    }
    EXPECT_EQ(host.takeAsked().size(), 78U);
    EXPECT_TRUE(host.takeTold("left").back().ends_with(" 4"));
    TcpCall other(host, {otherPrivateParty, 50000}, called);
    other.sent(q931({setup({{}, {{fastStartElement({true, at({otherPrivateParty, 5000})})}}})}));
    EXPECT_EQ(host.takeAsked().size(), 1U);
    calls[0].sent(q931({releaseComplete()}));
    calls[3].sent(q931({answer(Answer::connect, at({privateParty, 47231}))}));
    EXPECT_EQ(host.takeAsked().size(), 1U);
}

} // namespace
