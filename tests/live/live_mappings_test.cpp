#include "gateway/live/live_mappings.h"

#include "gateway/live/flow_records.h"
#include "gateway/mapping_links.h"

#include <gtest/gtest.h>

#include <set>

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

TrackedFlow udpOut(const Endpoint& inside, const Endpoint& seenAs) {
    return {Protocol::Udp, inside, relay, relay, seenAs, 30, false, false};
}

TrackedFlow openCall() {
    return {Protocol::Tcp,          call.local, call.remote, call.remote,
            {publicAddress, 40000}, 400,        true,        false};
}

class LiveMappingsTest : public testing::Test {
protected:
    LiveMapping* open(MappingKind kind, const Endpoint& inside, LiveSeconds now = 0,
                      uint64_t number = 0) {
        return mappings.open({kind, inside, publicAddress, call, number}, now).mapping;
    }

    Cause refusal(MappingKind kind, const Endpoint& inside) {
        const auto opened = mappings.open({kind, inside, publicAddress, call, 0}, 0);
        EXPECT_EQ(opened.mapping, nullptr);
        return opened.refusal;
    }

    LiveMappings::Swept sweep(const std::vector<TrackedFlow>& flows, LiveSeconds now,
                              const std::vector<EndpointUse>& uses = {}) {
        FlowSurvey survey = mappings.survey();
        PacketGrowth growth;
        survey.fill(flows, uses, growth);
        return mappings.sweep(survey, now);
    }

    std::set<uint16_t> ownPorts;
    LiveMappings mappings{configured(), 7,
                          [this](Protocol, uint16_t port) { return !ownPorts.contains(port); }};
};

TEST_F(LiveMappingsTest, PairsAreEvenAndNeverTheMachinesOwn) {
    ownPorts = {20003};
    std::set<uint16_t> pairs;
    for (const uint16_t port : {uint16_t{5000}, uint16_t{20005}, uint16_t{7001}}) {
        const LiveMapping* mapping = open(MappingKind::Media, {host, port});
        ASSERT_NE(mapping, nullptr);
        EXPECT_EQ(mapping->publicEndpoint.port % 2, 0);
        pairs.insert(mapping->publicEndpoint.port);
    }
    EXPECT_EQ(pairs, (std::set<uint16_t>{20000, 20004, 20006}));
    EXPECT_EQ(refusal(MappingKind::Media, {otherHost, 7000}), Cause::refusedPorts);
    // One port is enough for others, and TCP has ports of its own.
    for (uint16_t port = 5000; port < 5007; ++port) {
        EXPECT_NE(open(MappingKind::Control, {host, port}), nullptr);
    }
    EXPECT_EQ(refusal(MappingKind::Control, {host, 5007}), Cause::refusedPorts);
    // What the machine used may be free by the next sweep.
    ownPorts = {};
    EXPECT_EQ(refusal(MappingKind::Media, {otherHost, 7000}), Cause::refusedPorts);
    sweep({}, 1);
    EXPECT_NE(open(MappingKind::Media, {otherHost, 7000}), nullptr);
    EXPECT_EQ(refusal(MappingKind::Media, {otherHost, 7002}), Cause::refusedPorts);
}

TEST_F(LiveMappingsTest, AskedAgainGivesTheSameAlsoInAnotherRun) {
    LiveMapping* const first = open(MappingKind::Media, {host, 5000});
    EXPECT_EQ(open(MappingKind::Media, {host, 5000}, 5), first);
    const uint16_t port = first->publicEndpoint.port;
    LiveMappings again{configured(), 7, [](Protocol, uint16_t) { return true; }};
    std::set<uint16_t> bySeed;
    for (uint64_t seed = 0; seed < 30; ++seed) {
        LiveMappings other{configured(), seed, [](Protocol, uint16_t) { return true; }};
        bySeed.insert(other.open({MappingKind::Media, {host, 5000}, 0, call, 0}, 0)
                          .mapping->publicEndpoint.port);
    }
    EXPECT_EQ(
        again.open({MappingKind::Media, {host, 5000}, 0, call, 0}, 0).mapping->publicEndpoint.port,
        port);
    EXPECT_EQ(bySeed.size(), 4U); // nobody inside can tell which one it will be
}

