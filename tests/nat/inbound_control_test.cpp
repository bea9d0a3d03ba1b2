// H.245 of the call to the published host: what the published host announces.

#include <gtest/gtest.h>

#include <algorithm>

#include "nat/listed/rewrite_mode.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"
#include "tests/support/own_addresses.h"

using namespace test_support;

namespace {

constexpr uint16_t t120 = 1503;

struct ControlCase {
    std::string name;
    Octets sent;
    Octets translated;
    bool asked = false;
    uint16_t publicPort = MemoryHost::firstMediaPort;
};

ControlCase acknowledgement(const std::string& name, const AcknowledgementSpec& sent,
                            const AcknowledgementSpec& translated, bool asked,
                            uint16_t publicPort = MemoryHost::firstMediaPort) {
    return {name, openLogicalChannelAck(sent), openLogicalChannelAck(translated), asked,
            publicPort};
}

ControlCase channel(const std::string& name, const ChannelSpec& sent,
                    const ChannelSpec& translated) {
    return {name, openLogicalChannel(sent), openLogicalChannel(translated)};
}

std::vector<ControlCase> controlCases() {
    const TestAddress other = ipv4(outsideParty, t120);
    return {
        acknowledgement("pair", {.media = own(5004), .control = own(9)},
                        {.media = mapped(40000), .control = mapped(40001)}, true),
        acknowledgement("media alone", {.media = own(5004)}, {.media = mapped(40000)}, true),
        acknowledgement("IPv6 control", {.media = own(5004), .control = ipv6},
                        {.media = mapped(40000), .control = ipv6}, true),
        acknowledgement("no RTCP port", {.media = own(5004), .control = own(5005)},
                        {.media = own(5004), .control = own(5005)}, true, 65535),
        acknowledgement("not over RTP", {.overRtp = false}, {.overRtp = false}, false),
        acknowledgement("T.120 at any address", {.overRtp = false, .separateStack = other},
                        {.overRtp = false, .separateStack = mapped(t120)}, false),
        acknowledgement("another stack", {.overRtp = false, .separateStack = own(1504)},
                        {.overRtp = false, .separateStack = own(1504)}, false),
        acknowledgement(
            "pair and T.120",
            {.media = own(5004), .control = own(5005), .separateStack = own(t120)},
            {.media = mapped(40000), .control = mapped(40001), .separateStack = mapped(t120)},
            true),
        acknowledgement("T.120 although the pair has no RTCP port",
                        {.media = own(5004), .control = own(5005), .separateStack = own(t120)},
                        {.media = own(5004), .control = own(5005), .separateStack = mapped(t120)},
                        true, 65535),
        channel("forward control", {.forwardMedia = own(5004), .forwardControl = own(5005)},
                {.forwardMedia = own(5004), .forwardControl = mapped(5005)}),
        channel("IPv6", {.forwardControl = ipv6}, {.forwardControl = ipv6}),
        channel("T.120", {.forwardOverRtp = false, .reverse = true, .separateStack = own(t120)},
                {.forwardOverRtp = false, .reverse = true, .separateStack = mapped(t120)}),
        channel("T.120, one direction", {.forwardOverRtp = false, .separateStack = own(t120)},
                {.forwardOverRtp = false, .separateStack = own(t120)}),
        channel("T.120 of another host",
                {.forwardOverRtp = false, .reverse = true, .separateStack = other},
                {.forwardOverRtp = false, .reverse = true, .separateStack = other}),
        channel("T.120 on another port",
                {.forwardOverRtp = false, .reverse = true, .separateStack = own(1504)},
                {.forwardOverRtp = false, .reverse = true, .separateStack = own(1504)}),
        channel("forward control and T.120",
                {.forwardControl = own(5005), .reverse = true, .separateStack = own(t120)},
                {.forwardControl = mapped(5005), .reverse = true, .separateStack = mapped(t120)}),
        {"another message", roundTripDelayRequest(), roundTripDelayRequest()},
        {"no message", tpkt({}), tpkt({})},
    };
}

class InboundControl : public testing::TestWithParam<RewriteMode> {
protected:
    InboundControl() {
        setRewriteMode(GetParam());
        call.announceControl();
    }

