// H.245 of calls that private hosts place: the caller's OpenLogicalChannelAck.

#include <gtest/gtest.h>

#include "nat/listed/connection_pools.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"
#include "tests/support/own_addresses.h"

using namespace test_support;

namespace {

struct AcknowledgementCase {
    std::string name;
    AcknowledgementSpec sent;
    AcknowledgementSpec translated;
    bool asked = true;
    uint16_t publicPort = MemoryHost::firstMediaPort;
};

const AcknowledgementCase acknowledgementCases[] = {
    {"pair",
     {.media = own(5000), .control = own(5001)},
     {.media = mapped(40000), .control = mapped(40001)}},
    {"media alone", {.media = own(5000)}, {.media = mapped(40000)}},
    {"control alone", {.control = own(5001)}, {.control = own(5001)}, false},
    {"control IPv6",
     {.media = own(5000), .control = ipv6},
     {.media = mapped(40000), .control = ipv6}},
    {"media IPv6",
     {.media = ipv6, .control = own(5001)},
     {.media = ipv6, .control = own(5001)},
     false},
    {"not over RTP", {.overRtp = false}, {.overRtp = false}, false},
    {"T.120 stack is not the caller's business",
     {.media = own(5000), .separateStack = own(1503)},
     {.media = mapped(40000), .separateStack = own(1503)}},
    {"no RTCP port",
     {.media = own(5000), .control = own(5001)},
     {.media = own(5000), .control = own(5001)},
     true,
     65535},
    {"the last RTCP port",
     {.media = own(5000), .control = own(5001)},
     {.media = mapped(65534), .control = mapped(65535)},
     true,
     65534},
    {"no RTCP port is needed", {.media = own(5000)}, {.media = mapped(65535)}, true, 65535},
};

class OutboundControl : public testing::TestWithParam<RewriteMode> {
protected:
    OutboundControl() {
        setRewriteMode(GetParam());
        call.announceControl();
    }

