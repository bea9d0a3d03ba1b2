// What an observer is told in the listed scope; the tests of calls show the full one.

#include <gtest/gtest.h>

#include "tests/full/full_host.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"

using namespace test_support;
using Lines = std::vector<std::string>;

namespace {

const std::string rtp = ".multiplexParameters.h2250LogicalChannelParameters.";
const std::string ack = ".forwardMultiplexAckParameters.h2250LogicalChannelAckParameters.";

// With N for the numbers of calls, of which no two are the same.
Lines withoutCallNumbers(Lines lines) {
    for (std::string& line : lines) {
        for (const std::string word : {"began ", "ended "}) {
            if (line.starts_with(word)) {
                line = word + "N" + line.substr(line.find(' ', word.size()));
            }
        }
    }
    return lines;
}

TEST(ObserverInListedScope, IsToldOfAnOutboundCall) {
    MemoryHost host;
    ToldLines told;
    OutboundCall call(host);
    const TestAddress media = ipv4(privateParty, 5000);
    ChannelSpec channel;
    channel.forwardOverRtp = false;
    channel.reverse = true;
    channel.reverseMedia = media;
    call.fromCaller(q931({setup({{}, {{fastStartElement(channel)}}})}));
    call.announceControl();
    call.onControl(openLogicalChannel({true, {}, ipv4(privateParty, 5001)}));
    call.onControl(openLogicalChannelAck({true, ipv4(privateParty, 5002)}));
    call.fromCalled(q931({releaseComplete()}));
    const Lines expected = {
        "began N sent 10.0.0.5:50000 203.0.113.9:1720",
        "message sent setup",
        "rewritten setup.fastStart[0].reverseLogicalChannelParameters" + rtp +
            "mediaChannel.unicastAddress.iPAddress media 10.0.0.5:5000 203.0.113.1:40000",
        "message received connect",
        "announced h245 tcp 0.0.0.0:0 0.0.0.0:0 203.0.113.9:38333",
        "message sent openLogicalChannel",
        "left request.openLogicalChannel.forwardLogicalChannelParameters" + rtp +
            "mediaControlChannel.unicastAddress.iPAddress media 10.0.0.5:5001 9",
        "message sent openLogicalChannelAck",
        "rewritten response.openLogicalChannelAck" + ack +
            "mediaChannel.unicastAddress.iPAddress media 10.0.0.5:5002 203.0.113.1:40002",
        "message received releaseComplete",
        "ended N 1 0",
    };
    EXPECT_EQ(withoutCallNumbers(told.lines), expected);
    EXPECT_EQ(told.callsOfMessages.size(), 1U);
    EXPECT_FALSE(told.callsOfMessages.contains(0));
}

TEST(ObserverInListedScope, IsToldOfAnInboundCall) {
    MemoryHost host;
    ToldLines told;
    InboundCall call(host);
    call.fromRemote(q931({setup({ipv4(MemoryHost::publicAddress, 1720)})}));
    call.announceControl();
    call.onControl(openLogicalChannelAck({true, ipv4(privateParty, 5002)}));
    TarvexActivateInboundMapping(0);
    const Lines expected = {
        "began N received 10.0.0.5:1720 203.0.113.9:50000",
        "message received setup",
        "rewritten setup.destCallSignalAddress.ipAddress signalling 203.0.113.1:1720 10.0.0.5:1720",
        "message sent connect",
        "announced h245 tcp 10.0.0.5:47231 203.0.113.1:30000 0.0.0.0:0",
        "rewritten connect.h245Address.ipAddress h245 10.0.0.5:47231 203.0.113.1:30000",
        "message sent openLogicalChannelAck",
        "rewritten response.openLogicalChannelAck" + ack +
            "mediaChannel.unicastAddress.iPAddress media 10.0.0.5:5002 203.0.113.1:40000",
        "over h245 tcp 10.0.0.5:47231 0.0.0.0:0 0.0.0.0:0",
        "ended N 3 0",
    };
    EXPECT_EQ(withoutCallNumbers(told.lines), expected);
    EXPECT_EQ(told.callsOfMessages.size(), 1U);
    EXPECT_FALSE(told.callsOfMessages.contains(0));
}

} // namespace
