// Lossless rewriting: the mode itself, and messages that make it leave a field.

#include <gtest/gtest.h>

#include <algorithm>

#include "nat/listed/message_edit.h"
#include "nat/listed/rewrite_mode.h"
#include "nat/listed/translation_counts.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"

using namespace test_support;

namespace {

TEST(RewriteModes, OtherValuesChangeNothing) {
    MemoryHost host;
    EXPECT_EQ(H323SetRewriteMode(7), H323NAT_REWRITE_ENCODED);
    EXPECT_EQ(H323SetRewriteMode(H323NAT_REWRITE_LOSSLESS), H323NAT_REWRITE_LOSSLESS);
    EXPECT_EQ(H323SetRewriteMode(UINT32_MAX), H323NAT_REWRITE_LOSSLESS);
    EXPECT_EQ(H323SetRewriteMode(H323NAT_REWRITE_ENCODED), H323NAT_REWRITE_ENCODED);
}

// A fast start of more than 16,384 octets: its open type comes in fragments, and the place of an
// element that a fragment's end splits cannot be told. Every other element is written, and no other
// octet changes.
TEST(Lossless, LeavesElementsThatAFragmentSplits) {
    constexpr size_t elementCount = 1500;
    const auto elements = [](bool translated) {
        std::vector<Octets> list;
        for (size_t i = 0; i < elementCount; ++i) {
            const auto port = static_cast<uint16_t>(MemoryHost::firstMediaPort + 2 * i);
            list.push_back(fastStartElement(
                {.forwardControl =
                     translated ? ipv4(MemoryHost::publicAddress, static_cast<uint16_t>(port + 1))
                                : ipv4(privateParty, 5001)}));
        }
        return q931({setup({.fastStart = list})});
    };
    const Octets sent = elements(false);
    const Octets translated = elements(true);
    ASSERT_GT(sent.size(), 16384U);

    MemoryHost host;
    OutboundCall call(host);
    EXPECT_EQ(call.fromCaller(sent).payload, translated);

    setRewriteMode(REWRITE_LOSSLESS);
    host.nextMediaPort = MemoryHost::firstMediaPort;
#ifndef NDEBUG
    translationCounts = {};
#endif
    const Delivered delivered = call.fromCaller(sent);
    size_t left = 0;
    for (size_t i = 0; i < sent.size(); ++i) {
        ASSERT_TRUE(delivered.payload[i] == translated[i] || delivered.payload[i] == sent[i]) << i;
        left += delivered.payload[i] != translated[i] ? 1 : 0;
    }
    EXPECT_LE(left, endpointOctets);
#ifndef NDEBUG
    EXPECT_EQ(translationCounts.fieldsWritten + translationCounts.placesUnknown, elementCount);
    EXPECT_EQ(translationCounts.placesUnknown, left > 0 ? 1U : 0U);
#endif
}

// What was decoded need not be what the packet holds: then nothing of it is known to be an address.
TEST(Lossless, LeavesOctetsOtherThanThoseRead) {
    MemoryHost host;
    setRewriteMode(REWRITE_LOSSLESS);
    Octets read = gatekeeperRequest(ipv4(privateParty, 1719));
    const Octets endpoint = octetsOfEndpoint(privateParty, 1719);
    const auto place = static_cast<size_t>(
        std::search(read.begin(), read.end(), endpoint.begin(), endpoint.end()) - read.begin());
    for (size_t other = 0; other <= endpoint.size(); ++other) {
        Octets packet = read;
        if (other < endpoint.size()) {
            packet[place + other] ^= 0x01;
        }
        const Octets before = packet;
        H225RasMessage message;
        MessageEdit edit;
        ASSERT_TRUE(decodeMessage(edit, {read.data(), read.size()},
                                  {packet.data(), 0, packet.size()}, message));
        EndpointField field;
        ASSERT_TRUE(findEndpoint(message.value.gatekeeperRequest->rasAddress, field));
        setEndpoint(edit, field, {MemoryHost::publicAddress, 40000});
        EXPECT_EQ(edit.changed, other == endpoint.size());
        EXPECT_EQ(packet == before, other < endpoint.size()) << other;
        closeMessage(edit);
    }
}

// An address that a segment's first or last octet cuts, whatever lies beside the segment.
TEST(Lossless, LeavesAddressesThatASegmentCuts) {
    MemoryHost host;
    setRewriteMode(REWRITE_LOSSLESS);
    Octets read = gatekeeperRequest(ipv4(privateParty, 1719));
    const Octets endpoint = octetsOfEndpoint(privateParty, 1719);
    const auto place =
        std::search(read.begin(), read.end(), endpoint.begin(), endpoint.end()) - read.begin();
    for (ptrdiff_t cut = place + 1; cut < place + 6; ++cut) {
        Octets around = read;
        const PacketPlace halves[] = {
            {around.data() + cut, -cut, around.size() - static_cast<size_t>(cut)},
            {around.data(), 0, static_cast<size_t>(cut)}};
        for (const PacketPlace& half : halves) {
            H225RasMessage message;
            MessageEdit edit;
            ASSERT_TRUE(decodeMessage(edit, {read.data(), read.size()}, half, message));
            EndpointField field;
            ASSERT_TRUE(findEndpoint(message.value.gatekeeperRequest->rasAddress, field));
            setEndpoint(edit, field, {MemoryHost::publicAddress, 40000});
            EXPECT_FALSE(edit.changed);
            EXPECT_EQ(around, read) << cut;
            closeMessage(edit);
        }
    }
}

#ifndef NDEBUG
// The counters tell a message that mode 0 reproduces from one that it does not.
TEST(TranslationCounts, KnowWhatEncodingLoses) {
    MemoryHost host;
    OutboundCall call(host);
    call.announceControl();
    translationCounts = {};
    call.onControl(openLogicalChannelAck({.media = ipv4(privateParty, 5000)}));
    EXPECT_EQ(translationCounts.messagesEncoded, 1U);
    EXPECT_EQ(translationCounts.messagesNotReproduced, 0U);

    for (const CapturedPacket& packet : readCapture("h245")) {
        if (packet.frame == 25) {
            call.onControl(packet.segment.payload);
        }
    }
    EXPECT_EQ(translationCounts.messagesEncoded, 2U);
    EXPECT_EQ(translationCounts.messagesNotReproduced, 1U);
    EXPECT_EQ(translationCounts.encodingsFailed, 1U);
}
#endif

} // namespace
