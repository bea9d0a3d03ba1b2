#include "gateway/live/ruleset.h"

#include "gateway/live/table_sets.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

constexpr uint32_t publicAddress = 0xCB007101; // 203.0.113.1

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Ruleset, SettingsShowInTheRules) {
    struct Case {
        const char* settings;
        const char* part;
        bool there;
    };
    const Case cases[] = {
        {"", "iifname \"vlan*\" goto sent", true},
        {"", "ct state != established return", true},
        {"", "@peers drop", true},
        {"media-source = any", "@peers drop", false},
        {"", "oifname \"out0\" masquerade", false},
        {"masquerade = yes", "oifname \"out0\" masquerade", true},
        {"", "iifname \"in0\" ip daddr 203.0.113.1 goto hairpin_arriving", true},
        {"advertise = 198.51.100.7",
         "iifname \"in0\" ip daddr { 203.0.113.1, 198.51.100.7 } goto hairpin_arriving", true},
        {"queue = all", "tcp dport 1720", false},
        {"", "ct status assured", true},
        {"queue = all", "ct status assured", false},
        {"media-idle = 59", "ct status assured", false},
        {"call-idle = 59", "ct status assured", false},
        {"table = other", "table ip other {", true}};
    for (const Case& each : cases) {
        LiveConfig config;
        ASSERT_EQ(readConfig(config, "inside = in0, vlan*\noutside = out0\n", "x"), "");
        ASSERT_EQ(readConfig(config, each.settings, "x"), "");
        EXPECT_EQ(contains(renderRuleset(config, publicAddress, Transition::Replace), each.part),
                  each.there)
            << each.settings << ": " << each.part;
        config.dryRun = true;
        const std::string dry = renderRuleset(config, publicAddress, Transition::Replace);
        EXPECT_FALSE(contains(dry, "type nat") || contains(dry, "drop;")) << each.settings;
    }
}

// The kernel's form: network byte order, each part of a concatenation padded to four octets.
TEST(TableSets, ForwardsBecomeElementsOfTheRightSets) {
    const Endpoint inside{0x0A000005, 5000};
    const auto endpoint = [](SetId set, const Endpoint& key) { return elementOf(set, key); };
    const auto media = elementsOf({MappingKind::Media, 20000, inside, publicAddress});
    ASSERT_EQ(media.size(), 3U);
    EXPECT_EQ(media[0].set, SetId::MediaIn);
    EXPECT_EQ(media[0].keyOctets, 2);
    EXPECT_EQ(media[0].key, (std::array<uint8_t, 8>{0x4E, 0x20}));
    EXPECT_EQ(media[0].value, (std::array<uint8_t, 8>{10, 0, 0, 5, 0x13, 0x88}));
    EXPECT_EQ(media[1].set, SetId::MediaOut);
    EXPECT_EQ(media[1].key, media[0].value);
    EXPECT_EQ(media[1].value, (std::array<uint8_t, 8>{203, 0, 113, 1, 0x4E, 0x20}));
    EXPECT_EQ(media[2], endpoint(SetId::MediaHosts, inside));
    // An endpoint that another mapping has already stays that one's.
    EXPECT_EQ(elementsOf({MappingKind::Media, 20000, inside, 0}).size(), 1U);
    const auto ras = elementsOf({MappingKind::Ras, 20001, inside, publicAddress});
    ASSERT_EQ(ras.size(), 4U);
    EXPECT_EQ(ras[2], endpoint(SetId::RasHosts, inside));
    EXPECT_EQ(ras[3], elementOf(SetId::RasIn, 20001));
    const auto control = elementsOf({MappingKind::Control, 20002, inside, 0});
    ASSERT_EQ(control.size(), 1U);
    EXPECT_EQ(control[0].set, SetId::ControlIn);
    const auto shown = elementsOf({MappingKind::Control, 20002, inside, 0, 0, true});
    ASSERT_EQ(shown.size(), 3U);
    EXPECT_EQ(shown[1], endpoint(SetId::Listening, inside));
    EXPECT_EQ(shown[2], elementOf(SetId::Answering, 20002));
}

} // namespace
} // namespace gateway
