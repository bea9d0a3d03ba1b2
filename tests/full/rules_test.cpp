// The rules by which an address is translated or stays.

#include <gtest/gtest.h>

#include "tests/full/full_host.h"
#include "tests/support/messages.h"

using namespace test_support;
using Lines = std::vector<std::string>;

namespace {

constexpr EndpointKey caller = {privateParty, 50000};
constexpr EndpointKey called = {outsideParty, 1720};

Octets channelWith(const EndpointKey& media) {
    return q931({setup({{}, {{fastStartElement({true, at(media)})}}})});
}

size_t placeOf(const Octets& message, const EndpointKey& endpoint) {
    const Octets wanted = octetsOfEndpoint(endpoint.address, endpoint.port);
    return static_cast<size_t>(
        std::search(message.begin(), message.end(), wanted.begin(), wanted.end()) -
        message.begin());
}

struct SentCase {
    EndpointKey endpoint;
    EndpointKey after;
    uint32_t cause; // told to the observer; 0: none
};

TEST(Rules, SentAddressIsTranslatedWhenItIsTheSendersOwn) {
    const SentCase cases[] = {
        {{privateParty, 47231}, {publicAddress, 57231}, 0},
        {{otherPrivateParty, 47231}, {otherPrivateParty, 47231}, H323NAT_LEFT_NOT_THE_SENDERS},
        {{outsideParty, 47231}, {outsideParty, 47231}, H323NAT_LEFT_NOT_THE_SENDERS},
        {{publicAddress, 57231}, {publicAddress, 57231}, H323NAT_LEFT_NOT_THE_SENDERS},
        {{privateParty, 0}, {privateParty, 0}, 0},
        {{0, 47231}, {0, 47231}, 0},
        {{privateParty, 1023}, {privateParty, 1023}, H323NAT_LEFT_LOW_PORT},
        {{privateParty, 1024}, {publicAddress, 11024}, 0},
        {{privateParty, 40404}, {privateParty, 40404}, H323NAT_LEFT_REFUSED},
    };
    for (const SentCase& sent : cases) {
        SCOPED_TRACE(text(sent.endpoint));
        FullHost host;
        host.refusedPorts = {40404};
        TcpCall call(host, caller, called);
        call.sent(plainSetup());
        const Octets message = connectWith(sent.endpoint);
        Octets expected = message;
        setEndpoint(expected, placeOf(message, sent.endpoint), sent.after);
        EXPECT_EQ(call.sent(message), expected);
        const Lines left = host.takeTold("left");
        ASSERT_EQ(left.size(), sent.cause == 0 ? 0U : 1U);
        if (sent.cause != 0) {
            EXPECT_EQ(left[0], "left connect.h245Address.ipAddress h245 " + text(sent.endpoint) +
                                   " " + std::to_string(sent.cause));
        }
        const bool asks =
            sent.cause == 0 ? !(sent.after == sent.endpoint) : sent.cause == H323NAT_LEFT_REFUSED;
        EXPECT_EQ(host.takeAsked().size(), asks ? 1U : 0U);
    }
}

TEST(Rules, RtcpPortIsItsRtpPortsNeighbourOrAPairOfItsOwn) {
    struct Case {
        Lines asked;
        uint16_t rtp, rtcp;
        uint32_t cause; // of the RTCP address
    };
    const Case cases[] = {
        {{"media 10.0.0.5:5000 > 1.1.1.1"}, 5000, 5001, 0},
        {{"media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:6000 > 1.1.1.1"}, 5000, 6001, 0},
        {{"media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:4999 > 1.1.1.1"}, 5000, 5000, 0},
        {{"media 10.0.0.5:5000 > 1.1.1.1"}, 5000, 1024, H323NAT_LEFT_LOW_PORT},
        // The public port is the last one.
        {{"media 10.0.0.5:55535 > 1.1.1.1", "media 10.0.0.5:6000 > 1.1.1.1"}, 55535, 6001, 0},
    };
    for (const Case& ports : cases) {
        SCOPED_TRACE(std::to_string(ports.rtp) + " " + std::to_string(ports.rtcp));
        FullHost host;
        TcpCall call(host, caller, called);
        const EndpointKey rtp = {privateParty, ports.rtp};
        const EndpointKey rtcp = {privateParty, ports.rtcp};
        const Octets message = q931({setup({{}, {{fastStartElement({true, at(rtp), at(rtcp)})}}})});
        Octets expected = message;
        const size_t first = placeOf(message, rtp);
        if (ports.rtp != 55535) {
            setEndpoint(expected, first, FullHost::publicOf(rtp));
        }
        if (ports.cause == 0) {
            setEndpoint(expected, first + 7, FullHost::publicOf(rtcp));
        }
        EXPECT_EQ(toHex(call.sent(message)), toHex(expected));
        EXPECT_EQ(host.takeAsked(), ports.asked);
    }
}

TEST(Rules, ReceivedPublicEndpointBecomesThePrivateOneAsLongAsItsMappingLives) {
    FullHost host;
    host.discover();
    TcpCall call(host, caller, called);
    call.sent(channelWith({privateParty, 5000}));
    TcpCall other(host, {otherPrivateParty, 50000}, called);
    other.sent(plainSetup());
    other.sent(connectWith({otherPrivateParty, 47231}));

    struct Case {
        EndpointKey received, after;
    };
    const auto expectAll = [&](std::initializer_list<Case> cases) {
        for (const Case& each : cases) {
            SCOPED_TRACE(text(each.received));
            const Octets message = connectWith(each.received);
            Octets expected = message;
            setEndpoint(expected, placeOf(message, each.received), each.after);
            EXPECT_EQ(toHex(call.received(message)), toHex(expected));
        }
    };
    expectAll({{{publicAddress, 15000}, {privateParty, 5000}}, // media, in a place of H.245
               {{publicAddress, 15001}, {privateParty, 5001}},
               {{publicAddress, 15002}, {publicAddress, 15002}},
               {{publicAddress, 14999}, {publicAddress, 14999}},
               {{publicAddress, 1720}, {publicAddress, 1720}}, // nobody is published
               {{outsideParty, 15000}, {outsideParty, 15000}},
               {{privateParty, 5000}, {privateParty, 5000}},
               {FullHost::publicOf({privateParty, 1719}), {privateParty, 1719}},
               // RAS and TCP have no port above theirs.
               {FullHost::publicOf({privateParty, 1720}), FullHost::publicOf({privateParty, 1720})},
               {FullHost::publicOf({otherPrivateParty, 47232}),
                FullHost::publicOf({otherPrivateParty, 47232})},
               // Another private host's, of another call.
               {FullHost::publicOf({otherPrivateParty, 47231}), {otherPrivateParty, 47231}}});
    other.sent(q931({releaseComplete()}));
    const EndpointKey gone = FullHost::publicOf({otherPrivateParty, 47231});
    expectAll({{gone, gone}, {{publicAddress, 15000}, {privateParty, 5000}}});
}

TEST(Rules, MediaOnThePortOfRasIsAPairOfItsOwn) {
    FullHost host;
    host.discover();
    host.takeAsked();
    TcpCall call(host, caller, called);
    call.sent(channelWith({privateParty, 1719}));
    EXPECT_EQ(host.takeAsked(), Lines{"media 10.0.0.5:1719 > 1.1.1.1"});
    EXPECT_EQ(full_scope::state.mappings.used, 2U);
    const EndpointKey rtcp = {publicAddress, 11720};
    EXPECT_EQ(call.received(connectWith(rtcp)), connectWith({privateParty, 1720}));
}

TEST(Rules, PublishedPortsAreTheSameOutside) {
    struct Case {
        EndpointKey inside;
        bool published;
    };
    for (const Case& each :
         {Case{{privateParty, 1720}, true}, Case{{privateParty, 1503}, true},
          Case{{otherPrivateParty, 1720}, false}, Case{{privateParty, 1721}, false}}) {
        SCOPED_TRACE(text(each.inside));
        FullHost host;
        TarvexActivateInboundMapping(privateParty);
        TcpCall call(host, {each.inside.address, 50000}, called);
        const Octets message = connectWith(each.inside);
        const EndpointKey outside = each.published ? EndpointKey{publicAddress, each.inside.port}
                                                   : FullHost::publicOf(each.inside);
        Octets expected = message;
        setEndpoint(expected, placeOf(message, each.inside), outside);
        call.sent(plainSetup());
        EXPECT_EQ(call.sent(message), expected);
        EXPECT_EQ(host.takeAsked().size(), each.published ? 0U : 1U);
        EXPECT_EQ(call.received(connectWith(outside)), message);
        TarvexActivateInboundMapping(0);
    }
}

TEST(Rules, AddressCutBySegmentsStaysWhole) {
    const EndpointKey media = {privateParty, 5000};
    const Octets message = channelWith(media);
    const size_t place = placeOf(message, media);
    for (size_t cut = 1; cut < message.size(); ++cut) {
        SCOPED_TRACE(cut);
        FullHost host;
        TcpCall call(host, caller, called);
        Octets after = call.sent({message.begin(), message.begin() + cut});
        const Octets rest = call.sent({message.begin() + cut, message.end()});
        after.insert(after.end(), rest.begin(), rest.end());
        Octets expected = message;
        if (cut <= place) {
            setEndpoint(expected, place, FullHost::publicOf(media));
        }
        ASSERT_EQ(toHex(after), toHex(expected));
        ASSERT_EQ(host.takeAsked().size(), cut <= place ? 1U : 0U);
        const Lines left = host.takeTold("left");
        ASSERT_EQ(left.size(), cut <= place ? 0U : 1U);
        ASSERT_TRUE(cut <= place || left[0].ends_with(" 5")) << left[0];
    }
}

TEST(Rules, PacketWithOtherOctetsThanWereReadStaysAsItIs) {
    FullHost host;
    TcpCall call(host, caller, called);
    const EndpointKey media = {privateParty, 5000};
    const Octets message = channelWith(media);
    const size_t place = placeOf(message, media);
    const Octets tail(message.begin() + static_cast<ptrdiff_t>(place), message.end());
    EXPECT_EQ(call.sentAt(place, tail), tail);
    Octets again = message;
    setEndpoint(again, place, {privateParty, 6000});
    EXPECT_EQ(call.sentAt(0, again), again);
    EXPECT_TRUE(host.takeAsked().empty());
    const Lines left = host.takeTold("left");
    ASSERT_EQ(left.size(), 1U);
    EXPECT_TRUE(left[0].ends_with(" 6")) << left[0];
}

TEST(Rules, SignedMessageIsTranslatedAndTold) {
    FullHost host;
    size_t tried = 0;
    for (const PlacedMessage& message : placedMessages()) {
        if (message.type != "H225H323_UserInformation" || message.places.size() != 1) {
            continue;
        }
        host.takeTold();
        Octets octets = message.octets;
        setEndpoint(octets, message.places[0].offset, {privateParty, 5000});
        TcpCall call(host, caller, called);
        call.sent(q931({octets}));
        for (const std::string& line : host.takeTold()) {
            tried += line.starts_with("message") && line.find(" signed") != std::string::npos;
        }
        call.close();
    }
    EXPECT_GT(tried, 0U);
}

TEST(Rules, TheAcknowledgementOfAT120ChannelNamesATcpPort) {
    struct Opened {
        uint16_t number;
        bool t120;
        bool byPrivate;
    };
    struct Case {
        const char* what;
        std::vector<Opened> opened;
        AcknowledgementSpec acknowledged;
        bool t120;
    };
    const TestAddress own = at({privateParty, 7000});
    const AcknowledgementSpec plain = {true, own};
    const AcknowledgementSpec bothWays = {true, own, {}, {}, 101, 7};
    const Case cases[] = {
        {"RTP", {{101, false, false}}, plain, false},
        {"T.120", {{101, true, false}}, plain, true},
        {"another channel", {{102, true, false}}, plain, false},
        {"in both directions", {{101, true, false}}, bothWays, true},
        {"RTP, the reverse number that of T.120",
         {{101, false, false}, {7, true, false}},
         bothWays,
         false},
        {"the private host's own of that number",
         {{101, true, true}, {101, false, false}},
         plain,
         false},
        {"and later", {{101, false, false}, {101, true, true}}, plain, false},
        {"and the other way round", {{101, false, true}, {101, true, false}}, plain, true},
        {"the number is used again", {{101, true, false}, {101, false, false}}, plain, false},
        {"and again", {{101, true, false}, {101, false, false}, {101, true, false}}, plain, true},
        {"three others behind it",
         {{101, true, false}, {1, true, false}, {2, true, false}, {3, true, false}},
         plain,
         true},
        {"one of them twice",
         {{101, true, false},
          {1, true, false},
          {2, true, false},
          {2, true, false},
          {3, true, false}},
         plain,
         true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        FullHost host;
        TcpCall signalling(host, caller, called);
        signalling.sent(plainSetup());
        signalling.received(connectWith({outsideParty, 38333}));
        TcpCall control(host, {privateParty, 51000}, {outsideParty, 38333});
        for (const Opened& opened : each.opened) {
            ChannelSpec channel = {true, at({outsideParty, 1503})};
            channel.t120 = opened.t120;
            channel.number = opened.number;
            opened.byPrivate ? control.sent(openLogicalChannel(channel))
                             : control.received(openLogicalChannel(channel));
        }
        control.sent(openLogicalChannelAck(each.acknowledged));
        EXPECT_EQ(host.takeAsked(), Lines{each.t120 ? "control 10.0.0.5:7000 > 1.1.1.1"
                                                    : "media 10.0.0.5:7000 > 1.1.1.1"});
    }
}

TEST(Rules, OneCallHoldsSoManyMappings) {
    FullHost host(64);
    TcpCall call(host, caller, called);
    std::vector<Octets> channels;
    for (uint16_t port = 10000; channels.size() < 70; port += 2) {
        channels.push_back(fastStartElement({true, at({privateParty, port})}));
    }
    call.sent(q931({setup({{}, channels})}));
    EXPECT_EQ(host.takeAsked().size(), 64U);
    const Lines left = host.takeTold("left");
    ASSERT_EQ(left.size(), 6U);
    EXPECT_TRUE(left[0].ends_with(" 4")) << left[0];
    EXPECT_NE(call.sent(channelWith({privateParty, 10000})), channelWith({privateParty, 10000}))
        << "it has that one";
    call.sent(q931({releaseComplete()}));
    EXPECT_EQ(full_scope::state.mappings.used, 0U);
}

} // namespace
