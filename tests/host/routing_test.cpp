#include <gtest/gtest.h>

#include <vector>

#include "nat/host_callbacks.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "tests/host/recorded_translators.h"
#include "tests/support/host_packet.h"
#include "tests/support/pools.h"

namespace {

constexpr uint32_t inside = 0x0A000005;
constexpr uint32_t publicAddress = 0xC6336407;
constexpr uint32_t remote = 0xC0000201;
constexpr uint8_t syn = 0x02;
constexpr uint8_t synAck = 0x12;
constexpr uint32_t failed = static_cast<uint32_t>(-1);

// What the host's lookups were asked and answer.
struct HostAnswers {
    std::vector<std::vector<uint32_t>> questions;
    HostMappingRecord* outside;
    HostMappingRecord* inside;
} answers;

class RoutingTest : public testing::Test {
protected:
    RoutingTest() {
        translators = {};
        translators.otherAnswer = failed;
        answers = {};
        hostCallbacks = {};
        hostCallbacks.HostFindOutsideMapping = [](uint32_t a, uint16_t p, uint32_t ra,
                                                  uint16_t rp) {
            answers.questions.push_back({a, p, ra, rp});
            return answers.outside;
        };
        hostCallbacks.HostFindInsideMapping = [](uint32_t a, uint16_t p, uint32_t ra, uint16_t rp) {
            answers.questions.push_back({a, p, ra, rp});
            return answers.inside;
        };
    }

    std::vector<std::string> receive(HostPacket packet) { return run(packet, true); }
    std::vector<std::string> send(HostPacket packet) { return run(packet, false); }

    std::vector<std::string> run(HostPacket& packet, bool receiving) {
        translators.calls.clear();
        translators.payload = packet.payload();
        packet.descriptor.flags = 0x80000001;
        changed = receiving ? packet.receive(&context) : packet.send(&context);
        EXPECT_EQ(packet.descriptor.flags & ~PACKET_CHANGED, 0x80000001u);
        std::vector<std::string> entries;
        for (const TranslatorCall& call : translators.calls) {
            entries.push_back(call.entry);
        }
        return entries;
    }

    using Entries = std::vector<std::string>;
    FreshState state;
    HostContext context{};
    bool changed = false;
};

TEST_F(RoutingTest, ReceivedSignallingOfOutboundCalls) {
    const Entries taken{"ReceiveCallSignalSegment"};
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 4000, 77, synAck})), taken);
    EXPECT_EQ(translators.calls[0],
              (TranslatorCall{taken[0], 0, 0, {remote, publicAddress, 1720, 4000, 77}}));
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 4000, 77, 0x18, {1, 2, 3}})), taken);
    EXPECT_EQ(translators.calls[0].length, 3u);
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 4000})), Entries{});
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 4000, 1, syn})), Entries{});
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1721, 4000, 1, synAck, {1}})), Entries{});
    EXPECT_EQ(receive(HostPacket::udp({remote, publicAddress, 1720, 1720})), Entries{});
    EXPECT_EQ(receive(HostPacket::udp({remote, publicAddress, 1719, 1719})), Entries{});
}

TEST_F(RoutingTest, ReceivedSignallingOfInboundCallsAndBothAtOnce) {
    const Entries taken{"InboundSignallingFromRemote"};
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 4000, 1720, 9, syn})), taken);
    EXPECT_EQ(translators.calls[0], (TranslatorCall{taken[0], 0, 0, {remote, 4000, 9, 1}}));
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 4000, 1720})), taken);
    EXPECT_EQ(translators.calls[0].numbers[3], 0u);
    EXPECT_FALSE(changed);

    // From port 1720 to port 1720: both. A failure or a 1 of the first means nothing.
    const Entries both{"ReceiveCallSignalSegment", "InboundSignallingFromRemote"};
    translators.rewriting = both[0];
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 1720, 9, 0x18, {1}})), both);
    EXPECT_FALSE(changed);
    translators.rewriting = both[1];
    EXPECT_EQ(receive(HostPacket({remote, publicAddress, 1720, 1720, 9, 0x18, {1}})), both);
    EXPECT_TRUE(changed);
    EXPECT_EQ(translators.hostContext, &context);
}

