// Which calls stay in the list, and whose packets the kernel's counts are.
#include "gateway/live/live_calls.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace gateway {
namespace {

const Endpoint host{0x0A000005, 40000};
const Endpoint party{0xCB007109, 1720};
const FlowId connection{Protocol::Tcp, host, party};

ReportedCall told(uint64_t number, const Endpoint& inside = host) {
    ReportedCall call;
    call.call = number;
    call.inside = inside;
    call.outside = party;
    return call;
}

// The kernel has counted so many packets of the connection.
void survey(LiveCalls& calls, PacketGrowth& growth, uint64_t sent, uint64_t received) {
    FlowSurvey survey;
    calls.ask(survey);
    TrackedFlow flow{Protocol::Tcp, host, party, party, {0xCB007101, 40000}};
    flow.originalPackets = sent;
    flow.replyPackets = received;
    survey.fill({&flow, 1}, {}, growth);
    calls.countSignalling(survey);
    calls.endSurvey();
}

TEST(LiveCalls, StrangersPushNoCallOutOfTheList) {
    LiveCalls calls;
    for (uint64_t number = 1; number <= 2 * LiveCalls::endedKept; ++number) {
        calls.begin(told(number), 0);
        EXPECT_NE(calls.end(number, H323NAT_END_RELEASED, 16, 1), nullptr);
        EXPECT_EQ(calls.end(number, H323NAT_END_RELEASED, 16, 1), nullptr) << "over already";
    }
    EXPECT_EQ(calls.ended().size(), LiveCalls::endedKept);
    EXPECT_EQ(calls.find(1), nullptr);
    EXPECT_NE(calls.miss(told(0), "no record", 10), nullptr);
    EXPECT_EQ(calls.miss(told(0), "no record", 11), nullptr) << "the same Setup again";
    EXPECT_NE(calls.miss(told(0), "no record", 100), nullptr);
    for (uint16_t port = 1; port < 1000; ++port) {
        EXPECT_NE(calls.miss(told(0, {host.address, port}), "no record", 200), nullptr);
    }
    EXPECT_GT(std::count_if(calls.ended().begin(), calls.ended().end(),
                            [](const LiveCall& call) { return call.number != 0; }),
              800);
    EXPECT_EQ(calls.ended().back().verdict(), "not translated: no record");
    EXPECT_NE(calls.find(2 * LiveCalls::endedKept), nullptr);
}

TEST(LiveCalls, PacketsAreCountedToTheCallThatRuns) {
    LiveCalls calls;
    PacketGrowth growth;
    calls.begin(told(1), 0);
    survey(calls, growth, 0, 0);
    EXPECT_FALSE(calls.find(1)->counted) << "the kernel does not count";
    survey(calls, growth, 10, 8);
    calls.end(1, H323NAT_END_RELEASED, 16, 5);
    survey(calls, growth, 14, 11); // may have begun before the call's end
    survey(calls, growth, 15, 12);
    calls.begin(told(2), 20); // by the same connection
    survey(calls, growth, 20, 14);
    survey(calls, growth, 3, 2); // which was opened again
    EXPECT_EQ(calls.find(1)->signalling.sent, 15U);
    EXPECT_EQ(calls.find(1)->signalling.received, 12U);
    EXPECT_EQ(calls.find(2)->signalling.sent, 8U);
    EXPECT_EQ(calls.find(2)->signalling.received, 4U);
    const FlowSurvey::Flow flows[] = {{{}, {}, {7, 2}, false}, {{}, {}, {3, 3}, true}};
    EXPECT_NE(calls.countMedia(2, flows), nullptr);
    EXPECT_EQ(calls.countMedia(1, flows), nullptr) << "over for too long";
    EXPECT_EQ(calls.find(1)->media.sent, 0U);
    EXPECT_EQ(calls.find(2)->media.sent, 7U) << "RTCP is no media";
}

TEST(LiveCalls, ACallIsClosedWithAllItsConnections) {
    LiveCalls calls;
    calls.begin(told(1), 0);
    ReportedMessage control;
    control.call = 1;
    control.role = H323NAT_ROLE_H245;
    control.direction = H323NAT_SENT;
    control.inside = host;
    control.outside = {party.address, 5000};
    const auto closed = [&](bool signallingOpen, bool controlOpen) {
        FlowSurvey survey;
        calls.ask(survey);
        std::vector<TrackedFlow> flows;
        for (const auto& [remote, open] :
             {std::pair{party, signallingOpen}, std::pair{control.outside, controlOpen}}) {
            flows.push_back({Protocol::Tcp, host, remote, remote, {0xCB007101, 40000}});
            flows.back().tcpOpen = open;
        }
        PacketGrowth growth;
        survey.fill(flows, {}, growth);
        return calls.closed(survey).size();
    };
    EXPECT_EQ(closed(true, false), 0U);
    FlowSurvey before;
    calls.note(control, 1);
    EXPECT_EQ(calls.closed(before).size(), 0U) << "not looked for";
    EXPECT_EQ(closed(false, true), 0U);
    EXPECT_EQ(closed(false, false), 1U);
}

} // namespace
} // namespace gateway
