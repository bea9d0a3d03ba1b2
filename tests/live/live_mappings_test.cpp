#include "gateway/live/live_mappings.h"

#include "gateway/live/flow_records.h"
#include "gateway/mapping_links.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

constexpr uint32_t publicAddress = 0xCB007101;
constexpr uint32_t host = 0x0A000005;
constexpr uint32_t otherHost = 0x0A000006;
constexpr Endpoint relay{0xCB007109, 6000};
constexpr FlowId call{Protocol::Tcp, {host, 40000}, {0xCB007109, 1720}};

LiveConfig configured() {
    LiveConfig config;
    config.firstPort = 20000;
    config.lastPort = 20007;
    config.mediaIdle = 10;
    config.callIdle = 100;
    config.registrationIdle = 1000;
    return config;
}

TrackedFlow udpOut(const Endpoint& inside, const Endpoint& seenAs, uint32_t secondsLeft) {
    return {Protocol::Udp, inside, relay, relay, seenAs, secondsLeft, false, false};
}

TrackedFlow openCall() {
    return {Protocol::Tcp,          call.local, call.remote, call.remote,
            {publicAddress, 40000}, 400,        true,        false};
}

class LiveMappingsTest : public testing::Test {
protected:
    LiveMapping* open(MappingKind kind, const Endpoint& inside, LiveSeconds now = 0) {
        return mappings.open(kind, inside, relay.address, call, now).mapping;
    }

    LiveMappings mappings{configured()};
};

TEST_F(LiveMappingsTest, PairsAreEvenWithinTheRangeAndEnd) {
    const LiveMapping* kept = open(MappingKind::Media, {host, 20002});
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->publicPort, 20002); // its own port is in the range and free
    const LiveMapping* odd = open(MappingKind::Media, {host, 20005});
    const LiveMapping* outside = open(MappingKind::Media, {host, 5000});
    ASSERT_NE(odd, nullptr);
    ASSERT_NE(outside, nullptr);
    EXPECT_EQ(odd->publicPort % 2, 0);
    EXPECT_NE(odd->publicPort, outside->publicPort);
    ASSERT_NE(open(MappingKind::Media, {otherHost, 5000}), nullptr);
    const auto refused = mappings.open(MappingKind::Media, {otherHost, 7000}, 0, call, 0);
    EXPECT_EQ(refused.mapping, nullptr);
    EXPECT_EQ(refused.refusal, Cause::refusedPorts);
    // TCP has ports of its own.
    EXPECT_NE(open(MappingKind::Control, {host, 5000}), nullptr);
}

TEST_F(LiveMappingsTest, AskedAgainGivesTheSame) {
    const auto first = mappings.open(MappingKind::Media, {host, 5000}, 0, call, 0);
    const auto again = mappings.open(MappingKind::Media, {host, 5000}, 1, call, 5);
    EXPECT_EQ(first.mapping, again.mapping);
    EXPECT_FALSE(first.reused);
    EXPECT_TRUE(again.reused);
}

TEST_F(LiveMappingsTest, OneHostCannotTakeAll) {
    LiveConfig config = configured();
    config.mappingsPerHost = 2;
    mappings.configure(config);
    open(MappingKind::Media, {host, 5000});
    open(MappingKind::Media, {host, 5002});
    const auto refused = mappings.open(MappingKind::Media, {host, 5004}, 0, call, 0);
    EXPECT_EQ(refused.mapping, nullptr);
    EXPECT_EQ(refused.refusal, Cause::refusedHostLimit);
    EXPECT_NE(open(MappingKind::Media, {otherHost, 5004}), nullptr);
    // What the kernel refused does not count.
    mappings.withdraw(*mappings.open(MappingKind::Media, {host, 5000}, 0, call, 0).mapping);
    EXPECT_NE(open(MappingKind::Media, {host, 5004}), nullptr);
}

// Two pairs may meet in one private port; the kernel's map has one element for it.
TEST_F(LiveMappingsTest, OverlappingPairsShareNoElement) {
    const LiveMapping* first = open(MappingKind::Media, {host, 5000});
    const LiveMapping* second = open(MappingKind::Media, {host, 5001});
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(first->leaves[1]);
    EXPECT_FALSE(second->leaves[0]);
    EXPECT_TRUE(second->leaves[1]);
}

TEST_F(LiveMappingsTest, LivesWithItsCallThenWithItsMedia) {
    const LiveMapping* mapping = open(MappingKind::Media, {host, 5000});
    const Endpoint seenAs{publicAddress, mapping->publicPort};
    // Ringing: no media yet, the call is open.
    EXPECT_TRUE(mappings.sweep(std::vector{openCall()}, publicAddress, 90).ended.empty());
    // Hung up, but media flows: the kernel's timer is pushed ahead between two sweeps.
    for (LiveSeconds now = 91; now < 131; now += 5) {
        const std::vector flows{udpOut({host, 5000}, seenAs, 30)};
        EXPECT_TRUE(mappings.sweep(flows, publicAddress, now).ended.empty()) << now;
    }
    // Silence: the flow is still there, its timer runs down.
    LiveMappings::Swept swept;
    LiveSeconds now = 131;
    for (; now < 160 && swept.ended.empty(); ++now) {
        const std::vector flows{
            udpOut({host, 5000}, seenAs, static_cast<uint32_t>(126 + 30 - now))};
        swept = mappings.sweep(flows, publicAddress, now);
    }
    ASSERT_EQ(swept.ended.size(), 1U);
    EXPECT_NEAR(static_cast<double>(now), 126 + 10 + 2, 2);
    EXPECT_EQ(swept.forwards.size(), 2U);
    ASSERT_EQ(swept.flows.size(), 1U); // the way in closes for the old party as well
    EXPECT_EQ(swept.flows[0].originalSource, (Endpoint{host, 5000}));
    EXPECT_TRUE(mappings.all().empty());
}