TEST_F(RoutingTest, T120RecordIsLinkedOnce) {
    HostMappingRecord t120{};
    HostMappingRecord control{};
    const TcpFields segment{remote, publicAddress, 1503, 5000};
    const auto link = [&] {
        receive(HostPacket(segment));
        return t120.controlLink;
    };
    EXPECT_EQ(link(), nullptr);
    EXPECT_EQ(answers.questions.back(), (std::vector<uint32_t>{publicAddress, 5000, remote, 1503}));

    answers.outside = &t120;
    answers.inside = &control;
    EXPECT_EQ(link(), nullptr) << "no call of that party";
    CallSignalConnection* call = takeRecord(callSignalPool);
    call->outsideFlow = {remote, publicAddress, 1720, 4000};
    EXPECT_EQ(link(), nullptr) << "no control channel yet";
    call->controlChannel = takeRecord(controlChannelPool);
    call->controlChannel->insideFlow = {inside, remote, 6000, 7000};
    answers.inside = nullptr;
    EXPECT_EQ(link(), nullptr);
    answers.inside = &control;
    EXPECT_EQ(link(), &control);
    EXPECT_EQ(answers.questions.back(), (std::vector<uint32_t>{inside, 6000, remote, 7000}));

    HostMappingRecord other{};
    answers.inside = &other;
    EXPECT_EQ(link(), &control);
}

TEST_F(RoutingTest, SentSegmentsTryTheRulesInOrderUntilOneRewrites) {
    // One flow that every rule matches.
    const TcpFields segment{inside, remote, 1720, 1720, 55, 0x18, {1, 2}};
    takeRecord(callSignalPool)->insideFlow = {inside, remote, 1720, 1720};
    ControlChannelConnection* control = takeRecord(controlChannelPool);
    setRemoteEndpoint(*control, {remote, 1720});
    inboundMappingState.publishedAddress = inside;
    inboundMappingState.remoteAddress = remote;
    inboundMappingState.remoteSignallingPort = 1720;
    inboundMappingState.publishedControlPort = 1720;

    const Entries all{"SendCallSignalSegment", "SendControlSegment", "InboundSignallingToRemote",
                      "InboundControlToRemote"};
    for (size_t rewriting = 0; rewriting <= all.size(); ++rewriting) {
        const bool any = rewriting < all.size();
        translators.rewriting = any ? all[rewriting] : "";
        const auto tried = static_cast<ptrdiff_t>(any ? rewriting + 1 : all.size());
        EXPECT_EQ(send(HostPacket(segment)), Entries(all.begin(), all.begin() + tried));
        EXPECT_EQ(changed, any);
        EXPECT_EQ(translators.hostContext, &context);
        for (const TranslatorCall& call : translators.calls) {
            EXPECT_EQ(call.payloadAt, 0u);
            EXPECT_EQ(call.length, 2u);
        }
    }
    EXPECT_EQ(inboundMappingState.remoteControlPort, 1720);

    // Each address and port of the rules counts.
    translators.rewriting = "";
    EXPECT_EQ(send(HostPacket({inside + 1, remote, 1720, 1720})), Entries{"SendControlSegment"});
    EXPECT_EQ(send(HostPacket({inside, remote + 1, 1720, 1720})), Entries{});
    EXPECT_EQ(send(HostPacket({inside, remote, 1720, 9})), Entries{"InboundControlToRemote"});
    EXPECT_EQ(send(HostPacket({inside, remote, 9, 9})), Entries{});
    EXPECT_EQ(inboundMappingState.remoteControlPort, 9);
    inboundMappingState.publishedAddress = 0;
    EXPECT_EQ(send(HostPacket({0, remote, 1720, 9})), Entries{}) << "nobody is published";
}

