#include "gateway/live/config.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

TEST(LiveConfig, ReadsAFileWithCommentsAndBlanks) {
    LiveConfig config;
    const std::string text = "# towards the hosts\ninside = br0\n\n  outside=ppp0  # dial-up\n"
                             "ports = 30000 - 30099\r\npublish = 10.0.0.5\nqueue = all\nstrict=yes";
    EXPECT_EQ(readConfig(config, text, "x.conf"), "");
    EXPECT_EQ(config.inside, "br0");
    EXPECT_EQ(config.outside, "ppp0");
    EXPECT_EQ(config.firstPort, 30000);
    EXPECT_EQ(config.lastPort, 30099);
    EXPECT_EQ(config.publishedHost, 0x0A000005U);
    EXPECT_EQ(config.queueScope, QueueScope::All);
    EXPECT_TRUE(config.strict);
    EXPECT_EQ(checkConfig(config), "");
}

TEST(LiveConfig, NamesTheLineAndWhatWasExpected) {
    struct Case {
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {"inside = a\nnonsense", "x.conf:2: expected 'setting = value', found 'nonsense'"},
        {"speed = 9", "x.conf:1: unknown setting 'speed'; see h323nat.conf(5)"},
        {"\n\npublish = 10.0.0", "x.conf:3: publish: '10.0.0' is wrong, expected an IPv4 address, "
                                 "such as 10.0.0.5"},
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
    EXPECT_EQ(applySetting(config, "inside", "eth0.100@x:1"), "");
}

TEST(LiveConfig, RefusesRangesWithoutRoomForAPair) {
    LiveConfig config;
    for (const char* range : {"20000", "20003-20000", "20000-20002", "1023-2000", "20000-65534"}) {
        EXPECT_NE(applySetting(config, "ports", range), "") << range;
    }
    EXPECT_EQ(config.firstPort, LiveConfig{}.firstPort);
}

TEST(LiveConfig, NeedsTwoDifferentInterfaces) {
    LiveConfig config;
    EXPECT_NE(checkConfig(config), "");
    config.inside = "eth0";
    EXPECT_NE(checkConfig(config), "");
    config.outside = "eth0";
    EXPECT_NE(checkConfig(config), "");
    config.outside = "eth1";
    EXPECT_EQ(checkConfig(config), "");
}

} // namespace
} // namespace gateway