    MemoryHost host;
    OutboundCall call{host};
    const Octets acknowledgement =
        openLogicalChannelAck({.media = own(5000), .control = own(5001)});
};

TEST_P(OutboundControl, TranslatesTheAcknowledgement) {
    for (const AcknowledgementCase& test : acknowledgementCases) {
        SCOPED_TRACE(test.name);
        host.nextMediaPort = test.publicPort;
        const Octets sent = openLogicalChannelAck(test.sent);
        const Octets translated = openLogicalChannelAck(test.translated);
        const Delivered delivered = call.onControl(sent);
        EXPECT_EQ(toHex(delivered.payload), toHex(translated));
        EXPECT_EQ(delivered.changed, translated != sent);
        EXPECT_EQ(host.takeLog("media"),
                  test.asked ? std::vector<std::string>{"media 10.0.0.5:5000 > 203.0.113.9"}
                             : std::vector<std::string>{});
    }
}

TEST_P(OutboundControl, LeavesEverythingElse) {
    for (const Octets& message :
         {openLogicalChannel({.forwardControl = own(5001), .separateStack = own(1503)}),
          roundTripDelayRequest(), tpkt({}), tpkt(fromHex("ff")), tpkt(fromHex("22c0006403"))}) {
        const Delivered delivered = call.onControl(message);
        EXPECT_EQ(delivered.payload, message);
        EXPECT_FALSE(delivered.changed);
    }
    EXPECT_TRUE(host.log.empty());
    // The stream goes on behind them.
    EXPECT_TRUE(call.onControl(acknowledgement).changed);
}

// TPKT lengths below the header's own 4 octets: what they cover is dropped, nothing is read
// outside.
TEST_P(OutboundControl, SurvivesLengthsBelowTheHeader) {
    for (uint8_t length = 0; length < 4; ++length) {
        const Octets message = {3, 0, 0, length};
        EXPECT_EQ(call.onControl(message).payload, message);
    }
    EXPECT_TRUE(host.log.empty());
}

// The host's records of the pair go to the head of the H.245 connection's list, first one first.
TEST_P(OutboundControl, LinksTheMediaRecords) {
    call.controlRecord->inherited24 = 0x24242424;
    call.controlRecord->inherited28 = 0x2828;
    call.controlRecord->inherited2A = 0x2a2a2a2a;
    call.onControl(acknowledgement);
    HostMappingRecord* const older[] = {host.lastFirst, host.lastSecond};
    call.onControl(acknowledgement);

    HostMappingRecord* const expected[] = {host.lastFirst, host.lastSecond, older[0], older[1]};
    HostMappingRecord* previous = nullptr;
    HostMappingRecord* record = call.controlRecord->firstMediaRecord;
    for (HostMappingRecord* const next : expected) {
        ASSERT_EQ(record, next);
        // The plus copies a member that may stand unaligned in its packed record.
        EXPECT_EQ(+record->parent, call.controlRecord);
        EXPECT_EQ(+record->previousSibling, previous);
        EXPECT_EQ(+record->inherited24, 0x24242424U);
        EXPECT_EQ(+record->inherited28, 0x2828);
        EXPECT_EQ(+record->inherited2A, 0x2a2a2a2aU);
        previous = record;
        record = record->nextSibling;
    }
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(+call.signallingRecord->controlLink, call.controlRecord);

    // The newest H.245 connection of the call counts.
    HostMappingRecord before = {};
    call.signallingRecord->controlLink = &before;
    call.onControl(acknowledgement);
    EXPECT_EQ(+call.signallingRecord->controlLink, call.controlRecord);
}

// The host asks for no links, sets no records, or does not know the connection: the message is
// translated all the same.
TEST_P(OutboundControl, TranslatesWithoutLinks) {
    host.skipLinking = 2;
    EXPECT_TRUE(call.onControl(acknowledgement).changed);
    EXPECT_TRUE(host.takeLog("inside").empty());
    EXPECT_EQ(+host.lastFirst->parent, nullptr);

    host.skipLinking = 0;
    findByRemoteEndpoint({outsideParty, OutboundCall::controlPort})->insideFlow.sourcePort = 1;
    EXPECT_TRUE(call.onControl(acknowledgement).changed);
    EXPECT_EQ(host.takeLog("inside"),
              std::vector<std::string>{"inside 10.0.0.5:1 > 203.0.113.9:38333"});
    EXPECT_EQ(+host.lastFirst->parent, nullptr);
    EXPECT_EQ(+call.signallingRecord->controlLink, nullptr);
}

// Half a pair is not linked. A call whose signalling the host does not know gets no link, its media
// records do.
TEST_P(OutboundControl, LinksWhatThereIs) {
    for (const unsigned records : {0U, 1U}) {
        host.recordsAnswered = records;
        EXPECT_TRUE(call.onControl(acknowledgement).changed);
        EXPECT_EQ(+call.controlRecord->firstMediaRecord, nullptr);
        EXPECT_EQ(+call.signallingRecord->controlLink, nullptr);
    }
    host.recordsAnswered = 2;
    findByRemoteEndpoint({outsideParty, OutboundCall::controlPort})->callHostRecord = nullptr;
    EXPECT_TRUE(call.onControl(acknowledgement).changed);
    EXPECT_EQ(+call.controlRecord->firstMediaRecord, host.lastFirst);
    EXPECT_EQ(+call.signallingRecord->controlLink, nullptr);
}

// A host that answers nothing gets its mistake into the message, as the contract says: port 0.
TEST_P(OutboundControl, WritesWhatTheHostLeft) {
    host.mediaAnswers = 0;
    EXPECT_EQ(call.onControl(acknowledgement).payload,
              openLogicalChannelAck({.media = mapped(0), .control = mapped(1)}));
}

INSTANTIATE_TEST_SUITE_P(, OutboundControl, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
