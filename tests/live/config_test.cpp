#include "gateway/live/config.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

TEST(LiveConfig, ReadsAFileWithCommentsAndBlanks) {
    LiveConfig config;
    const std::string text =
        "# towards the hosts\ninside = br0\n\n  outside=ppp0  # dial-up\n"
        "ports = 30000 - 30099\r\npublish = 10.0.0.5, 10.0.0.6:1721\nqueue = all\n"
        "media-source=any\nscope = listed\nhold = 50\nqueue-length = 100\nlog-level = debug";
    EXPECT_EQ(readConfig(config, text, "x.conf"), "");
    EXPECT_EQ(insideText(config), "br0");
    EXPECT_EQ(config.outside, "ppp0");
    EXPECT_EQ(config.firstPort, 30000);
    EXPECT_EQ(config.lastPort, 30099);
    const PublishedHost published[] = {{0x0A000005, 1720}, {0x0A000006, 1721}};
    EXPECT_TRUE(std::ranges::equal(config.published, published));
    EXPECT_EQ(config.firstPublished(), 0x0A000005U);
    EXPECT_EQ(config.queueScope, QueueScope::All);
    EXPECT_EQ(config.mediaSource, MediaSource::Any);
    EXPECT_EQ(config.scope, TranslationScope::Listed);
    EXPECT_EQ(config.hold.longest, 50);
    EXPECT_EQ(config.hold.allSegments, 50);
    EXPECT_TRUE(config.logDebug);
}

// --help tells them.
TEST(LiveConfig, InitialValuesAreThoseOfTheSettings) {
    for (const Setting& setting : settings()) {
        if (setting.initial != nullptr) {
            LiveConfig config;
            EXPECT_EQ(setting.apply(config, setting.initial), "") << setting.name;
            EXPECT_EQ(config, LiveConfig{}) << setting.name;
        }
    }
}

TEST(LiveConfig, NamesTheLineAndWhatWasExpected) {
    struct Case {
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {"inside = a\nnonsense", "x.conf:2: expected 'setting = value', found 'nonsense'"},
        {"speed = 9", "x.conf:1: unknown setting 'speed'; see h323nat.conf(5)"},
        {"\n\nadvertise = 10.0.0",
         "x.conf:3: advertise: '10.0.0' is wrong, expected an IPv4 address, "
         "such as 10.0.0.5"},
        {"sweep = 3\nsweep = 3", "x.conf:2: 'sweep' is set twice"},
        {"scope = half", "x.conf:1: scope: 'half' is wrong, expected full or listed"},
        {"queue-number = 65536", "x.conf:1: queue-number: '65536' is wrong, expected a number from "
                                 "0 to 65535"},
        {"media-idle = 5s", "x.conf:1: media-idle: '5s' is wrong, expected a number from 1 to "
                            "86400"},
    };
    for (const Case& wrong : cases) {
        LiveConfig config;
        EXPECT_EQ(readConfig(config, wrong.text, "x.conf"), wrong.message);
    }
}

// Interface names become part of rules.
TEST(LiveConfig, RefusesInterfaceNamesThatCouldSayMore) {
    LiveConfig config;
    for (const char* name : {"", "a b", "eth0\"", "x;y", "{", "a\n", "sixteen-letters1"}) {
        EXPECT_NE(applySetting(config, "inside", name), "") << name;
    }
    for (const char* name : {"*", "eth*1", "a,,b", "a, b c", "vlan*\"", "a,"}) {
        EXPECT_NE(applySetting(config, "inside", name), "") << name;
    }
    for (const char* name : {"", "H323", "a b", "x;y", "9nat", "{"}) {
        EXPECT_NE(applySetting(config, "table", name), "") << name;
    }
    EXPECT_EQ(applySetting(config, "inside", "eth0.100@x:1, vlan*"), "");
    for (const auto& [name, inside] : {std::pair("vlan7", true), std::pair("eth0.100@x:1", true),
                                       std::pair("vla", false), std::pair("eth0", false)}) {
        EXPECT_EQ(isInsideName(config, name), inside) << name;
    }
}

TEST(LiveConfig, RefusesRangesWithoutRoomForAPair) {
    LiveConfig config;
    for (const char* range : {"20000", "20003-20000", "20000-20002", "1023-2000", "20000-65534"}) {
        EXPECT_NE(applySetting(config, "ports", range), "") << range;
    }
    EXPECT_EQ(config.firstPort, LiveConfig{}.firstPort);
}

TEST(LiveConfig, RefusesWhatContradictsItself) {
    struct Case {
        const char* text;
        const char* wrong; // null: nothing
    };
    const Case cases[] = {
        {"outside = b", "the inside interface is not set"},
        {"inside = a", "the outside interface is not set"},
        {"inside = a, b\noutside = b", "'b' is set as inside and as outside"},
        {"inside = vlan*\noutside = vlan7", "'vlan7' is set as inside and as outside"},
        {"inside = a\noutside = b\npublic-address = 10.0.0.5\npublish = 10.0.0.5",
         "is the public address"},
        {"inside = a\noutside = b\nadvertise = 10.0.0.5\npublish = 10.0.0.5",
         "is the public address"},
        {"inside = a\noutside = b\npublish = 10.0.0.5:20000", "lies within 'ports'"},
        {"inside = a\noutside = b\npublish = 10.0.0.5\npublish-t120 = yes", nullptr},
        {"inside = a\noutside = b\npublish = 10.0.0.5:1721\npublish-t120 = yes", "port 1720"},
        {"inside = a\noutside = b\nstrict = yes\nscope = full",
         "strict = yes means scope = listed"},
        {"inside = a\noutside = b\nstrict = yes", nullptr},
        {"inside = a\noutside = b\npublish-t120 = yes\npublish = 10.0.0.5\nports = 1400-1600",
         "port 1503 lies within 'ports'"},
        {"inside = a\noutside = b\npublish-t120 = yes\npublish = 10.0.0.5, 10.0.0.6:1503",
         "is that of publish-t120"},
        {"inside = a\noutside = b\nscope = listed\npublish = 10.0.0.5, 10.0.0.6:1721",
         "knows one published host"},
        {"inside = a\noutside = b\npublish = 10.0.0.5, 10.0.0.6:1721", nullptr}};
    for (const Case& each : cases) {
        LiveConfig config;
        ASSERT_EQ(readConfig(config, each.text, "x"), "") << each.text;
        const std::string wrong = checkConfig(config);
        EXPECT_EQ(wrong.empty(), each.wrong == nullptr) << each.text;
        EXPECT_NE(wrong.find(each.wrong == nullptr ? "" : each.wrong), std::string::npos) << wrong;
    }
    LiveConfig config;
    for (const char* hosts : {"10.0.0.5, 10.0.0.6", "10.0.0.5, 10.0.0.5:1721", "10.0.0.5:0",
                              "10.0.0.5:1720:1", "0.0.0.0", ","}) {
        EXPECT_NE(applySetting(config, "publish", hosts), "") << hosts;
    }
}

} // namespace
} // namespace gateway