TEST_F(RoutingTest, ControlRecordKeepsItsFirstFlowAndItsNewestContext) {
    ControlChannelConnection* control = takeRecord(controlChannelPool);
    setRemoteEndpoint(*control, {remote, 30000});
    EXPECT_EQ(send(HostPacket({inside, remote, 6000, 30000})), Entries{"SendControlSegment"});
    EXPECT_EQ(send(HostPacket({inside + 1, remote, 6001, 30000})), Entries{"SendControlSegment"});
    EXPECT_EQ(control->insideFlow, (FlowKey{inside, remote, 6000, 30000}));
    EXPECT_EQ(control->flowKnown, 1u);
    EXPECT_EQ(control->hostContext, &context);
    HostContext other{};
    HostPacket({inside, remote, 6000, 30000}).send(&other);
    EXPECT_EQ(control->hostContext, &other);
    EXPECT_EQ(send(HostPacket({inside, remote, 6000, 30001})), Entries{});
    EXPECT_EQ(send(HostPacket::udp({inside, remote, 6000, 30000})), Entries{});
}

TEST_F(RoutingTest, SentRasDatagrams) {
    translators.rewriting = "TranslateRasMessage";
    EXPECT_EQ(send(HostPacket::udp({inside, remote, 1719, 1719, 0, 0, {7, 8, 9}})),
              Entries{"TranslateRasMessage"});
    EXPECT_TRUE(changed);
    EXPECT_EQ(translators.calls[0], (TranslatorCall{"TranslateRasMessage", 0, 3, {remote}}));
    // The datagram's own length counts, not that of the packet around it.
    HostPacket padded = HostPacket::udp({inside, remote, 1719, 1719, 0, 0, {7, 8, 9}});
    padded.put<uint16_t>(padded.transport() + 4, 8 + 2);
    EXPECT_EQ(run(padded, false), Entries{"TranslateRasMessage"});
    EXPECT_EQ(translators.calls[0].length, 2U);
    EXPECT_EQ(send(HostPacket::udp({inside, remote, 1718, 1719, 0, 0, {7}})), Entries{});
    EXPECT_EQ(send(HostPacket({inside, remote, 1719, 1719, 0, 0, {7}})), Entries{});
}

TEST_F(RoutingTest, ReceivingFillsTheDescriptorOfAnyPacket) {
    HostPacket packets[] = {HostPacket({remote, publicAddress, 1, 2}),
                            HostPacket::udp({remote, publicAddress, 1, 2, 0, 0, {1, 2, 3}})};
    for (HostPacket& packet : packets) {
        PacketDescriptor& filled = packet.descriptor;
        packet.receive(&context);
        // Copies: the members are packed, and a reference to one would be misaligned.
        EXPECT_EQ(+filled.moduleIpHeader, packet.ip());
        EXPECT_EQ(uint16_t{filled.ipHeaderLength}, 24);
        EXPECT_EQ(+filled.transportHeader, packet.transport());
        EXPECT_EQ(uint16_t{filled.transportLength}, packet.transportLength());
        EXPECT_EQ(uint16_t{filled.transportLengthCopy1}, packet.transportLength());
        EXPECT_EQ(uint16_t{filled.transportLengthCopy2}, packet.transportLength());
    }
}

TEST_F(RoutingTest, EndpointsThatShareAPlaceInTheIndexAreToldApart) {
    // 256 places, by the last octet of the port among others.
    for (const uint16_t port : {uint16_t{30000}, uint16_t{30256}}) {
        setRemoteEndpoint(*takeRecord(controlChannelPool), {remote, port});
    }
    for (const auto& [port, taken] :
         {std::pair<uint16_t, size_t>{30000, 1}, {30256, 1}, {30512, 0}}) {
        const TcpFields fields{inside, remote, 6000, port, 1, 0x10, {1, 2, 3, 4}};
        EXPECT_EQ(send(HostPacket(fields)).size(), taken) << port;
    }
}

