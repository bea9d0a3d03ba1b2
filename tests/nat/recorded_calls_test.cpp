// The recorded calls, through the hooks: what changes, what the host is asked, and what becomes of
// the same messages when TCP cuts them differently.

#include <gtest/gtest.h>

#include <map>

#include "nat/listed/rewrite_mode.h"
#include "nat/q931.h"
#include "tests/support/calls.h"
#include "tests/support/encoded_again.h"

using namespace test_support;

namespace {

constexpr uint32_t publicAddress = MemoryHost::publicAddress;

// Octets of a frame's payload.
struct FieldPatch {
    size_t frame;
    size_t offset;
    Octets octets;
};

struct RecordedCall {
    // Names a failing test; the default would print the octets of this record.
    friend void PrintTo(const RecordedCall& call, std::ostream* out) { *out << call.capture; }

    std::string capture;
    bool inbound;
    std::vector<FieldPatch> before; // what NAT between the parties would have changed already
    std::vector<FieldPatch> rewrites;
    std::vector<std::string> log; // media and control mappings, links
};

FieldPatch address4(size_t frame, size_t offset, uint32_t address) {
    return {frame, offset, octetsOfAddress(address)};
}

FieldPatch publicEndpoint(size_t frame, size_t offset, uint16_t port) {
    return {frame, offset, octetsOfEndpoint(publicAddress, port)};
}

const RecordedCall recordedCalls[] = {
    {"h245",
     false,
     {},
     {publicEndpoint(25, 14, 40000), publicEndpoint(25, 21, 40001)},
     {"outside 203.0.113.1:59058 > 203.0.113.9:1720",
      "outside 203.0.113.1:59058 > 203.0.113.9:1720", "media 10.0.0.5:5000 > 203.0.113.9",
      "inside 10.0.0.5:35738 > 203.0.113.9:38333"}},
    {"fast-h245",
     false,
     {},
     {publicEndpoint(3, 174, 40000), publicEndpoint(3, 181, 40001), publicEndpoint(3, 213, 40003),
      publicEndpoint(3, 250, 40004), publicEndpoint(3, 257, 40005), publicEndpoint(3, 289, 40007)},
     {"outside 203.0.113.1:51434 > 203.0.113.9:1720", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1", "outside 203.0.113.1:51434 > 203.0.113.9:1720"}},
    {"fast-tun",
     false,
     {},
     {publicEndpoint(3, 174, 40000), publicEndpoint(3, 181, 40001), publicEndpoint(3, 213, 40003),
      publicEndpoint(3, 250, 40004), publicEndpoint(3, 257, 40005), publicEndpoint(3, 289, 40007)},
     {"outside 203.0.113.1:58296 > 203.0.113.9:1720", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1"}},
    {"gk-direct",
     false,
     {},
     {publicEndpoint(0, 12, 40000), address4(2, 14, publicAddress), publicEndpoint(2, 22, 40002),
      publicEndpoint(9, 184, 40004), publicEndpoint(9, 191, 40005), publicEndpoint(9, 223, 40007),
      publicEndpoint(9, 260, 40008), publicEndpoint(9, 267, 40009), publicEndpoint(9, 299, 40011)},
     {"media 10.0.0.5:1719 > 203.0.113.8", "media 10.0.0.5:1719 > 203.0.113.8",
      "outside 203.0.113.1:58788 > 203.0.113.9:1720", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1", "media 10.0.0.5:5000 > 1.1.1.1",
      "media 10.0.0.5:5000 > 1.1.1.1"}},
    {"gk-routed",
     false,
     {},
     {publicEndpoint(0, 12, 40000), address4(2, 14, publicAddress), publicEndpoint(2, 22, 40002),
      publicEndpoint(32, 14, 40004), publicEndpoint(32, 21, 40005)},
     {"media 10.0.0.5:1719 > 203.0.113.8", "media 10.0.0.5:1719 > 203.0.113.8",
      "outside 203.0.113.1:50392 > 203.0.113.8:1720",
      "outside 203.0.113.1:50392 > 203.0.113.8:1720", "media 10.0.0.5:5000 > 203.0.113.9",
      "inside 10.0.0.5:44582 > 203.0.113.9:51815"}},
    {"in-h245",
     true,
     {address4(3, 95, publicAddress)},
     {address4(3, 95, privateParty), publicEndpoint(7, 31, MemoryHost::firstControlPort),
      address4(25, 17, publicAddress), publicEndpoint(26, 14, 40000),
      publicEndpoint(26, 21, 40001)},
     {"control 10.0.0.5:47231 > 203.0.113.9", "media 10.0.0.5:5000 > 203.0.113.9",
      "inside 10.0.0.5:47231 > 203.0.113.9:60616"}},
    {"in-fast-tun", true, {address4(3, 95, publicAddress)}, {address4(3, 95, privateParty)}, {}},
};

MessageKind kindOf(const Segment& segment) {
    constexpr uint16_t signallingPort = 1720;
    if (segment.udp) {
        return MessageKind::ras;
    }
    return segment.flow.sourcePort == signallingPort ||
                   segment.flow.destinationPort == signallingPort
               ? MessageKind::userInformation
               : MessageKind::control;
}

// Where the PER encoding begins in a payload that is one whole message.
size_t encodingStart(const Segment& segment) {
    switch (kindOf(segment)) {
    case MessageKind::ras:
        return 0;
    case MessageKind::control:
        return 4;
    default:
        Q931Walk walk = walkQ931(segment.payload.data(), segment.payload.size());
        OctetRange range = {};
        nextUserInformation(walk, range);
        return range.offset;
    }
}

// A call as it was recorded, with its segments as the hooks see them.
class CallReplay {
public:
    explicit CallReplay(const RecordedCall& call, RewriteMode mode)
        : call_(call), packets_(readCapture(call.capture)) {
        setRewriteMode(mode);
        if (call.inbound) {
            TarvexActivateInboundMapping(privateParty);
        }
        for (CapturedPacket& packet : packets_) {
            apply(call.before, packet);
            if (packet.sent && !packet.segment.udp && flows_.insert({key(packet), true}).second) {
                host.addFlow(packet.segment.flow);
            }
        }
    }

    const std::vector<CapturedPacket>& packets() const { return packets_; }

    Delivered deliver(const CapturedPacket& packet) {
        return packet.sent ? host.send(packet.segment) : host.receive(packet.segment);
    }

    void deliverUpTo(size_t frame) {
        for (const CapturedPacket& packet : packets_) {
            if (packet.frame == frame) {
                return;
            }
            deliver(packet);
        }
    }

    const CapturedPacket& packet(size_t frame) const {
        for (const CapturedPacket& packet : packets_) {
            if (packet.frame == frame) {
                return packet;
            }
        }
        throw std::out_of_range("no such frame");
    }

    bool rewrites(size_t frame) const {
        for (const FieldPatch& patch : call_.rewrites) {
            if (patch.frame == frame) {
                return true;
            }
        }
        return false;
    }

    // The payload that the module is to send on in the mode in force.
    Octets expected(const CapturedPacket& packet) const {
        CapturedPacket rewritten = packet;
        apply(call_.rewrites, rewritten);
        if (rewriteMode == REWRITE_ENCODED && rewrites(packet.frame)) {
            return encodedAgain(packet.segment.payload, rewritten.segment.payload,
                                encodingStart(packet.segment), kindOf(packet.segment), packet.sent);
        }
        return rewritten.segment.payload;
    }

    // The same when only octets from `cut` on can still be written.
    Octets expectedBehind(const CapturedPacket& packet, size_t cut) const {
        if (rewriteMode == REWRITE_ENCODED) {
            return cut <= encodingStart(packet.segment) ? expected(packet) : packet.segment.payload;
        }
        Octets payload = packet.segment.payload;
        for (const FieldPatch& patch : call_.rewrites) {
            if (patch.frame == packet.frame && patch.offset >= cut) {
                overwrite(payload, patch.offset, patch.octets);
            }
        }
        return payload;
    }

    MemoryHost host;

private:
    static std::string key(const CapturedPacket& packet) {
        const FlowKey& flow = packet.segment.flow;
        return endpointText(flow.sourceAddress, flow.sourcePort) +
               endpointText(flow.destinationAddress, flow.destinationPort);
    }

    static void apply(const std::vector<FieldPatch>& patches, CapturedPacket& packet) {
        for (const FieldPatch& patch : patches) {
            if (patch.frame == packet.frame) {
                overwrite(packet.segment.payload, patch.offset, patch.octets);
            }
        }
    }

    const RecordedCall& call_;
    std::vector<CapturedPacket> packets_;
    std::map<std::string, bool> flows_;
};

using CallAndMode = std::tuple<RecordedCall, RewriteMode>;

class RecordedCalls : public testing::TestWithParam<CallAndMode> {};

std::string callName(const testing::TestParamInfo<CallAndMode>& info) {
    std::string name = std::get<0>(info.param).capture;
    std::replace(name.begin(), name.end(), '-', '_');
    return name + (std::get<1>(info.param) == REWRITE_LOSSLESS ? "_lossless" : "_encoded");
}

TEST_P(RecordedCalls, ChangeInTheirAddressesOnly) {
    const auto& [call, mode] = GetParam();
    CallReplay replay(call, mode);
    for (const CapturedPacket& packet : replay.packets()) {
        const Delivered delivered = replay.deliver(packet);
        EXPECT_EQ(toHex(delivered.payload), toHex(replay.expected(packet)))
            << "frame " << packet.frame;
        EXPECT_EQ(delivered.changed, replay.rewrites(packet.frame)) << "frame " << packet.frame;
    }
    EXPECT_EQ(replay.host.log, call.log);
}

// Every rewritten message, cut at every place into two segments.
TEST_P(RecordedCalls, CutAnywhere) {
    const auto& [call, mode] = GetParam();
    const std::vector<CapturedPacket> packets = readCapture(call.capture);
    for (const FieldPatch& rewrite : call.rewrites) {
        const size_t length = CallReplay(call, mode).packet(rewrite.frame).segment.payload.size();
        const bool datagram = CallReplay(call, mode).packet(rewrite.frame).segment.udp;
        for (size_t cut = 1; cut < length && !datagram; ++cut) {
            CallReplay replay(call, mode);
            replay.deliverUpTo(rewrite.frame);
            const CapturedPacket& whole = replay.packet(rewrite.frame);
            CapturedPacket first = whole;
            CapturedPacket second = whole;
            const auto middle = whole.segment.payload.begin() + static_cast<ptrdiff_t>(cut);
            first.segment.payload.assign(whole.segment.payload.begin(), middle);
            second.segment.payload.assign(middle, whole.segment.payload.end());
            second.segment.sequence += static_cast<uint32_t>(cut);

            const Delivered begin = replay.deliver(first);
            const Delivered end = replay.deliver(second);
            Octets joined = begin.payload;
            joined.insert(joined.end(), end.payload.begin(), end.payload.end());

            // What a private caller sends to port 1720 is looked at segment by segment.
            const bool reassembled = call.inbound || kindOf(whole.segment) == MessageKind::control;
            const Octets expected =
                reassembled ? replay.expectedBehind(whole, cut) : whole.segment.payload;
            ASSERT_EQ(toHex(joined), toHex(expected)) << "frame " << whole.frame << " cut " << cut;
            EXPECT_FALSE(begin.changed);
            EXPECT_EQ(end.changed, expected != whole.segment.payload ||
                                       (reassembled && mode == REWRITE_ENCODED &&
                                        cut <= encodingStart(whole.segment)));
        }
    }
}

// Nothing of a message that arrives octet by octet can still be written, but it is understood.
TEST_P(RecordedCalls, OctetByOctet) {
    const auto& [call, mode] = GetParam();
    CallReplay replay(call, mode);
    for (const CapturedPacket& packet : replay.packets()) {
        if (packet.segment.udp || packet.segment.payload.empty()) {
            replay.deliver(packet);
            continue;
        }
        for (size_t i = 0; i < packet.segment.payload.size(); ++i) {
            CapturedPacket octet = packet;
            octet.segment.payload = {packet.segment.payload[i]};
            octet.segment.sequence += static_cast<uint32_t>(i);
            const Delivered delivered = replay.deliver(octet);
            ASSERT_EQ(delivered.payload, octet.segment.payload) << "frame " << packet.frame;
            ASSERT_FALSE(delivered.changed) << "frame " << packet.frame;
        }
    }
    std::vector<std::string> fastStartLeft = call.log;
    std::erase(fastStartLeft, "media 10.0.0.5:5000 > 1.1.1.1");
    EXPECT_EQ(replay.host.log, fastStartLeft);
}

// All that one party sends on a connection, in one segment of several messages. A Setup with fast
// start is then not the only message of its segment and stays.
TEST_P(RecordedCalls, SeveralMessagesInOneSegment) {
    const auto& [call, mode] = GetParam();
    for (const FieldPatch& rewrite : call.rewrites) {
        CallReplay replay(call, mode);
        const CapturedPacket& first = replay.packet(rewrite.frame);
        if (first.segment.udp) {
            continue;
        }
        replay.deliverUpTo(rewrite.frame);
        CapturedPacket joined = first;
        Octets expected = replay.expected(first);
        for (const CapturedPacket& later : replay.packets()) {
            if (later.frame > first.frame && later.segment.flow == first.segment.flow) {
                const Octets& payload = later.segment.payload;
                joined.segment.payload.insert(joined.segment.payload.end(), payload.begin(),
                                              payload.end());
                const Octets& laterExpected = replay.expected(later);
                expected.insert(expected.end(), laterExpected.begin(), laterExpected.end());
            }
        }
        const bool reassembled = call.inbound || kindOf(first.segment) == MessageKind::control;
        const Delivered delivered = replay.deliver(joined);
        EXPECT_EQ(toHex(delivered.payload), toHex(reassembled ? expected : joined.segment.payload));
        EXPECT_EQ(delivered.changed, reassembled);
    }
}

// A retransmission brings nothing new on a reassembled stream; a Setup or a datagram is translated
// again.
TEST_P(RecordedCalls, Retransmission) {
    const auto& [call, mode] = GetParam();
    for (const FieldPatch& rewrite : call.rewrites) {
        CallReplay replay(call, mode);
        const CapturedPacket& packet = replay.packet(rewrite.frame);
        replay.deliverUpTo(rewrite.frame);
        EXPECT_TRUE(replay.deliver(packet).changed);
        replay.host.log.clear();
        const Delivered again = replay.deliver(packet);
        const bool reassembled =
            !packet.segment.udp && (call.inbound || kindOf(packet.segment) == MessageKind::control);
        EXPECT_EQ(again.changed, !reassembled) << "frame " << packet.frame;
        EXPECT_EQ(again.payload == packet.segment.payload, reassembled);
        EXPECT_EQ(replay.host.log.empty(), reassembled);
    }
}

INSTANTIATE_TEST_SUITE_P(, RecordedCalls,
                         testing::Combine(testing::ValuesIn(recordedCalls),
                                          testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS)),
                         callName);

} // namespace
