#include "gateway/live/known_connections.h"

#include "gateway/live/event_log.h"
#include "gateway/live/mapping_feed.h"
#include "gateway/live/saved_state.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace gateway {
namespace {

FlowId flowOf(uint32_t number) {
    return {Protocol::Tcp, {0x0A000005, 1720}, {number, 40000}};
}

// Anybody can knock at a private host that accepts calls: what is remembered of it has a bound.
TEST(KnownConnections, ForgetsTheOnesLongestUnseen) {
    KnownConnections known;
    const FlowId running = flowOf(2 * KnownConnections::capacity);
    known.set(running, {Acquaintance::Answered, {}});
    known.set(running, {Acquaintance::Introduced, {}});
    for (uint32_t number = 0; number < KnownConnections::capacity; ++number) {
        known.set(flowOf(number), {Acquaintance::Answered, {number, 1}});
    }
    ASSERT_NE(known.find(flowOf(0)), nullptr); // seen again
    known.set(flowOf(KnownConnections::capacity), {Acquaintance::Begun, {}});
    ASSERT_NE(known.find(flowOf(0)), nullptr);
    EXPECT_EQ(known.find(flowOf(0))->first.sent, 0U);
    EXPECT_EQ(known.find(flowOf(1)), nullptr);
    EXPECT_EQ(known.find(flowOf(2))->first.sent, 2U);
    ASSERT_NE(known.find(running), nullptr); // it has spoken
    for (uint32_t number = 1; number <= KnownConnections::capacity; ++number) {
        known.set(flowOf(number), {Acquaintance::Unknown, {}});
    }
    EXPECT_EQ(known.find(running), nullptr);
    EXPECT_NE(known.find(flowOf(0)), nullptr);
}

TEST(SavedState, ComesBackOrIsRefused) {
    const std::string path = testing::TempDir() + "h323nat-state-test";
    const SavedState written{99,
                             {{MappingKind::Ras, 20001, {0x0A000005, 1719}, 0},
                              {MappingKind::Control, 20002, {0x0A000006, 1720}, 0}}};
    ASSERT_EQ(writeState(path, written), "");
    SavedState read;
    ASSERT_EQ(readState(path, read), "");
    EXPECT_EQ(read.seed, 99U);
    EXPECT_EQ(read.forwards, written.forwards);
    const auto permissions = std::filesystem::status(path).permissions();
    EXPECT_EQ(permissions & std::filesystem::perms::others_all, std::filesystem::perms::none);
    std::ifstream file(path);
    const std::string whole((std::istreambuf_iterator<char>(file)), {});
    const auto expectRefused = [&](const std::string& text) {
        std::ofstream(path) << text;
        SavedState untouched;
        // Blanks around the text carry nothing.
        const bool refused = !readState(path, untouched).empty();
        EXPECT_TRUE(refused || untouched.forwards == written.forwards) << text;
        EXPECT_EQ(untouched.seed, refused ? 0U : 99U) << text;
    };
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int change : {1, 128}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            expectRefused(damaged);
        }
        if (at + 1 < whole.size()) {
            expectRefused(whole.substr(0, at));
        }
    }
    for (const PortForward& wrong : {PortForward{MappingKind::Ras, 0, {0x0A000005, 1719}, 0},
                                     PortForward{MappingKind::Ras, 20001, {0x0A000005, 0}, 0}}) {
        ASSERT_EQ(writeState(path, {1, {wrong}}), "");
        EXPECT_NE(readState(path, read), "");
    }
    for (const char* text : {"[]", "{\"version\":1,\"seed\":1,\"mappings\":[]}"}) {
        std::ofstream(path) << text;
        EXPECT_NE(readState(path, read), "") << text;
    }
    std::filesystem::remove(path);
    EXPECT_EQ(readState(path, read), "");
    EXPECT_NE(readState(testing::TempDir(), read).find("Is a directory"), std::string::npos);
    EXPECT_NE(readState(testing::TempDir() + std::string(300, 'x'), read), "");
}

TEST(EventLog, StrangersTakeNoLinesFromCalls) {
    Counters counters;
    EventLog log(counters);
    testing::internal::CaptureStderr();
    for (int number = 0; number < 100; ++number) {
        log.stranger("knock", {{"from", "1.2.3.4\nevent=call-start"}});
    }
    const uint64_t suppressed = counters.of(Cause::logSuppressed);
    for (int number = 0; number < 300; ++number) {
        log.caller("call", {});
    }
    const uint64_t ofCallers = counters.of(Cause::logSuppressed) - suppressed;
    log.info("call-start", {{"from", "alice"}});
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_GE(suppressed, 60U); // 20 a second, and a second may have ended
    EXPECT_GE(ofCallers, 100U);
    EXPECT_EQ(counters.of(Cause::logSuppressed), suppressed + ofCallers);
    EXPECT_NE(lines.find("from=\"1.2.3.4\\nevent=call-start\""), std::string::npos);
    EXPECT_EQ(lines.find("\nevent"), std::string::npos);
}

TEST(MappingFeed, TellsThePeerAndHearsNobodyElse) {
    const Endpoint one{0x7F000001, 41721};
    const Endpoint other{0x7F000001, 41722};
    MappingFeed first;
    MappingFeed second;
    ASSERT_EQ(first.open(one, other), "");
    ASSERT_EQ(second.open(other, one), "");
    std::vector<PortForward> forwards;
    for (uint16_t number = 1; number <= 300; ++number) {
        forwards.push_back({static_cast<MappingKind>(number % 3),
                            number,
                            {0x0A000005, static_cast<uint16_t>(number + 1)},
                            0});
    }
    first.send(forwards);
    EXPECT_EQ(second.receive(), forwards);
    EXPECT_TRUE(second.receive().empty());
    MappingFeed stranger;
    ASSERT_EQ(stranger.open({0x7F000001, 41723}, other), "");
    stranger.send(forwards);
    EXPECT_TRUE(second.receive().empty());
    MappingFeed again;
    EXPECT_NE(again.open(one, other), "");
}

} // namespace
} // namespace gateway
