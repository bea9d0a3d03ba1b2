#include "gateway/live/ruleset.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

constexpr uint32_t publicAddress = 0xCB007101; // 203.0.113.1

LiveConfig configured() {
    LiveConfig config;
    config.inside = "in0";
    config.outside = "out0";
    return config;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Ruleset, ShowsCallsFromOutsideOnlyWhenAHostIsPublished) {
    LiveConfig config = configured();
    const auto rules = [&] {
        return renderRuleset(config, publicAddress, {}, Transition::Replace);
    };
    EXPECT_FALSE(contains(rules(), "dnat to"));
    EXPECT_FALSE(contains(rules(), "    tcp dport 1720 goto to_module\n  }"));
    config.publishedHost = 0x0A000005;
    EXPECT_TRUE(contains(rules(), "ip daddr 203.0.113.1 tcp dport 1720 dnat to 10.0.0.5\n"));
    EXPECT_TRUE(contains(rules(), "    tcp dport 1720 goto to_module\n  }"));
    config.publishT120 = true;
    EXPECT_TRUE(contains(rules(), "tcp dport { 1503, 1720 } dnat to 10.0.0.5\n"));
}

TEST(Ruleset, DryRunTranslatesNothing) {
    LiveConfig config = configured();
    config.publishedHost = 0x0A000005;
    config.masquerade = true;
    config.dryRun = true;
    const std::string rules = renderRuleset(config, publicAddress, {}, Transition::Replace);
    EXPECT_FALSE(contains(rules, "type nat"));
    EXPECT_FALSE(contains(rules, "masquerade"));
}

TEST(Ruleset, ForwardsBecomeElementsOfTheRightMaps) {
    const PortForward forwards[] = {
        {Protocol::Udp, 20000, {0x0A000005, 5000}, true},
        {Protocol::Udp, 20001, {0x0A000005, 5001}, false},
        {Protocol::Tcp, 20002, {0x0A000006, 4000}, false},
    };
    EXPECT_EQ(renderAddition(publicAddress, forwards),
              "add element ip h323nat media_in { 20000 : 10.0.0.5 . 5000, 20001 : 10.0.0.5 . 5001 "
              "}\n"
              "add element ip h323nat media_out { 10.0.0.5 . 5000 : 203.0.113.1 . 20000 }\n"
              "add element ip h323nat control_in { 20002 : 10.0.0.6 . 4000 }\n");
    EXPECT_EQ(renderRemoval(forwards), "delete element ip h323nat media_in { 20000, 20001 }\n"
                                       "delete element ip h323nat media_out { 10.0.0.5 . 5000 }\n"
                                       "delete element ip h323nat control_in { 20002 }\n");
    EXPECT_EQ(renderAddition(publicAddress, {}), "");
}

} // namespace
} // namespace gateway
