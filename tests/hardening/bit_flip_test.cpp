// Every change of one bit in every packet of the recorded calls, through the hooks in both rewrite
// modes and through decoder and encoder. A change of one bit reaches each length, index, presence
// bit and extension bit of a real message once.

#include <gtest/gtest.h>

#include "fuzz/module_state.h"
#include "fuzz/packet.h"
#include "fuzz/require.h"
#include "fuzz/script_host.h"
#include "nat/listed/rewrite_mode.h"
#include "tests/hardening/module_snapshot.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"

using namespace fuzzing;
using test_support::CapturedPacket;
using test_support::Segment;

namespace {

struct Call {
    friend void PrintTo(const Call& call, std::ostream* out) { *out << call.capture; }

    std::string capture;
    RewriteMode mode;
};

class BitFlip : public testing::TestWithParam<Call> {
protected:
    BitFlip() {
        [[maybe_unused]] static const bool started = (startModule(), true);
        forgetCalls();
        setRewriteMode(GetParam().mode);
        host_.addresses.insert(test_support::privateParty);
        TarvexActivateInboundMapping(test_support::privateParty);
    }

    void exchange(bool sent, const Segment& segment, const Octets& payload) {
        const Octets packet =
            segment.udp ? udpPacket(segment.flow, payload)
                        : tcpPacket({segment.flow, segment.sequence, segment.flags}, payload);
        // The functions check what holds for every packet.
        const HookResult result =
            sent ? sendPacket(host_.context, packet) : receivePacket(host_.context, packet);
        if (GetParam().mode == REWRITE_LOSSLESS) {
            host_.requireOnlyHandedOut(packet, result.octets);
        }
    }

    void exchangeFlipped(bool sent, const Segment& segment) {
        const ModuleSnapshot snapshot;
        Octets payload = segment.payload;
        for (size_t bit = 0; bit < payload.size() * 8; ++bit) {
            const auto mask = static_cast<uint8_t>(0x80 >> bit % 8);
            payload[bit / 8] ^= mask;
            exchange(sent, segment, payload);
            payload[bit / 8] ^= mask;
            requireConsistentState();
            snapshot.restore();
        }
    }

    FakeClock clock_{1'000'000};
    ScriptHost host_;
};

TEST_P(BitFlip, OfAnyPacketKeepsEveryPromise) {
    for (const CapturedPacket& packet : test_support::readCapture(GetParam().capture)) {
        const FlowKey& flow = packet.segment.flow;
        host_.addFlow(packet.sent ? flow
                                  : FlowKey{test_support::privateParty, flow.sourceAddress,
                                            flow.destinationPort, flow.sourcePort});
        exchangeFlipped(packet.sent, packet.segment);
        exchange(packet.sent, packet.segment, packet.segment.payload);
    }
    host_.requireWholeLists();
}

std::vector<Call> calls() {
    std::vector<Call> all;
    for (const char* capture :
         {"h245", "fast-h245", "fast-tun", "gk-direct", "gk-routed", "in-h245", "in-fast-tun"}) {
        all.push_back({capture, REWRITE_ENCODED});
        all.push_back({capture, REWRITE_LOSSLESS});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Recorded, BitFlip, testing::ValuesIn(calls()), [](const auto& info) {
    std::string name = info.param.capture;
    std::erase(name, '-');
    return name + (info.param.mode == REWRITE_LOSSLESS ? "Lossless" : "Encoded");
});

} // namespace
