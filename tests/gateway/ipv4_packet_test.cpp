#include "gateway/ipv4_packet.h"
#include "tests/gateway/packet_builder.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace gateway;
using namespace testing_gateway;

constexpr Endpoint inside{0x0A000005, 5000};
constexpr Endpoint outside{0xCB007109, 1720};

PacketKind kindOf(const Octets& packet) {
    PacketLayout layout;
    return classifyPacket(packet, layout);
}

// RFC 1071's example words, carried as addresses and identification of a real header.
TEST(Checksum, KnownHeader) {
    Octets packet = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                     0x00, 0x00, 0xC0, 0xA8, 0x00, 0x01, 0xC0, 0xA8, 0x00, 0xC7};
    packet.resize(0x73, 0);
    put16(packet, 24, 0x5F);
    PacketLayout layout;
    ASSERT_EQ(classifyPacket(packet, layout), PacketKind::Udp);
    recomputeChecksums(packet, layout);
    EXPECT_EQ(packet[10], 0xB8);
    EXPECT_EQ(packet[11], 0x61);
    EXPECT_EQ(packet[26] | packet[27], 0) << "no UDP checksum stays none";
}

TEST(Checksum, OddPayloadAndBothProtocols) {
    for (const auto& packet :
         {tcp(inside, outside, 1, tcpAck, {1, 2, 3}), udp(inside, outside, {0xFF, 0x80, 0x01})}) {
        PacketLayout layout;
        classifyPacket(packet, layout);
        EXPECT_TRUE(checksumsAreRight(packet, layout));
        for (size_t at = 20; at < packet.size(); ++at) {
            Octets damaged = packet;
            damaged[at] ^= 0x10;
            PacketLayout damagedLayout;
            const PacketKind kind = classifyPacket(damaged, damagedLayout);
            if (kind == PacketKind::Tcp || kind == PacketKind::Udp) {
                EXPECT_FALSE(checksumsAreRight(damaged, damagedLayout)) << at;
            }
        }
    }
}

TEST(Translation, IncrementalEqualsRecomputed) {
    const Endpoint ends[] = {{0xCB007101, 40000}, {0, 0}, {0xFFFFFFFF, 65535}, inside};
    for (const auto& original :
         {tcp(inside, outside, 7, tcpAck, {9, 8, 7}), udp(inside, outside, {1, 2, 3, 4})}) {
        for (const Endpoint& end : ends) {
            Octets packet = original;
            PacketLayout layout;
            classifyPacket(packet, layout);
            replaceSource(packet, layout, end);
            EXPECT_EQ(sourceOf(packet, layout), end);
            EXPECT_TRUE(checksumsAreRight(packet, layout));
            replaceDestination(packet, layout, end);
            EXPECT_EQ(destinationOf(packet, layout), end);
            EXPECT_TRUE(checksumsAreRight(packet, layout));
        }
    }
}

// The sum of this datagram comes to 0xFFFF, so its checksum must be written as 0xFFFF, not as 0.
TEST(Translation, UdpChecksumNeverBecomesNone) {
    Octets packet = udp(inside, outside, {0, 0});
    PacketLayout layout;
    classifyPacket(packet, layout);
    put16(packet, 28, static_cast<unsigned>(packet[26] << 8 | packet[27]));
    recomputeChecksums(packet, layout);
    EXPECT_EQ(packet[26], 0xFF);
    EXPECT_EQ(packet[27], 0xFF);
    EXPECT_TRUE(checksumsAreRight(packet, layout));
}

TEST(HostByteOrder, FieldsReadAsNumbersAndComeBack) {
    const Octets original = tcp(inside, outside, 0x01020304, tcpAck, {0xAA, 0xBB, 0xCC, 0xDD});
    Octets packet = original;
    PacketLayout layout;
    classifyPacket(packet, layout);
    toHostByteOrder(packet, layout);
    uint16_t totalLength = 0;
    uint32_t source = 0;
    uint32_t sequence = 0;
    std::memcpy(&totalLength, &packet[2], 2);
    std::memcpy(&source, &packet[12], 4);
    std::memcpy(&sequence, &packet[24], 4);
    EXPECT_EQ(totalLength, packet.size());
    EXPECT_EQ(source, inside.address);
    EXPECT_EQ(sequence, 0x01020304U);
    EXPECT_EQ(packet[32], original[32]) << "data offset is a single octet";
    EXPECT_EQ(Octets(packet.begin() + 40, packet.end()), Octets({0xAA, 0xBB, 0xCC, 0xDD}));
    toNetworkByteOrder(packet, layout);
    EXPECT_EQ(packet, original);
}

