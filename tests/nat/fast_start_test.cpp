// Fast-start proposals in a Setup of a private caller.

#include <gtest/gtest.h>

#include "nat/listed/rewrite_mode.h"
#include "nat/listed/translation_counts.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"
#include "tests/support/own_addresses.h"

using namespace test_support;

namespace {

constexpr uint32_t publicAddress = MemoryHost::publicAddress;

struct ElementCase {
    std::string name;
    ChannelSpec proposed;
    ChannelSpec translated;
    std::vector<std::string> log;
    uint16_t publicPort = MemoryHost::firstMediaPort;
};

const std::string askedFor5000 = "media 10.0.0.5:5000 > 1.1.1.1";

const ElementCase elementCases[] = {
    {"forward", {.forwardControl = own(5001)}, {.forwardControl = mapped(40001)}, {askedFor5000}},
    {"forward media is the called party's",
     {.forwardMedia = own(5000), .forwardControl = own(5001)},
     {.forwardMedia = own(5000), .forwardControl = mapped(40001)},
     {askedFor5000}},
    {"forward media alone", {.forwardMedia = own(5000)}, {.forwardMedia = own(5000)}, {}},
    {"forward not over RTP", {.forwardOverRtp = false}, {.forwardOverRtp = false}, {}},
    {"forward control port 0",
     {.forwardControl = own(0)},
     {.forwardControl = mapped(40001)},
     {"media 10.0.0.5:65535 > 1.1.1.1"}},
    {"forward IPv6", {.forwardControl = ipv6}, {.forwardControl = ipv6}, {}},
    {"reverse pair",
     {.reverse = true, .reverseMedia = own(5000), .reverseControl = own(5001)},
     {.reverse = true, .reverseMedia = mapped(40000), .reverseControl = mapped(40001)},
     {askedFor5000}},
    {"reverse control is not looked at",
     {.reverse = true, .reverseMedia = own(5000), .reverseControl = ipv4(outsideParty, 7)},
     {.reverse = true, .reverseMedia = mapped(40000), .reverseControl = mapped(40001)},
     {askedFor5000}},
    {"reverse control alone",
     {.reverse = true, .reverseControl = own(5001)},
     {.reverse = true, .reverseControl = own(5001)},
     {}},
    {"reverse media IPv6",
     {.reverse = true, .reverseMedia = ipv6, .reverseControl = own(5001)},
     {.reverse = true, .reverseMedia = ipv6, .reverseControl = own(5001)},
     {}},
    {"reverse control IPv6",
     {.reverse = true, .reverseMedia = own(5000), .reverseControl = ipv6},
     {.reverse = true, .reverseMedia = mapped(40000), .reverseControl = ipv6},
     {askedFor5000}},
    {"both directions",
     {.forwardControl = own(5001), .reverse = true, .reverseMedia = own(6000)},
     {.forwardControl = mapped(40001), .reverse = true, .reverseMedia = mapped(40002)},
     {askedFor5000, "media 10.0.0.5:6000 > 1.1.1.1"}},
    {"no RTCP port for the forward channel",
     {.forwardControl = own(5001)},
     {.forwardControl = own(5001)},
     {askedFor5000},
     65535},
    {"no RTCP port for the reverse pair",
     {.reverse = true, .reverseMedia = own(5000), .reverseControl = own(5001)},
     {.reverse = true, .reverseMedia = own(5000), .reverseControl = own(5001)},
     {askedFor5000},
     65535},
    {"no RTCP port is needed",
     {.reverse = true, .reverseMedia = own(5000)},
     {.reverse = true, .reverseMedia = mapped(65535)},
     {askedFor5000},
     65535},
};

class FastStart : public testing::TestWithParam<RewriteMode> {
protected:
    FastStart() { setRewriteMode(GetParam()); }

    static Octets setupWith(const std::vector<Octets>& elements) {
        return q931({setup({.fastStart = elements})});
    }

    MemoryHost host;
    OutboundCall call{host};
};

TEST_P(FastStart, TranslatesOneElement) {
    for (const ElementCase& test : elementCases) {
        SCOPED_TRACE(test.name);
        host.nextMediaPort = test.publicPort;
        const Delivered delivered = call.fromCaller(setupWith({fastStartElement(test.proposed)}));
        EXPECT_EQ(toHex(delivered.payload), toHex(setupWith({fastStartElement(test.translated)})));
        EXPECT_TRUE(delivered.changed);
        EXPECT_EQ(host.takeLog(""), test.log);
    }
}

// Random octets, no octets, a whole element behind: only the last one changes.
TEST_P(FastStart, LeavesElementsThatDoNotDecode) {
    const Octets random = fromHex("ffffffff01");
    const Octets element = fastStartElement({.forwardControl = own(5001)});
    const Delivered delivered = call.fromCaller(setupWith({random, {}, element}));
    EXPECT_EQ(delivered.payload,
              setupWith({random, {}, fastStartElement({.forwardControl = mapped(40001)})}));
    EXPECT_TRUE(delivered.changed);
}

// A Setup with fast start counts as changed even when nothing in it is translated.
TEST_P(FastStart, CountsAsChangedWithoutATranslatedElement) {
    for (const std::vector<Octets>& elements : {std::vector<Octets>{}, {fromHex("ff")}}) {
        const Octets message = setupWith(elements);
        const Delivered delivered = call.fromCaller(message);
        EXPECT_EQ(delivered.payload, message);
        EXPECT_TRUE(delivered.changed);
    }
    const Octets plain = q931({setup({})});
    const Delivered delivered = call.fromCaller(plain);
    EXPECT_EQ(delivered.payload, plain);
    EXPECT_FALSE(delivered.changed);
}

// The host's answer stays in force for later elements of the segment that it does not answer.
TEST_P(FastStart, KeepsTheLastAnswer) {
    const Octets element = fastStartElement({.forwardControl = own(5001)});
    host.mediaAnswers = 1;
    const Octets answered = fastStartElement({.forwardControl = mapped(40001)});
    EXPECT_EQ(call.fromCaller(setupWith({element, element})).payload,
              setupWith({answered, answered}));
    // The next segment starts from 0.0.0.0 and port 0.
    EXPECT_EQ(call.fromCaller(setupWith({element})).payload,
              setupWith({fastStartElement({.forwardControl = ipv4(0, 1)})}));
}

INSTANTIATE_TEST_SUITE_P(, FastStart, testing::Values(REWRITE_ENCODED, REWRITE_LOSSLESS));

} // namespace