TEST_F(LiveMappingsTest, ACallThatNobodyUsesEndsToo) {
    open(MappingKind::Media, {host, 5000});
    EXPECT_TRUE(mappings.sweep(std::vector{openCall()}, publicAddress, 100).ended.empty());
    EXPECT_EQ(mappings.sweep(std::vector{openCall()}, publicAddress, 101).ended.size(), 1U);
}

TEST_F(LiveMappingsTest, RegistrationsLastLonger) {
    open(MappingKind::Ras, {host, 1719});
    EXPECT_TRUE(mappings.sweep({}, publicAddress, 1000).ended.empty());
    open(MappingKind::Ras, {host, 1719}, 1000); // registered again
    EXPECT_TRUE(mappings.sweep({}, publicAddress, 2000).ended.empty());
    EXPECT_EQ(mappings.sweep({}, publicAddress, 2001).ended.size(), 1U);
}

// Media that flowed before the mapping has another public port, which the kernel would keep.
TEST_F(LiveMappingsTest, FlowsOlderThanTheMappingAreRemovedOnce) {
    open(MappingKind::Media, {host, 5000});
    const std::vector flows{udpOut({host, 5000}, {publicAddress, 5000}, 30)};
    EXPECT_EQ(mappings.sweep(flows, publicAddress, 1).flows.size(), 1U);
    EXPECT_TRUE(mappings.sweep(flows, publicAddress, 2).flows.empty());
}

TEST_F(LiveMappingsTest, AdoptsPairsAndSinglesOfAnEarlierRun) {
    const PortForward left[] = {{Protocol::Udp, 20001, {host, 5001}, false},
                                {Protocol::Udp, 20000, {host, 5000}, false},
                                {Protocol::Udp, 20004, {host, 1719}, false},
                                {Protocol::Udp, 20006, {host, 65535}, false},
                                {Protocol::Udp, 20000, {otherHost, 5000}, false}};
    EXPECT_EQ(mappings.adopt(left, 0), 2U);
    EXPECT_EQ(mappings.open(MappingKind::Media, {host, 5000}, 0, call, 1).mapping->publicPort,
              20000);
    EXPECT_EQ(mappings.open(MappingKind::Ras, {host, 1719}, 0, call, 1).mapping->publicPort, 20004);
    EXPECT_EQ(mappings.allForwards().size(), 3U);
}

TEST_F(LiveMappingsTest, ANewRangeKeepsOldPortsTaken) {
    open(MappingKind::Media, {host, 20002});
    LiveConfig config = configured();
    config.firstPort = 20002;
    config.lastPort = 20005;
    mappings.configure(config);
    EXPECT_EQ(open(MappingKind::Media, {host, 5000})->publicPort, 20004);
    EXPECT_EQ(open(MappingKind::Media, {host, 5002}), nullptr);
}

TEST_F(LiveMappingsTest, EndedMappingsLeaveNoLinks) {
    FlowRecords records;
    HostMappingRecord* parent = records.obtain(call, 0);
    LiveMapping* mapping = open(MappingKind::Media, {host, 5000});
    HostMappingRecord& first = mapping->records[0];
    HostMappingRecord& second = mapping->records[1];
    first.parent = second.parent = parent;
    parent->firstMediaRecord = &first;
    first.nextSibling = &second;
    second.previousSibling = &first;
    EXPECT_EQ(mappings.sweep({}, publicAddress, 50).ended.size(), 1U);
    // The plus copies a member that may stand unaligned in its packed record.
    EXPECT_EQ(+parent->firstMediaRecord, nullptr);
}

TEST(FlowRecords, AreReusedOnlyWhenAllAreUsedUp) {
    FlowRecords records;
    FlowId flow = call;
    HostMappingRecord* first = records.obtain(flow, 0);
    EXPECT_EQ(records.obtain(flow, 1), first);
    EXPECT_EQ(+first->insideAddress, host);
    EXPECT_EQ(+first->insidePort, 40000);
    records.sweep([](const FlowId&) { return false; }, 1000);
    EXPECT_EQ(records.inUse(), 0U);
    for (size_t i = 1; i < FlowRecords::capacity; ++i) {
        flow.local.port = static_cast<uint16_t>(i);
        EXPECT_NE(records.obtain(flow, 1000), first);
    }
    flow.local.address = otherHost;
    first->controlLink = first;
    EXPECT_EQ(records.obtain(flow, 1000), first);
    EXPECT_EQ(+first->controlLink, nullptr);
    flow.local.port = 1;
    EXPECT_EQ(records.obtain(flow, 1000), nullptr);
}

} // namespace
} // namespace gateway