TEST_F(LiveMappingsTest, OneHostCannotTakeAll) {
    LiveConfig config = configured();
    config.mappingsPerHost = 2;
    mappings.configure(config);
    open(MappingKind::Media, {host, 5000});
    open(MappingKind::Media, {host, 5002});
    EXPECT_EQ(refusal(MappingKind::Media, {host, 5004}), Cause::refusedHostLimit);
    EXPECT_NE(open(MappingKind::Media, {otherHost, 5004}), nullptr);
    // What the kernel refused does not count.
    mappings.withdraw(open(MappingKind::Media, {host, 5000})->number);
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

TEST_F(LiveMappingsTest, LivesWithItsCallThenWithWhatThePrivateHostSends) {
    const LiveMapping* mapping = open(MappingKind::Media, {host, 5000}, 0, 1);
    const std::vector flows{udpOut({host, 5000}, mapping->publicEndpoint)};
    EXPECT_TRUE(sweep({}, 90).ended.empty()); // ringing
    mappings.endCall(1, 90);
    EXPECT_TRUE(sweep(flows, 99).ended.empty());
    EXPECT_TRUE(sweep(flows, 105, {{{host, 5001}, 3}}).ended.empty()); // RTCP is enough
    EXPECT_TRUE(sweep(flows, 112).ended.empty());
    // What comes in does not count.
    const auto swept = sweep(flows, 113);
    ASSERT_EQ(swept.ended.size(), 1U);
    EXPECT_EQ(swept.forwards.size(), 2U);
    ASSERT_EQ(swept.flows.size(), 1U); // the way in closes for the old party as well
    EXPECT_TRUE(mappings.all().empty());
}

TEST_F(LiveMappingsTest, WithoutACallTheConnectionCounts) {
    open(MappingKind::Media, {host, 5000});
    EXPECT_TRUE(sweep({openCall()}, 100).ended.empty());
    EXPECT_EQ(sweep({openCall()}, 101).ended.size(), 1U);
    open(MappingKind::Media, {host, 5000}, 200);
    EXPECT_TRUE(sweep({}, 210).ended.empty());
    EXPECT_EQ(sweep({}, 211).ended.size(), 1U);
}

// It is filled beside the packets, which open and close mappings meanwhile.
TEST_F(LiveMappingsTest, ASurveyIsOfWhatWasOpenThen) {
    LiveMapping* const withdrawn = open(MappingKind::Media, {host, 5000});
    LiveMapping* const idle = open(MappingKind::Media, {host, 5002}, 0, 1);
    FlowSurvey survey = mappings.survey();
    mappings.withdraw(withdrawn->number);
    const LiveMapping* const later = open(MappingKind::Media, {host, 5004});
    Endpoint upper = idle->publicEndpoint;
    ++upper.port;
    TrackedFlow control = udpOut({host, 5003}, upper);
    control.originalPackets = 7;
    PacketGrowth growth;
    survey.fill({&control, 1}, {}, growth);
    ASSERT_EQ(survey.uses().size(), 2U);
    EXPECT_TRUE(survey.uses()[0].flows.empty());
    ASSERT_EQ(survey.uses()[1].flows.size(), 1U);
    EXPECT_TRUE(survey.uses()[1].flows[0].control);
    EXPECT_EQ(survey.uses()[1].flows[0].more.sent, 7U);
    EXPECT_EQ(mappings.sweep(survey, 1000).ended.size(), 1U);
    ASSERT_EQ(mappings.all().size(), 1U);
    EXPECT_EQ(mappings.all().front().number, later->number);
}

TEST_F(LiveMappingsTest, RegistrationsLastOnceTheyAreAnswered) {
    open(MappingKind::Ras, {host, 1719});
    EXPECT_EQ(sweep({}, 31).ended.size(), 1U);
    open(MappingKind::Ras, {host, 1719}, 100)->answered = true;
    EXPECT_TRUE(sweep({}, 1100).ended.empty());
    EXPECT_EQ(sweep({}, 1101).ended.size(), 1U);
}

TEST_F(LiveMappingsTest, UnansweredRegistrationsOfManyHostsGiveWay) {
    LiveConfig config = configured();
    config.lastPort = 29999;
    mappings.configure(config);
    for (uint32_t number = 0; number < 300; ++number) {
        EXPECT_NE(open(MappingKind::Ras, {host + number, 1719}), nullptr);
    }
    EXPECT_EQ(mappings.takeOver(0).ended.size(), 300U - 256U);
    EXPECT_EQ(mappings.findInside(MappingKind::Ras, {host, 1719}), nullptr);
    for (uint16_t port = 1720; port < 1723; ++port) {
        open(MappingKind::Ras, {host + 299, port});
    }
    EXPECT_EQ(refusal(MappingKind::Ras, {host + 299, 1730}), Cause::refusedHostLimit);
}

TEST_F(LiveMappingsTest, WhatTheModuleNeedsNoMoreEndsSoon) {
    const LiveMapping* mapping = open(MappingKind::Control, {host, 4000});
    mappings.markOver(Protocol::Tcp, mapping->publicEndpoint.port, 10);
    mappings.markOver(Protocol::Tcp, 1, 10);
    EXPECT_TRUE(mappings.takeOver(9 + overLinger).ended.empty()); // its last packets are shown
    EXPECT_EQ(mappings.takeOver(10 + overLinger).ended.size(), 1U);
    mapping = open(MappingKind::Ras, {host, 1719});
    mappings.markOver(Protocol::Udp, mapping->publicEndpoint.port, 10);
    EXPECT_EQ(mappings.takeOver(10).ended.size(), 1U);
    // Asked for again in time, it stays.
    mapping = open(MappingKind::Control, {host, 4000});
    mappings.markOver(Protocol::Tcp, mapping->publicEndpoint.port, 10);
    open(MappingKind::Control, {host, 4000});
    EXPECT_TRUE(mappings.takeOver(100).ended.empty());
    // One that is over again and again keeps no other.
    const uint16_t again = mapping->publicEndpoint.port;
    mappings.markOver(Protocol::Tcp, again, 200);
    mapping = open(MappingKind::Control, {host, 4002});
    mappings.markOver(Protocol::Tcp, mapping->publicEndpoint.port, 200);
    open(MappingKind::Control, {host, 4000});
    mappings.markOver(Protocol::Tcp, again, 204);
    EXPECT_EQ(mappings.takeOver(201 + overLinger).ended.size(), 1U);
    EXPECT_EQ(mappings.takeOver(204 + overLinger).ended.size(), 1U);
}

// Media that flowed before the mapping has another public port, which the kernel would keep.
TEST_F(LiveMappingsTest, FlowsOlderThanTheMappingAreRemovedOnce) {
    open(MappingKind::Media, {host, 5000});
    const std::vector flows{udpOut({host, 5000}, {publicAddress, 5000})};
    EXPECT_EQ(sweep(flows, 1).flows.size(), 1U);
    EXPECT_TRUE(sweep(flows, 2).flows.empty());
}

TEST_F(LiveMappingsTest, AdoptsPairsAndSinglesOfAnEarlierRun) {
    const PortForward left[] = {{MappingKind::Media, 20001, {host, 5001}, 0},
                                {MappingKind::Media, 20000, {host, 5000}, 0},
                                {MappingKind::Ras, 20005, {host, 1719}, 0},
                                {MappingKind::Media, 20006, {host, 65535}, 0},
                                {MappingKind::Control, 1023, {host, 2000}, 0},
                                {MappingKind::Control, 20007, {host, 1023}, 0},
                                {MappingKind::Control, 20000, {host, 1720}, 0},
                                {MappingKind::Media, 20000, {otherHost, 5000}, 0}};
    EXPECT_EQ(mappings.adopt(left, publicAddress, 0), 3U);
    const Endpoint expected{publicAddress, 20000};
    EXPECT_EQ(open(MappingKind::Media, {host, 5000}, 1)->publicEndpoint, expected);
    EXPECT_EQ(open(MappingKind::Control, {host, 1720}, 1)->publicEndpoint, expected);
    EXPECT_EQ(mappings.allForwards().size(), 4U);
}

TEST_F(LiveMappingsTest, ANewRangeKeepsOldPortsTaken) {
    const uint16_t old = open(MappingKind::Media, {host, 20002})->publicEndpoint.port;
    LiveConfig config = configured();
    config.firstPort = old;
    config.lastPort = static_cast<uint16_t>(old + 3);
    mappings.configure(config);
    EXPECT_EQ(open(MappingKind::Media, {host, 5000})->publicEndpoint.port, old + 2);
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
    EXPECT_EQ(sweep({}, 50).ended.size(), 1U);
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