TEST(Classify, KindsAndContradictions) {
    const Octets segment = tcp(inside, outside, 1, tcpAck, {1, 2, 3, 4});
    EXPECT_EQ(kindOf(segment), PacketKind::Tcp);

    struct Case {
        size_t at;
        uint8_t value;
        PacketKind expected;
    };
    for (const Case& c : {Case{0, 0x65, PacketKind::NotIpv4},       // version 6
                          Case{0, 0x44, PacketKind::Malformed},     // header of 16 octets
                          Case{3, 19, PacketKind::Malformed},       // shorter than its header
                          Case{3, 39, PacketKind::Malformed},       // shorter than a TCP header
                          Case{3, 45, PacketKind::Truncated},       // longer than what is there
                          Case{6, 0x20, PacketKind::Fragment},      // more fragments
                          Case{7, 0x01, PacketKind::Fragment},      // a later one
                          Case{6, 0x40, PacketKind::Tcp},           // do not fragment
                          Case{9, 1, PacketKind::OtherProtocol},    // ICMP
                          Case{32, 0x40, PacketKind::Malformed},    // data offset 16
                          Case{32, 0x70, PacketKind::Malformed}}) { // data offset behind the end
        Octets packet = segment;
        packet[c.at] = c.value;
        EXPECT_EQ(kindOf(packet), c.expected) << c.at << " = " << int{c.value};
    }

    Octets datagram = udp(inside, outside, {1, 2, 3});
    datagram[25] = 7;
    EXPECT_EQ(kindOf(datagram), PacketKind::Malformed);
    datagram[25] = 12;
    EXPECT_EQ(kindOf(datagram), PacketKind::Malformed);
    datagram[25] = 9;
    PacketLayout layout;
    EXPECT_EQ(classifyPacket(datagram, layout), PacketKind::Udp);
    EXPECT_EQ(layout.payloadLength, 1U);
}

// Every cut of a packet is classified without reading behind the cut (the sanitizer watches), and
// what can be translated of it is.
TEST(Classify, EveryCut) {
    const Octets segment = tcp(inside, outside, 1, tcpAck, {1, 2, 3, 4});
    for (size_t size = 0; size < segment.size(); ++size) {
        const Octets cut(segment.begin(), segment.begin() + static_cast<std::ptrdiff_t>(size));
        Octets exact = cut;
        exact.shrink_to_fit();
        PacketLayout layout;
        const PacketKind kind = classifyPacket(exact, layout);
        if (kind == PacketKind::Truncated) {
            ASSERT_GE(size, 24U);
            replaceSource(exact, layout, outside);
            EXPECT_EQ(sourceOf(exact, layout), outside);
        } else {
            ASSERT_LT(size, 24U);
        }
    }
}

TEST(Addresses, Text) {
    EXPECT_EQ(parseAddress("203.0.113.1"), std::optional<uint32_t>(0xCB007101));
    EXPECT_EQ(toText(Endpoint{0xCB007101, 1720}), "203.0.113.1:1720");
    for (const char* wrong : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.4 ", "a.b.c.d",
                              "1..2.3", "-1.2.3.4", "1.2.3.0004"}) {
        EXPECT_FALSE(parseAddress(wrong)) << wrong;
    }
    EXPECT_TRUE(parseNetwork("10.0.0.0/24")->contains(0x0A0000FF));
    EXPECT_FALSE(parseNetwork("10.0.0.0/24")->contains(0x0A000100));
    EXPECT_TRUE(parseNetwork("0.0.0.0/0")->contains(0xFFFFFFFF));
    EXPECT_FALSE(parseNetwork("10.0.0.5")->contains(0x0A000004));
    for (const char* wrong : {"10.0.0.5/24", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/8x"}) {
        EXPECT_FALSE(parseNetwork(wrong)) << wrong;
    }
}

} // namespace