// The ports of other protocols stand in the same place, and what follows can look like a header.
TEST_F(RoutingTest, OtherProtocolsAreNone) {
    const std::vector<uint8_t> tcpAlike = {0, 0, 0, 0, 0x50, synAck, 0, 0, 0, 0, 0, 0, 1, 2, 3};
    for (const uint8_t protocol : {uint8_t{17}, uint8_t{33}, uint8_t{132}}) {
        HostPacket in = HostPacket::udp({remote, publicAddress, 1720, 4000, 0, 0, tcpAlike});
        HostPacket out = HostPacket::udp({inside, remote, 30000, 1720, 0, 0, tcpAlike});
        HostPacket ras = HostPacket::udp({inside, remote, 1719, 1719, 0, 0, {7, 8, 9}});
        for (HostPacket* packet : {&in, &out, &ras}) {
            packet->ip()[9] = protocol;
        }
        EXPECT_EQ(run(in, true), Entries{}) << int{protocol};
        EXPECT_EQ(run(out, false), Entries{}) << int{protocol};
        EXPECT_EQ(run(ras, false).size(), protocol == 17 ? 1U : 0U) << int{protocol};
    }
}

// Every length that lies, one at a time, in packets that a rule would take.
TEST_F(RoutingTest, ContradictoryLengthsPass) {
    const TcpFields incoming{remote, publicAddress, 1720, 1720, 1, syn, {1, 2, 3, 4}};
    const TcpFields outgoing{inside, remote, 6000, 30000, 1, 0x10, {1, 2, 3, 4}};
    const TcpFields ras{inside, remote, 1719, 1719, 0, 0, {1, 2, 3, 4}};
    setRemoteEndpoint(*takeRecord(controlChannelPool), {remote, 30000});
    EXPECT_EQ(receive(HostPacket(incoming)).size(), 2u);
    EXPECT_EQ(send(HostPacket(outgoing)).size(), 1u);
    EXPECT_EQ(send(HostPacket::udp(ras)).size(), 1u);

    const auto lie = [this](auto make, bool receiving, auto change) {
        HostPacket packet = make();
        change(packet);
        EXPECT_EQ(run(packet, receiving), Entries{});
    };
    const auto tcpIn = [&] { return HostPacket(incoming); };
    const auto tcpOut = [&] { return HostPacket(outgoing); };
    const auto udpOut = [&] { return HostPacket::udp(ras); };
    for (const int words : {0, 4, 15}) {
        const auto ipHeader = [words](HostPacket& p) {
            p.ip()[0] = static_cast<uint8_t>(0x40 | words);
        };
        lie(tcpIn, true, ipHeader);
    }
    for (const int total : {0, 19, 23, 24, 28, 43}) {
        const auto totalLength = [total](HostPacket& p) {
            p.put(p.ip() + 2, static_cast<uint16_t>(total));
        };
        lie(tcpIn, true, totalLength);
        // A host that sends may write the IP header's own length later, or in network byte order.
        HostPacket sent[] = {tcpOut(), udpOut()};
        for (HostPacket& unfinished : sent) {
            totalLength(unfinished);
            EXPECT_EQ(run(unfinished, false).size(), 1u) << total;
        }
    }
    for (const int words : {0, 4, 7, 15}) {
        const auto dataOffset = [words](HostPacket& p) {
            p.transport()[12] = static_cast<uint8_t>(words << 4);
        };
        lie(tcpIn, true, dataOffset);
        lie(tcpOut, false, dataOffset);
    }
    for (const int length : {0, 7, 13, 65535}) {
        lie(udpOut, false,
            [length](HostPacket& p) { p.put(p.transport() + 4, static_cast<uint16_t>(length)); });
    }
}

TEST_F(RoutingTest, ShortestPacketsAreNotReadBeyondTheirEnd) {
    for (const uint8_t protocol : {uint8_t{6}, uint8_t{17}}) {
        for (uint16_t length = 0; length < 20; ++length) {
            std::vector<uint8_t> octets(20u + length);
            octets[0] = 0x45;
            octets[2] = static_cast<uint8_t>(octets.size());
            octets[9] = protocol;
            PacketDescriptor descriptor{};
            descriptor.ipHeader = octets.data();
            TarvexPacketOnReceiving(&context, &descriptor);
            TarvexPacketOnSending(&context, &descriptor);
            EXPECT_EQ(descriptor.flags, 0u);
        }
    }
    EXPECT_TRUE(translators.calls.empty());
}

} // namespace
