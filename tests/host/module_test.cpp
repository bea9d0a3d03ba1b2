#include <gtest/gtest.h>

#include "include/h323nat.h"
#include "nat/full/state.h"
#include "nat/host_callbacks.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"
#include "tests/support/failing_allocator.h"
#include "tests/support/pools.h"

namespace {

HostMappingRecord* findNothing(uint32_t, uint16_t, uint32_t, uint16_t) {
    return nullptr;
}

// The records of a start are never released. This frees them behind the module's back.
void forgetStart() {
    for (RecordLists* lists : {static_cast<RecordLists*>(&callSignalPool),
                               static_cast<RecordLists*>(&controlChannelPool)}) {
        while (lists->freeList.next != &lists->freeList) {
            ListLink* record = lists->freeList.next;
            lists->freeList.next = record->next;
            rtAllocator.release(record);
        }
        lists->freeList.previous = &lists->freeList;
    }
}

TEST(ModuleTest, StartsOnlyWithATableAndMemory) {
    HostCallbackTable table{};
    table.HostFindInsideMapping = findNothing;
    FailingAllocator allocator;
    hostCallbacks = {};
    inboundMappingState.publishedAddress = 1;
    EXPECT_EQ(H323IsGatewayDLL(), 0x01020304u);

    EXPECT_EQ(H323InitializeDLL(nullptr), 0u);
    EXPECT_EQ(allocator.liveBlocks(), 2 * poolSize) << "the pools are built all the same";
    EXPECT_EQ(inboundMappingState.publishedAddress, 0u);
    EXPECT_EQ(hostCallbacks.HostFindInsideMapping, nullptr);
    forgetStart();

    // The second pool fails: the first one stays.
    allocator.succeedFor(poolSize + 10);
    inboundMappingState.publishedAddress = 1;
    EXPECT_EQ(H323InitializeDLL(&table), 0u);
    EXPECT_EQ(inboundMappingState.publishedAddress, 0u);
    EXPECT_EQ(hostCallbacks.HostFindInsideMapping, nullptr);
    EXPECT_EQ(allocator.liveBlocks(), poolSize);
    forgetStart();

    // The first one fails: the second is not tried.
    allocator.failOnceAfter(1);
    EXPECT_EQ(H323InitializeDLL(&table), 0u);
    EXPECT_EQ(allocator.liveBlocks(), 0u);

    allocator.succeedFor(FailingAllocator::never);
    EXPECT_EQ(H323InitializeDLL(&table), 1u);
    EXPECT_EQ(hostCallbacks.HostFindInsideMapping, &findNothing);
    EXPECT_EQ(TarvexActivateInboundMapping(7), 0u);
    EXPECT_EQ(inboundMappingState.publishedAddress, 7u);
    EXPECT_EQ(full_scope::state.publishedAddress, 7u);
    EXPECT_EQ(H323IsGatewayDLL(), 0x01020304u);
    forgetStart();

    // A start afresh publishes nobody, in either scope.
    EXPECT_EQ(H323InitializeDLL(&table), 1u);
    EXPECT_EQ(inboundMappingState.publishedAddress, 0u);
    EXPECT_EQ(full_scope::state.publishedAddress, 0u);
    forgetStart();
}

} // namespace
