// RAS requests that private endpoints send.

#include <gtest/gtest.h>

#include "nat/listed/rewrite_mode.h"
#include "tests/support/capture.h"
#include "tests/support/memory_host.h"
#include "tests/support/messages.h"
#include "tests/support/own_addresses.h"

using namespace test_support;

namespace {

constexpr uint16_t rasPort = 1719;

struct RasCase {
    std::string name;
    Octets sent;
    Octets translated;
};

std::vector<RasCase> rasCases() {
    using List = std::vector<TestAddress>;
    const auto rrq = registrationRequest;
    return {
        {"discovery", gatekeeperRequest(own(rasPort)), gatekeeperRequest(mapped(40000))},
        {"discovery, IPv6", gatekeeperRequest(ipv6), gatekeeperRequest(ipv6)},
        {"registration", rrq({own(1720)}, {own(rasPort)}), rrq({mapped(1720)}, {mapped(40000)})},
        {"only the first of each list", rrq(List(3, own(1720)), List(2, own(rasPort))),
         rrq({mapped(1720), own(1720), own(1720)}, {mapped(40000), own(rasPort)})},
        {"no signalling address", rrq({}, {own(rasPort)}), rrq({}, {mapped(40000)})},
        {"IPv6 signalling address", rrq({ipv6}, {own(rasPort)}), rrq({ipv6}, {mapped(40000)})},
        {"no RAS address", rrq({own(1720)}, {}), rrq({own(1720)}, {})},
        {"IPv6 RAS address", rrq({own(1720)}, {ipv6, own(rasPort)}),
         rrq({own(1720)}, {ipv6, own(rasPort)})},
        {"unregistration", unregistrationRequest(own(1720)), unregistrationRequest(own(1720))},
        {"random octets", fromHex("0e ff ff ff"), fromHex("0e ff ff ff")},
        {"no octets", {}, {}},
    };
}

Segment datagram(const Octets& payload, uint16_t sourcePort = rasPort) {
    return {{privateParty, gatekeeper, sourcePort, rasPort}, true, 0, 0, payload};
}

class Ras : public testing::TestWithParam<RewriteMode> {
protected:
    Ras() { setRewriteMode(GetParam()); }

    MemoryHost host;
};

TEST_P(Ras, TranslatesDiscoveryAndRegistration) {
    for (const RasCase& test : rasCases()) {
        SCOPED_TRACE(test.name);
        host.nextMediaPort = MemoryHost::firstMediaPort;
        const Delivered delivered = host.send(datagram(test.sent));
        const bool changed = test.translated != test.sent;
        EXPECT_EQ(toHex(delivered.payload), toHex(test.translated));
        EXPECT_EQ(delivered.changed, changed);
        EXPECT_EQ(host.takeLog(""),
                  changed ? std::vector<std::string>{"media 10.0.0.5:1719 > 203.0.113.8"}
                          : std::vector<std::string>{});
    }
}

TEST_P(Ras, WritesZeroWhenTheHostAnswersNothing) {
    host.mediaAnswers = 0;
    EXPECT_EQ(host.send(datagram(registrationRequest({own(1720)}, {own(rasPort)}))).payload,
              registrationRequest({ipv4(0, 1720)}, {ipv4(0, 0)}));
}

TEST_P(Ras, LooksAtNothingElse) {
    const Octets request = gatekeeperRequest(own(rasPort));
    EXPECT_FALSE(host.send(datagram(request, 1718)).changed);
    EXPECT_FALSE(host.receive(datagram(request)).changed);
    EXPECT_TRUE(host.log.empty());
}

INSTANTIATE_TEST_SUITE_P(, Ras, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