    MemoryHost host;
    InboundCall call{host};
};

TEST_P(InboundControl, TranslatesWhatThePublishedHostAnnounces) {
    for (const ControlCase& test : controlCases()) {
        SCOPED_TRACE(test.name);
        host.nextMediaPort = test.publicPort;
        const Delivered delivered = call.onControl(test.sent);
        EXPECT_EQ(toHex(delivered.payload), toHex(test.translated));
        EXPECT_EQ(delivered.changed, test.translated != test.sent);
        EXPECT_EQ(host.takeLog(""),
                  test.asked ? (std::vector<std::string>{"media 10.0.0.5:5004 > 203.0.113.9",
                                                         "inside 10.0.0.5:47231 > "
                                                         "203.0.113.9:51000"})
                             : std::vector<std::string>{});
    }
}

TEST_P(InboundControl, LinksTheMediaRecords) {
    const Octets message = openLogicalChannelAck({.media = own(5004)});
    call.onControl(message);
    // The plus copies a member that may stand unaligned in its packed record.
    EXPECT_EQ(+call.controlRecord->firstMediaRecord, host.lastFirst);
    EXPECT_EQ(+host.lastFirst->nextSibling, host.lastSecond);
    EXPECT_EQ(+call.controlRecord->controlLink, nullptr);

    host.skipLinking = 1;
    EXPECT_TRUE(call.onControl(message).changed);
    EXPECT_EQ(+host.lastFirst->parent, nullptr);
}

// An acknowledgement that today's module encodes one octet longer, which fails. What follows in the
// message's rules is not tried then.
TEST_P(InboundControl, StopsAfterAnEncodingThatFails) {
    Octets message = openLogicalChannelAck(
        {.media = own(5004), .control = own(5005), .separateStack = own(t120)});
    // flowControlToZero, as those who know no further addition of the parameters send it.
    size_t length = message.size() - 1;
    while (message[length] != message.size() - 1 - length) {
        --length;
    }
    message[length + 1] |= 0x40;
    message[length] = static_cast<uint8_t>(message[length] + 3);
    message[3] = static_cast<uint8_t>(message[3] + 3);
    message = joined(message, {0x01, 0x01, 0x00});

    const Delivered delivered = call.onControl(message);
    EXPECT_TRUE(delivered.changed);
    const Octets stack = octetsOfEndpoint(privateParty, t120);
    const auto place =
        std::search(message.begin(), message.end(), stack.begin(), stack.end()) - message.begin();
    const uint8_t* left = delivered.payload.data() + place;
    EXPECT_EQ(
        Octets(left, left + 4),
        octetsOfAddress(GetParam() == REWRITE_ENCODED ? privateParty : MemoryHost::publicAddress));
}

// The outside party's T.120 connection is tied to the call that it belongs to, once.
TEST(T120Connection, IsTiedToTheOutboundCall) {
    MemoryHost host;
    OutboundCall call(host);
    call.announceControl();
    call.onControl(roundTripDelayRequest());
    HostMappingRecord* record = host.addFlow({privateParty, outsideParty, 52000, t120});
    Stream t120Stream({outsideParty, MemoryHost::publicAddress, t120, 52000}, 1);
    host.receive(t120Stream.next(fromHex("03000007")));
    EXPECT_EQ(+record->controlLink, call.controlRecord);

    HostMappingRecord other = {};
    record->controlLink = &other;
    host.receive(t120Stream.next(fromHex("03000007")));
    EXPECT_EQ(+record->controlLink, &other);
}

INSTANTIATE_TEST_SUITE_P(, InboundControl, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
