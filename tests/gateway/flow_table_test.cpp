#include "gateway/flow_table.h"
#include "gateway/ipv4_packet.h"
#include "gateway/mapping_links.h"

#include <gtest/gtest.h>

namespace {

using namespace gateway;

constexpr uint32_t publicAddress = 0xCB007101;
constexpr uint32_t firstHost = 0x0A000005;
constexpr uint32_t secondHost = 0x0A000006;
constexpr Endpoint remote{0xCB007109, 1720};

FlowTableSettings settings() {
    FlowTableSettings result;
    result.publicAddress = publicAddress;
    return result;
}

FlowId view(Protocol protocol, uint32_t address, uint16_t port, const Endpoint& far = remote) {
    return {protocol, {address, port}, far};
}

TEST(FlowTable, InsideAndOutsideViewsLeadToOneFlow) {
    FlowTable table(settings());
    Flow* const flow = table.fromInside(view(Protocol::Tcp, firstHost, 3000), 0);
    ASSERT_NE(flow, nullptr);
    EXPECT_EQ(flow->publicEndpoint(), (Endpoint{publicAddress, 3000}));
    EXPECT_EQ(uint32_t{flow->record.insideAddress}, firstHost);
    EXPECT_EQ(int{flow->record.insidePort}, 3000);
    EXPECT_EQ(table.fromOutside(view(Protocol::Tcp, publicAddress, 3000), 1), flow);
    EXPECT_EQ(table.towardsInside(view(Protocol::Tcp, firstHost, 3000), 1), flow);
    EXPECT_EQ(table.fromOutside(view(Protocol::Udp, publicAddress, 3000), 1), nullptr);
    EXPECT_EQ(table.fromOutside(view(Protocol::Tcp, publicAddress, 3000, {remote.address, 1}), 1),
              nullptr);
}

TEST(FlowTable, TwoHostsWithOnePortGetTwo) {
    FlowTable table(settings());
    const Flow* const first = table.fromInside(view(Protocol::Tcp, firstHost, 3000), 0);
    const Flow* const second = table.fromInside(view(Protocol::Tcp, secondHost, 3000), 0);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first->publicEndpoint(), second->publicEndpoint());
    EXPECT_EQ(table.fromOutside(second->outsideView, 0), second);
    const Flow* const elsewhere =
        table.fromInside(view(Protocol::Tcp, secondHost, 3000, {0x08080808, 80}), 0);
    EXPECT_EQ(elsewhere->publicEndpoint(), second->publicEndpoint());
}

TEST(FlowTable, MediaPairsKeepParityAndNeighbours) {
    FlowTable table(settings());
    const auto first = table.openPair({firstHost, 5000}, 0);
    const auto second = table.openPair({secondHost, 5000}, 0);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->publicEndpoint.port, 5000);
    EXPECT_NE(second->publicEndpoint.port, 5000);
    EXPECT_EQ(second->publicEndpoint.port % 2, 0);

    // Packets from anybody reach both ports of the pair, and no port beside it.
    const auto control = static_cast<uint16_t>(second->publicEndpoint.port + 1);
    Flow* const rtcp =
        table.fromOutside(view(Protocol::Udp, publicAddress, control, {0x08080808, 9}), 0);
    ASSERT_NE(rtcp, nullptr);
    EXPECT_EQ(rtcp->inside(), (Endpoint{secondHost, 5001}));
    EXPECT_EQ(table.fromOutside(view(Protocol::Udp, publicAddress, 5002), 0), nullptr);

    const auto again = table.openPair({secondHost, 5000}, 0);
    EXPECT_EQ(again->publicEndpoint, second->publicEndpoint);
    EXPECT_TRUE(again->reused);
    EXPECT_FALSE(second->reused);
    EXPECT_EQ(again->first, second->first);
    EXPECT_EQ(again->second, second->second);
}

TEST(FlowTable, MediaSentFirstUsesThePortAnnouncedLater) {
    FlowTable table(settings());
    table.openPair({firstHost, 5000}, 0);
    const Flow* const sent = table.fromInside(view(Protocol::Udp, secondHost, 5001), 0);
    const auto pair = table.openPair({secondHost, 5000}, 0);
    ASSERT_TRUE(pair);
    EXPECT_EQ(sent->publicEndpoint().port, pair->publicEndpoint.port + 1);
}

TEST(FlowTable, OddPortsAreKeptWithTheirNeighbourWhereItIsFree) {
    FlowTable table(settings());
    const auto pair = table.openPair({firstHost, 1719}, 0);
    ASSERT_TRUE(pair);
    EXPECT_EQ(pair->publicEndpoint.port, 1719);
    ASSERT_NE(pair->second, nullptr);
    EXPECT_EQ(int{pair->second->insidePort}, 1720);
    EXPECT_NE(table.fromOutside(view(Protocol::Udp, publicAddress, 1720), 0), nullptr);
    EXPECT_FALSE(table.openPair({firstHost, 65535}, 0));

    // The port above belongs to another host: the port asked for is opened alone.
    table.openPair({secondHost, 3000}, 0);
    const auto alone = table.openPair({firstHost, 2999}, 0);
    ASSERT_TRUE(alone);
    EXPECT_EQ(alone->publicEndpoint.port, 2999);
    EXPECT_EQ(alone->second, nullptr);
}

