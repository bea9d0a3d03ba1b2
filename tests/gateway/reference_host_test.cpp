#include "gateway/reference_host.h"
#include "tests/gateway/packet_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace gateway;
using namespace testing_gateway;

constexpr uint32_t publicAddress = 0xCB007101;
constexpr Endpoint inside{0x0A000005, 3000};
constexpr Endpoint outside{0xCB007109, 1720};
constexpr Endpoint publicEnd{publicAddress, 3000};

ReferenceHostSettings settings() {
    ReferenceHostSettings result;
    result.inside = {0x0A000000, 24};
    result.publicAddress = publicAddress;
    return result;
}

Endpoint source(const Octets& packet) {
    PacketLayout layout;
    classifyPacket(packet, layout);
    return sourceOf(packet, layout);
}

Endpoint destination(const Octets& packet) {
    PacketLayout layout;
    classifyPacket(packet, layout);
    return destinationOf(packet, layout);
}

TEST(ReferenceHost, TranslatesBothWaysWhicheverSideWasCaptured) {
    ReferenceHost host(settings());
    Octets sent = tcp(inside, outside, 1, tcpSyn);
    EXPECT_EQ(host.process(sent, 0).verdict, Verdict::Translated);
    EXPECT_EQ(source(sent), publicEnd);

    for (const Endpoint& captured : {inside, publicEnd}) {
        Octets received = tcp(outside, captured, 1, tcpSyn | tcpAck);
        const PacketOutcome outcome = host.process(received, 0);
        EXPECT_EQ(outcome.verdict, Verdict::Translated);
        EXPECT_EQ(outcome.direction, Direction::Received);
        EXPECT_EQ(destination(received), inside);
        PacketLayout layout;
        classifyPacket(received, layout);
        EXPECT_TRUE(checksumsAreRight(received, layout));
    }
}

TEST(ReferenceHost, WhatIsNotTranslatedKeepsEveryOctet) {
    ReferenceHost host(settings());
    Octets fragment = tcp(inside, outside, 1, tcpAck, {1, 2, 3});
    fragment[6] = 0x20;
    Octets icmp = tcp(inside, outside, 1, tcpAck);
    icmp[9] = 1;
    Octets ipv6 = tcp(inside, outside, 1, tcpAck);
    ipv6[0] = 0x60;

    struct Case {
        Octets packet;
        Verdict expected;
    };
    const Endpoint neighbour{0x0A000006, 80};
    for (const Case& c :
         {Case{fragment, Verdict::Fragment}, Case{icmp, Verdict::OtherProtocol},
          Case{ipv6, Verdict::NotIpv4}, Case{tcp(inside, neighbour, 1, tcpSyn), Verdict::Local},
          Case{udp(inside, {0xFFFFFFFF, 67}, {1}), Verdict::Local},
          Case{udp(inside, {0xE0000005, 5}, {1}), Verdict::Local},
          Case{tcp(outside, {0x08080808, 53}, 1, tcpSyn), Verdict::Foreign},
          Case{tcp(outside, inside, 1, tcpSyn), Verdict::NoMapping},
          Case{tcp(outside, {publicAddress, 1720}, 1, tcpSyn), Verdict::NoMapping}}) {
        Octets packet = c.packet;
        EXPECT_EQ(host.process(packet, 0).verdict, c.expected);
        EXPECT_EQ(packet, c.packet);
    }
}

TEST(ReferenceHost, PublishedHostTakesCallsFromAnybody) {
    ReferenceHostSettings published = settings();
    published.publishedAddress = inside.address;
    ReferenceHost host(published);
    Octets call = tcp({0x08080808, 4000}, {publicAddress, 1720}, 1, tcpSyn);
    EXPECT_EQ(host.process(call, 0).verdict, Verdict::Translated);
    EXPECT_EQ(destination(call), (Endpoint{inside.address, 1720}));
    Octets other = tcp({0x08080808, 4000}, {publicAddress, 80}, 1, tcpSyn);
    EXPECT_EQ(host.process(other, 0).verdict, Verdict::NoMapping);
}

TEST(ReferenceHost, TruncatedPacketsHaveTheirHeadersTranslated) {
    ReferenceHost host(settings());
    Octets whole = tcp(inside, outside, 1, tcpAck, {1, 2, 3, 4, 5, 6});
    Octets cut(whole.begin(), whole.begin() + 42);
    const PacketOutcome outcome = host.process(cut, 0);
    EXPECT_TRUE(outcome.truncated);
    host.process(whole, 0);
    whole.resize(42);
    EXPECT_EQ(cut, whole);
}

} // namespace
