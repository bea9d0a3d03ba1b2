// Context life cycle, heap, pool and the hand-over of SIZE constraints.
#include <cstring>
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"
#include "tests/support/failing_allocator.h"

namespace {

TEST(Context, OwnsABufferOnlyWithoutACallers) {
    PerContext ctx = {};
    ASSERT_EQ(pu_initContext(&ctx, nullptr, 0, 1), 0);
    EXPECT_EQ(ctx.size, 16384U);
    EXPECT_EQ(ctx.ownsBuffer, 1);
    pu_freeContext(&ctx);
    EXPECT_EQ(ctx.initMarker, 0);

    uint8_t message[3] = {1, 2, 3};
    ASSERT_EQ(pu_initContext(&ctx, message, 3, 0), 0);
    EXPECT_EQ(ctx.buffer, message);
    EXPECT_EQ(ctx.ownsBuffer, 0);
    PerContext second = {};
    (void)pu_setBitPosition(&ctx, 11);
    ASSERT_EQ(pu_initContextFrom(&second, &ctx), 0);
    EXPECT_EQ(pu_bitPosition(&second), 11U);
    EXPECT_EQ(second.aligned, 0);
    pu_freeContext(&second);
    pu_freeContext(&ctx);
    EXPECT_EQ(message[2], 3);
}

// Without the marker nothing that stands in the memory counts.
TEST(Context, InitialisingOverDirtyMemoryClearsEverything) {
    PerContext dirty;
    std::memset(static_cast<void*>(&dirty), 0xA5, sizeof dirty);
    uint8_t message[2] = {0x80, 0};
    ASSERT_EQ(pu_initContext(&dirty, message, 2, 1), 0);
    PerContext fresh = {};
    ASSERT_EQ(pu_initContext(&fresh, message, 2, 1), 0);
    EXPECT_EQ(dirty.flags, 0);
    EXPECT_EQ(dirty.sizeConstraint, nullptr);
    EXPECT_EQ(dirty.fieldList.first, nullptr);
    EXPECT_EQ(dirty.errorInfo.status, 0);
    EXPECT_EQ(dirty.lenient, 0);
    EXPECT_EQ(dirty.recordSpans, 0);
    EXPECT_EQ(dirty.traced, 0);
    EXPECT_EQ(dirty.fastSize, fresh.fastSize);
    EXPECT_NE(rtHeapAlloc(&dirty.heap, 8), nullptr);
    EXPECT_EQ(pd_bit(&dirty, nullptr), 0);
    pu_freeContext(&dirty);
    pu_freeContext(&fresh);
}

TEST(Context, InitialisingAgainKeepsTheHeap) {
    PerContext ctx = {};
    uint8_t message[1] = {0};
    ASSERT_EQ(pu_initContext(&ctx, message, 1, 1), 0);
    auto* kept = static_cast<char*>(rtHeapAlloc(&ctx.heap, 5));
    std::memcpy(kept, "kept", 5);
    ASSERT_EQ(pu_initContext(&ctx, message, 1, 0), 0);
    EXPECT_NE(rtHeapAlloc(&ctx.heap, 8), nullptr);
    EXPECT_STREQ(kept, "kept");
    pu_freeContext(&ctx);
    EXPECT_EQ(ctx.heap, nullptr);
}

TEST(Context, StateIsParkedAndRestoredAndNothingLeaks) {
    const FailingAllocator allocator;
    {
        Writer ctx;
        ASSERT_EQ(pe_bits(&ctx, 5, 11), 0);
        pu_setFieldTracking(&ctx, 1);
        PerContext parked = {};
        pu_copyBufferState(&parked, &ctx);
        ASSERT_EQ(pu_setBuffer(&ctx, nullptr, 0), 0); // an owned one instead
        EXPECT_EQ(pu_bitPosition(&ctx), 0U);
        pu_setFieldTracking(&ctx, 0);
        pu_copyBufferState(&ctx, &parked);
        EXPECT_EQ(pu_bitPosition(&ctx), 11U);
        EXPECT_EQ(ctx.flags, PER_FLAG_TRACKING);
        EXPECT_EQ(ctx.hex(), "00a0");
    }
    EXPECT_EQ(allocator.liveBlocks(), 0U);
}

TEST(Context, AllocatedContextsFreeThemselvesAndOnlyThey) {
    const FailingAllocator allocator;
    PerContext* ctx = pu_newContext(nullptr, 0, 1);
    ASSERT_NE(ctx, nullptr);
    pu_setFieldTracking(ctx, 1);
    pu_setFieldTracking(ctx, 0);
    EXPECT_EQ(ctx->flags, PER_FLAG_ALLOCATED);
    pu_freeContext(ctx);
    EXPECT_EQ(allocator.liveBlocks(), 0U);
    pu_freeContext(nullptr);
}

TEST(Context, ExhaustedMemoryIsReportedAndTheContextCanBeReleased) {
    for (size_t allowed = 0; allowed < 2; ++allowed) {
        const FailingAllocator allocator(allowed);
        EXPECT_EQ(pu_newContext(nullptr, 0, 1), nullptr);
        EXPECT_EQ(allocator.liveBlocks(), 0U);
    }
    const FailingAllocator allocator(0);
    PerContext ctx = {};
    EXPECT_EQ(pu_initContext(&ctx, nullptr, 0, 1), PER_NO_MEMORY);
    EXPECT_EQ(pe_bit(&ctx, 1), PER_OVERFLOW);
    EXPECT_EQ(rtHeapAlloc(&ctx.heap, 1), nullptr);
    EXPECT_EQ(rtHeapAlloc(&ctx.heap, 5000), nullptr);
    pu_freeContext(&ctx);
}

TEST(Heap, CarvesBlocksFirstFitFromTheNewest) {
    MemHeap heap = nullptr;
    EXPECT_EQ(rtHeapAlloc(nullptr, 1), nullptr);
    EXPECT_EQ(rtHeapAlloc(&heap, -1), nullptr);
    ASSERT_NE(rtHeapAlloc(&heap, 1), nullptr);
    EXPECT_EQ(heap->used, 8U);
    ASSERT_NE(rtHeapAlloc(&heap, 4080), nullptr);
    EXPECT_EQ(heap->next, nullptr);
    EXPECT_EQ(rtHeapAlloc(&heap, 0), heap->space + 4088);
    ASSERT_NE(rtHeapAlloc(&heap, 4000), nullptr);
    MemBlock* second = heap;
    ASSERT_NE(rtHeapAlloc(&heap, 4089), nullptr); // a block of its own, full from the start
    EXPECT_EQ(heap->used, PER_BLOCK_SPACE);
    EXPECT_EQ(heap->next, second);
    EXPECT_EQ(rtHeapAlloc(&heap, 88), second->space + 4000);
    EXPECT_EQ(rtHeapAllocArray(&heap, UINT32_MAX, UINT32_MAX), nullptr);
    EXPECT_EQ(rtHeapAllocArray(&heap, 0x10000, 0x10000), nullptr); // 2^32
    rtHeapFreeAll(heap);
    rtHeapFreeAll(nullptr);
}

TEST(Heap, AnAllocationLooksAtABoundedNumberOfBlocks) {
    // Blocks that a request just misses are what a hostile message would pile up. Only the newest
    // few are looked at, so an old one with room is left alone.
    MemHeap heap = nullptr;
    (void)rtHeapAlloc(&heap, 2056);
    MemBlock* oldest = heap;
    for (uint32_t i = 1; i < PER_HEAP_WALK_LIMIT; ++i) {
        (void)rtHeapAlloc(&heap, 4088);
    }
    EXPECT_EQ(rtHeapAlloc(&heap, 8), oldest->space + 2056);
    (void)rtHeapAlloc(&heap, 4088);
    EXPECT_NE(rtHeapAlloc(&heap, 8), oldest->space + 2064);
    EXPECT_EQ(oldest->used, 2064U);
    rtHeapFreeAll(heap);
}

#ifdef PER_HEAP_POISONED
// The sanitizer sees an access behind what was handed out, also in a block that served before.
TEST(Heap, OctetsThatAreNotHandedOutMayNotBeTouched) {
    PerBlockPool pool = {};
    const uint8_t message[1] = {0};
    for (int round = 0; round < 2; ++round) {
        PerContext ctx = {};
        ASSERT_EQ(pu_initContext(&ctx, message, 1, 1), 0);
        pu_setBlockPool(&ctx, &pool);
        for (const int32_t octets : {1, 5, 8, 20, 4088, 5000}) {
            const auto* memory = static_cast<uint8_t*>(rtHeapAlloc(&ctx.heap, octets));
            EXPECT_EQ(__asan_address_is_poisoned(memory), 0) << octets;
            EXPECT_EQ(__asan_address_is_poisoned(memory + octets - 1), 0) << octets;
            if (octets != 4088) { // the end of its block
                EXPECT_EQ(__asan_address_is_poisoned(memory + octets), 1) << octets;
            }
        }
        pu_freeContext(&ctx);
    }
    pu_drainBlockPool(&pool);
}
#endif

TEST(Pool, MessagesReuseBlocksAndScratchBuffers) {
    const FailingAllocator allocator;
    PerBlockPool pool = {};
    Octets message(64);
    size_t afterFirst = 0;
    for (int i = 0; i < 5; ++i) {
        PerContext ctx = {};
        ASSERT_EQ(pu_initContext(&ctx, message.data(), 64, 1), 0);
        pu_setBlockPool(&ctx, &pool);
        for (int n = 0; n < 3; ++n) {
            ASSERT_NE(rtHeapAlloc(&ctx.heap, 3000), nullptr);
            PerOpenType open;
            ASSERT_EQ(pe_beginOpenType(&ctx, &open), 0);
            ASSERT_EQ(pe_bits(&ctx, 7, 8), 0);
            ASSERT_EQ(pe_endOpenType(&ctx, &open, 0), 0);
        }
        pu_freeContext(&ctx);
        afterFirst = i == 0 ? allocator.served() : afterFirst;
    }
    EXPECT_EQ(allocator.served(), afterFirst);
    pu_drainBlockPool(&pool);
    EXPECT_EQ(allocator.liveBlocks(), 0U);
}

TEST(Pool, KeepsNoMoreThanItsShare) {
    const FailingAllocator allocator;
    PerBlockPool pool = {};
    Octets message(8);
    PerContext ctx = {};
    ASSERT_EQ(pu_initContext(&ctx, message.data(), 8, 1), 0);
    pu_setBlockPool(&ctx, &pool);
    void* large = rtHeapAlloc(&ctx.heap, 9000);
    (void)rtHeapAlloc(&ctx.heap, 9000);                // the pool has one large block
    (void)rtHeapAlloc(&ctx.heap, PER_LARGE_SPACE + 8); // and none of this size
    for (int i = 0; i < 100; ++i) {
        ASSERT_NE(rtHeapAlloc(&ctx.heap, 4088), nullptr);
    }
    pu_freeContext(&ctx);
    EXPECT_EQ(pool.blockCount, PER_POOL_BLOCKS);
    EXPECT_EQ(allocator.liveBlocks(), PER_POOL_BLOCKS + 1);
    ASSERT_EQ(pu_initContext(&ctx, message.data(), 8, 1), 0);
    pu_setBlockPool(&ctx, &pool);
    EXPECT_EQ(rtHeapAlloc(&ctx.heap, PER_LARGE_SPACE), large);
    ASSERT_NE(rtHeapAlloc(&ctx.heap, 4088), nullptr);
    pu_freeContext(&ctx);
    EXPECT_EQ(allocator.liveBlocks(), PER_POOL_BLOCKS + 1);
    pu_drainBlockPool(&pool);
    EXPECT_EQ(allocator.liveBlocks(), 0U);
}

TEST(SizeConstraint, TheFirstChainStaysInForce) {
    Writer ctx;
    const SizeConstraint first = {0, 3, 3, nullptr};
    const SizeConstraint same = {0, 3, 3, nullptr};
    const SizeConstraint around = {0, 1, 5, nullptr};
    const SizeConstraint either = {0, 1, 5, &same};
    ASSERT_EQ(pu_addSizeConstraint(&ctx, &first), 0);
    EXPECT_EQ(pu_addSizeConstraint(&ctx, &same), 0);
    EXPECT_EQ(pu_addSizeConstraint(&ctx, &either), 0);
    EXPECT_EQ(pu_addSizeConstraint(&ctx, &around), PER_CONSTRAINT);
    EXPECT_EQ(pu_addSizeConstraint(&ctx, nullptr), PER_CONSTRAINT);
    EXPECT_EQ(pe_Length(&ctx, 3), 3);
    EXPECT_EQ(pu_bitPosition(&ctx), 0U); // a fixed size writes no length
    EXPECT_EQ(pe_Length(&ctx, 3), 3);    // and was for one length only
    EXPECT_EQ(ctx.hex(), "03");
}

// A range on a stack frame that is over must not bind the next message.
TEST(SizeConstraint, EndsWithTheStringThatFails) {
    const uint8_t fragment[] = {0xC1};
    for (const size_t octets : {size_t{0}, sizeof fragment}) {
        for (const uint32_t upper : {9U, 70000U}) {
            PerContext ctx = {};
            ASSERT_EQ(pu_initContext(&ctx, fragment, static_cast<uint32_t>(octets), 1), 0);
            const SizeConstraint range = {0, 1, upper, nullptr};
            ASSERT_EQ(pu_addSizeConstraint(&ctx, &range), 0);
            DynOctetString value = {};
            EXPECT_LT(pd_DynOctetString(&ctx, &value), 0);
            EXPECT_EQ(ctx.sizeConstraint, nullptr) << octets << " octets, at most " << upper;
            pu_freeContext(&ctx);
        }
    }
}

TEST(Errors, LoggingReturnsTheStatus) {
    ErrorInfo error = {};
    for (const int32_t status : {0, 2, -1, -24, INT32_MIN}) {
        EXPECT_EQ(rtLogError(&error, status, "file", 1), status);
    }
}

} // namespace