TEST(FlowTable, PublishedPortStaysAndIsNobodyElses) {
    FlowTable table(settings());
    EXPECT_TRUE(table.publish({firstHost, 1720}));
    EXPECT_FALSE(table.publish({secondHost, 1720}));
    Flow* const call = table.fromOutside(view(Protocol::Tcp, publicAddress, 1720, {1, 2}), 0);
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(call->inside(), (Endpoint{firstHost, 1720}));
    EXPECT_NE(table.fromInside(view(Protocol::Tcp, secondHost, 1720), 0)->publicEndpoint().port,
              1720);
    table.fromInside(view(Protocol::Tcp, secondHost, 4000), 1000000);
    EXPECT_EQ(table.flowCount(), 1U) << "the old flows are gone";
    EXPECT_NE(table.fromOutside(view(Protocol::Tcp, publicAddress, 1720, {3, 4}), 1000000),
              nullptr);
}

TEST(FlowTable, IdleTimesEndFlowsAndFreeTheirPorts) {
    FlowTable table(settings());
    const FlowId media = view(Protocol::Udp, firstHost, 5000);
    const FlowId call = view(Protocol::Tcp, firstHost, 3000);
    table.fromInside(media, 0);
    table.fromInside(call, 0);
    table.openPair({firstHost, 6000}, 0);

    table.fromInside(view(Protocol::Tcp, secondHost, 1), 300);
    EXPECT_NE(table.findInside(media), nullptr);
    table.fromInside(view(Protocol::Tcp, secondHost, 2), 301);
    EXPECT_EQ(table.findInside(media), nullptr);
    EXPECT_EQ(table.fromOutside(view(Protocol::Udp, publicAddress, 6000), 301), nullptr);
    EXPECT_EQ(table.openPair({secondHost, 5000}, 301)->publicEndpoint.port, 5000);

    Flow* const flow = table.findInside(call);
    ASSERT_NE(flow, nullptr) << "TCP connections live longer";
    table.noteTcpFlags(*flow, tcpFin | tcpAck);
    table.fromInside(call, 310);
    table.fromInside(view(Protocol::Tcp, secondHost, 3), 370);
    EXPECT_NE(table.findInside(call), nullptr);
    table.fromInside(view(Protocol::Tcp, secondHost, 4), 371);
    EXPECT_EQ(table.findInside(call), nullptr);
}

TEST(FlowTable, LimitsHoldAndTheLongestIdleGivesWay) {
    FlowTableSettings small = settings();
    small.maxFlows = 4;
    small.maxOpenBindings = 4;
    FlowTable table(small);
    for (uint16_t port = 1; port <= 100; ++port) {
        ASSERT_NE(table.fromInside(view(Protocol::Tcp, firstHost, port), port), nullptr);
        ASSERT_LE(table.flowCount(), 4U);
        ASSERT_TRUE(table.openPair({firstHost, static_cast<uint16_t>(5000 + 2 * port)}, port));
    }
    EXPECT_NE(table.findInside(view(Protocol::Tcp, firstHost, 97)), nullptr);
    EXPECT_EQ(table.findInside(view(Protocol::Tcp, firstHost, 96)), nullptr);
    EXPECT_EQ(table.fromOutside(view(Protocol::Udp, publicAddress, 5002), 100), nullptr);
    EXPECT_NE(table.fromOutside(view(Protocol::Udp, publicAddress, 5200), 100), nullptr);
}

TEST(FlowTable, ExhaustedPortsRefuse) {
    FlowTableSettings narrow = settings();
    narrow.firstPort = 40000;
    narrow.lastPort = 40001;
    FlowTable table(narrow);
    EXPECT_EQ(table.openPair({firstHost, 5000}, 0)->publicEndpoint.port, 5000);
    EXPECT_EQ(table.openPair({secondHost, 5000}, 0)->publicEndpoint.port, 40000);
    EXPECT_FALSE(table.openPair({0x0A000007, 5000}, 0));
    EXPECT_EQ(table.fromInside(view(Protocol::Udp, 0x0A000007, 5000), 0), nullptr);
}

// The module links media records under the record of an H.245 connection; whatever ends first,
// no link to it may stay.
TEST(FlowTable, EndedRecordsLeaveTheModulesLists) {
    FlowTable table(settings());
    Flow* const control = table.fromInside(view(Protocol::Tcp, firstHost, 3000), 0);
    const auto pair = table.openPair({firstHost, 5000}, 0);
    HostMappingRecord* const parent = &control->record;
    parent->firstMediaRecord = pair->first;
    pair->first->parent = parent;
    pair->second->parent = parent;
    pair->first->nextSibling = pair->second;
    pair->second->previousSibling = pair->first;

    // The media mapping ends first.
    table.fromInside(control->insideView, 301);
    table.openPair({secondHost, 7000}, 301);
    EXPECT_TRUE(control->record.firstMediaRecord == nullptr);

    // The connection ends first.
    const auto next = table.openPair({firstHost, 5002}, 301);
    control->record.firstMediaRecord = next->second;
    next->second->parent = &control->record;
    table.noteTcpFlags(*control, tcpReset);
    EXPECT_FALSE(isLinked(*next->second));
}

} // namespace
