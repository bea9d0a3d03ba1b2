#include "nat/listed/connection_pools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "nat/wall_clock.h"
#include "tests/support/failing_allocator.h"
#include "tests/support/fake_clock.h"
#include "tests/support/pools.h"

namespace {

class ConnectionPoolsTest : public testing::Test {
protected:
    FakeClock clock{5000};
    FreshState state;

    static CallSignalConnection* takeCall(const FlowKey& outsideFlow) {
        CallSignalConnection* record = takeRecord(callSignalPool);
        if (record != nullptr) {
            record->outsideFlow = outsideFlow;
            record->lastActivity = wallClockSeconds();
        }
        return record;
    }

    static ControlChannelConnection* takeControl(const EndpointKey& remoteEndpoint) {
        ControlChannelConnection* record = takeRecord(controlChannelPool);
        if (record != nullptr) {
            setRemoteEndpoint(*record, remoteEndpoint);
            record->lastActivity = wallClockSeconds();
        }
        return record;
    }
};

TEST_F(ConnectionPoolsTest, FiftyRecordsUntilOneWasIdleForMoreThanAMinute) {
    for (uint32_t i = 0; i < poolSize; ++i) {
        ASSERT_NE(takeCall({i, 2, 1720, 4}), nullptr);
    }
    EXPECT_EQ(takeCall({50, 2, 1720, 4}), nullptr);

    findByCalledParty(7)->lastActivity = 4999;
    clock.set(5060); // all others have been idle for exactly 60 seconds
    expireRecords(callSignalPool);
    EXPECT_EQ(FreshState::count(callSignalPool.activeList), 49u);
    EXPECT_EQ(findByCalledParty(7), nullptr);

    clock.set(5061);
    findByCalledParty(8)->lastActivity = 5001;
    expireRecords(callSignalPool);
    EXPECT_EQ(FreshState::count(callSignalPool.activeList), 1u);
    EXPECT_EQ(FreshState::count(callSignalPool.freeList), 49u);
    EXPECT_NE(findByCalledParty(8), nullptr);

    clock.set(100); // set back: nothing is idle
    expireRecords(callSignalPool);
    EXPECT_NE(findByCalledParty(8), nullptr);
}

TEST_F(ConnectionPoolsTest, LastReleasedIsTakenFirstAndComesCleared) {
    CallSignalConnection* first = takeCall({1, 2, 1720, 4});
    CallSignalConnection* second = takeCall({2, 2, 1720, 4});
    first->stream.data[4095] = 9;
    first->stream.written.set(4095);
    first->lastMessage = 6;
    releaseRecord(callSignalPool, *second);
    releaseRecord(callSignalPool, *first);
    CallSignalConnection* again = takeRecord(callSignalPool);
    EXPECT_EQ(again, first);
    EXPECT_EQ(again->lastMessage, 0u);
    EXPECT_EQ(again->outsideFlow, FlowKey{});
    EXPECT_EQ(again->stream.data[4095], 0);
    EXPECT_TRUE(again->stream.written.none());
}

TEST_F(ConnectionPoolsTest, LookupsAnswerTheNewestMatch) {
    CallSignalConnection* older = takeCall({9, 2, 1720, 4});
    CallSignalConnection* newer = takeCall({9, 2, 1720, 5});
    older->insideFlow = newer->insideFlow = {10, 9, 4, 1720};
    EXPECT_EQ(findByCalledParty(9), newer);
    EXPECT_EQ(findByInsideFlow({10, 9, 4, 1720}), newer);
    EXPECT_EQ(findByOutsideFlow({9, 2, 1720, 4}), older);
    for (const FlowKey& other :
         {FlowKey{8, 2, 1720, 4}, {9, 3, 1720, 4}, {9, 2, 1721, 4}, {9, 2, 1720, 6}}) {
        EXPECT_EQ(findByOutsideFlow(other), nullptr);
    }
    releaseRecord(callSignalPool, *newer);
    EXPECT_EQ(findByInsideFlow({10, 9, 4, 1720}), older);

    ControlChannelConnection* below = takeControl({9, 30000});
    ControlChannelConnection* above = takeControl({9, 30000});
    EXPECT_EQ(findFollowedEndpoint({9, 30000}), above);
    releaseRecord(controlChannelPool, *above);
    EXPECT_EQ(findFollowedEndpoint({9, 30000}), below);
}

// The quick lookup must never differ from the walk, whatever happened to the pool.
TEST_F(ConnectionPoolsTest, QuickLookupAgreesWithTheList) {
    std::mt19937 random(20260101);
    const auto pick = [&random](uint32_t below) { return static_cast<uint32_t>(random()) % below; };
    const auto key = [&pick] {
        return EndpointKey{0xC0000200u + pick(4), static_cast<uint16_t>(1024 + pick(32))};
    };
    std::vector<ControlChannelConnection*> active;
    for (int step = 0; step < 5000; ++step) {
        const uint32_t action = pick(16);
        if (action < 9) {
            if (ControlChannelConnection* record = takeControl(key())) {
                active.push_back(record);
            }
        } else if (action < 15 && !active.empty()) {
            const auto chosen = active.begin() + pick(static_cast<uint32_t>(active.size()));
            releaseRecord(controlChannelPool, **chosen);
            active.erase(chosen);
        } else {
            clock.advance(30);
            expireRecords(controlChannelPool);
            std::erase_if(active, [](auto* record) { return record->lastActivity == 0; });
        }
        for (int probe = 0; probe < 8; ++probe) {
            const EndpointKey sought = key();
            ASSERT_EQ(findFollowedEndpoint(sought), findByRemoteEndpoint(sought)) << step;
        }
        ASSERT_EQ(FreshState::count(controlChannelPool.activeList), active.size());
        ASSERT_EQ(FreshState::count(controlChannelPool.freeList), poolSize - active.size());
    }
}

TEST(ConnectionPoolsBuildTest, FailedAllocationReleasesThePool) {
    for (const size_t succeeding : {size_t{0}, size_t{1}, poolSize - 1}) {
        FailingAllocator allocator(succeeding);
        CallSignalPool calls;
        EXPECT_EQ(buildPool(calls), -12);
        EXPECT_EQ(allocator.liveBlocks(), 0u);
        allocator.succeedFor(succeeding);
        ControlChannelPool controls;
        EXPECT_EQ(buildPool(controls), -12);
        EXPECT_EQ(allocator.liveBlocks(), 0u);
        EXPECT_EQ(takeRecord(controls), nullptr);
    }
}

} // namespace
