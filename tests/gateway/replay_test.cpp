// Captures whose times make no sense: nothing is kept for ever, and nothing overflows.
#include "gateway/capture_time.h"
#include "gateway/link_layer.h"
#include "gateway/replay.h"
#include "tests/gateway/packet_builder.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using namespace gateway;
using namespace testing_gateway;

constexpr Endpoint inside{0x0A000005, 3000};
constexpr Endpoint outside{0xCB007109, 1720};

class DeafListener final : public ReplayListener {
public:
    void onMapping(const CapturedFrame& /*frame*/, const MappingRequest& /*request*/) override {}
    void onMessage(const CapturedFrame& /*frame*/, const ReportedMessage& /*message*/,
                   const std::vector<ReportedAddress>& /*remaining*/) override {}
};

CapturedFrame frameOf(const Octets& packet) {
    CapturedFrame frame;
    frame.octets = packet;
    return frame;
}

// Half a message waits for a time that never comes; what is behind it in the file must not.
TEST(Replay, AClockThatStandsStillKeepsNoFramesForEver) {
    ReferenceHostSettings settings;
    settings.inside = {0x0A000000, 24};
    settings.publicAddress = 0xCB007101;
    settings.fullScope = true;
    DeafListener listener;
    size_t written = 0;
    Replay replay(settings, linkTypeRaw, listener, [&](const CapturedFrame&) { ++written; });
    const auto give = [&replay](const Octets& packet) {
        CapturedFrame frame = frameOf(packet);
        replay.process(frame);
    };
    give(tcp(inside, outside, 0, tcpSyn));
    give(tcp(inside, outside, 1, tcpAck, {3, 0, 1, 0, 8, 2}));
    EXPECT_EQ(written, 1U);
    const Octets large = udp(inside, outside, Octets(60'000, 0));
    constexpr size_t count = 1500;
    for (size_t i = 0; i < count; ++i) {
        give(large);
    }
    EXPECT_GT(written, 1000U);
    replay.finish();
    EXPECT_EQ(written, count + 2);
}

TEST(CaptureTime, AnyTimeOfAFileCanBeCountedWith) {
    const int64_t latest = nanosecondsOf({INT64_MAX, 999'999'999});
    const int64_t earliest = nanosecondsOf({INT64_MIN, 0});
    EXPECT_GT(latest - earliest, 0);
    EXPECT_EQ(nanosecondsOf({1'700'000'000, 5}), 1'700'000'000'000'000'005);
}

} // namespace
