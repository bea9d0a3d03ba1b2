// The PER runtime: what is not inlined into the codecs. Sections in the order of the headers:
// trace, memory, context, source spans, writing, reading, strings, extensions, diagnostics.
//
// Most primitives have up to three halves. The inline one (encode_inline.h, decode_inline.h) is the
// way of nearly every call: one octet at hand, nothing wrong, no diagnostics. What it cannot do it
// leaves, before it has changed anything, to `...Word`, which takes bits across octets with one
// load or store of 8 octets, and that to `...Slow`: the exact way for every variant, position and
// state, which alone traces, tracks fields and decides about failing statuses. Small helpers here
// that return bool are fast ways of the same kind: false means that nothing was done. A change of a
// primitive begins with its exact way; the property test compares the others with it.
#include "asn1per/asn1per.h"

#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Every failing path leaves through here.
int32_t fail(PerContext* ctx, int32_t status, int line = __builtin_LINE()) {
    return rtLogError(&ctx->errorInfo, status, "asn1per/asn1per", line);
}

// Returns the first failing status of a step from the function that it stands in.
#define PER_TRY(step)                                                                              \
    do {                                                                                           \
        const int32_t tried = (step);                                                              \
        if (tried < 0) [[unlikely]] {                                                              \
            return fail(ctx, tried);                                                               \
        }                                                                                          \
    } while (false)

bool isTracking(const PerContext* ctx) {
    return (ctx->flags & PER_FLAG_TRACKING) != 0;
}

uint64_t bitSize(const PerContext* ctx) {
    return uint64_t{ctx->size} * 8;
}

bool hasBits(const PerContext* ctx, uint64_t count) {
    return pu_bitPosition(ctx) + count <= bitSize(ctx);
}

} // namespace

// ---- trace ---------------------------------------------------------------------------------

int32_t rtTraceOn = 0;

void rtSetTrace(int32_t value) {
    rtTraceOn = value;
}

void rtTracePrint(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (void)std::vprintf(format, arguments);
    va_end(arguments);
}

// ---- memory: blocks, buffers and pools -----------------------------------------------------

PerAllocator rtAllocator = {std::malloc, std::free};

namespace {

// The block, or null, as it is before any of its space was handed out.
MemBlock* untouched(MemBlock* block, uint32_t space) {
    if (block != nullptr) {
        pu_poison(block->space, space);
    }
    return block;
}

MemBlock* takeBlock(PerBlockPool* pool) {
    MemBlock* block = pool != nullptr ? pool->blocks : nullptr;
    if (block != nullptr) {
        pool->blocks = block->next;
        --pool->blockCount;
    } else {
        block = static_cast<MemBlock*>(rtAllocator.allocate(sizeof(MemBlock)));
    }
    return untouched(block, PER_BLOCK_SPACE);
}

// An ordinary block returns to a pool that has a place for it. False, and nothing done, otherwise.
PER_INLINE bool returnToPool(MemBlock* block) {
    PerBlockPool* pool = block->pool;
    if (pool == nullptr || block == pool->large || pool->blockCount >= PER_POOL_BLOCKS) {
        return false;
    }
    block->next = pool->blocks;
    pool->blocks = block;
    ++pool->blockCount;
    return true;
}

void giveBlockBack(MemBlock* block) {
    PerBlockPool* pool = block->pool;
    if (pool != nullptr && block == pool->large) {
        pool->largeInUse = 0;
    } else if (!returnToPool(block)) {
        rtAllocator.release(block);
    }
}

MemBlock* allocateLarge(uint32_t octets) {
    return static_cast<MemBlock*>(rtAllocator.allocate(offsetof(MemBlock, space) + octets));
}

// A block for one record of more than PER_BLOCK_SPACE octets: the pool's, or one of its own.
MemBlock* takeLargeBlock(PerBlockPool* pool, uint32_t octets) {
    if (pool == nullptr || pool->largeInUse != 0 || octets > PER_LARGE_SPACE) {
        MemBlock* block = allocateLarge(octets);
        if (block != nullptr) {
            block->pool = nullptr; // the pool takes blocks of one size
        }
        return untouched(block, octets);
    }
    if (pool->large == nullptr) {
        pool->large = allocateLarge(PER_LARGE_SPACE);
        if (pool->large == nullptr) {
            return nullptr;
        }
        pool->large->pool = pool;
    }
    pool->largeInUse = 1;
    return untouched(pool->large, PER_LARGE_SPACE);
}

uint8_t* contentsOf(PerOwnedBuffer* owned) {
    return reinterpret_cast<uint8_t*>(owned + 1);
}

PerOwnedBuffer* takeBuffer(PerBlockPool* pool, uint32_t capacity) {
    if (pool != nullptr && pool->buffers != nullptr && capacity == PER_BUFFER_STEP) {
        PerOwnedBuffer* owned = pool->buffers;
        pool->buffers = owned->next;
        --pool->bufferCount;
        return owned;
    }
    auto* owned =
        static_cast<PerOwnedBuffer*>(rtAllocator.allocate(sizeof(PerOwnedBuffer) + capacity));
    if (owned != nullptr) {
        owned->pool = pool;
        owned->capacity = capacity;
    }
    return owned;
}

void giveBufferBack(PerOwnedBuffer* owned) {
    PerBlockPool* pool = owned->pool;
    if (pool == nullptr || owned->capacity != PER_BUFFER_STEP ||
        pool->bufferCount >= PER_POOL_BUFFERS) {
        rtAllocator.release(owned);
        return;
    }
    owned->next = pool->buffers;
    pool->buffers = owned;
    ++pool->bufferCount;
}

void giveBuffersBack(PerOwnedBuffer** list) {
    while (PerOwnedBuffer* owned = *list) {
        *list = owned->next;
        giveBufferBack(owned);
    }
}

// Takes the buffer with these contents out of the context's list; null when it is not in it.
PerOwnedBuffer* unlinkOwned(PerContext* ctx, const uint8_t* contents) {
    for (PerOwnedBuffer** link = &ctx->owned; *link != nullptr; link = &(*link)->next) {
        PerOwnedBuffer* owned = *link;
        if (contentsOf(owned) == contents) {
            *link = owned->next;
            return owned;
        }
    }
    return nullptr;
}

void putCursorAtStart(PerContext* ctx) {
    ctx->byteIndex = 0;
    ctx->bitOffset = 8;
}

void useOwned(PerContext* ctx, PerOwnedBuffer* owned) {
    owned->next = ctx->owned;
    ctx->owned = owned;
    ctx->buffer = contentsOf(owned);
    ctx->size = owned->capacity;
    ctx->ownsBuffer = 1;
    pu_updateFastSize(ctx);
}

void dropBuffer(PerContext* ctx) {
    ctx->buffer = nullptr;
    ctx->size = 0;
    ctx->fastSize = 0;
    ctx->ownsBuffer = 0;
    putCursorAtStart(ctx);
}

} // namespace

// ---- memory: the heap ----------------------------------------------------------------------

void* rtHeapAllocBlock(MemHeap* heap, uint32_t octets) {
    PerBlockPool* pool = *heap != nullptr ? (*heap)->pool : nullptr;
    if (octets > PER_BLOCK_SPACE) {
        MemBlock* block = takeLargeBlock(pool, octets);
        if (block == nullptr) {
            return nullptr;
        }
        block->next = *heap;
        block->used = PER_BLOCK_SPACE;
        *heap = block;
        return block->space;
    }
    uint32_t visited = 0;
    for (MemBlock* block = *heap; block != nullptr && visited < PER_HEAP_WALK_LIMIT;
         block = block->next, ++visited) {
        if (octets <= PER_BLOCK_SPACE - block->used) {
            void* memory = block->space + block->used;
            block->used += octets;
            return memory;
        }
        pool = block->pool != nullptr ? block->pool : pool;
    }
    MemBlock* block = takeBlock(pool);
    if (block == nullptr) {
        return nullptr;
    }
    block->next = *heap;
    block->pool = pool;
    block->used = octets;
    *heap = block;
    return block->space;
}

[[gnu::noinline]] void rtHeapFreeAll(MemBlock* newest) {
    while (newest != nullptr) {
        MemBlock* older = newest->next;
        giveBlockBack(newest);
        newest = older;
    }
}

// A heap learns of its pool from its blocks.
PER_INLINE static void beginHeap(PerContext* ctx, PerBlockPool* pool, MemBlock* block) {
    block->next = nullptr;
    block->pool = pool;
    block->used = 0;
    ctx->heap = block;
}

[[gnu::noinline]] static void beginFreshHeap(PerContext* ctx, PerBlockPool* pool) {
    MemBlock* block = takeBlock(pool);
    if (block != nullptr) {
        beginHeap(ctx, pool, block);
    }
}

void pu_setBlockPool(PerContext* ctx, PerBlockPool* pool) {
    ctx->pool = pool;
    if (pool == nullptr || ctx->heap != nullptr) {
        return;
    }
    if (pool->blocks == nullptr) [[unlikely]] {
        beginFreshHeap(ctx, pool);
        return;
    }
    beginHeap(ctx, pool, takeBlock(pool));
}

void pu_drainBlockPool(PerBlockPool* pool) {
    while (MemBlock* block = pool->blocks) {
        pool->blocks = block->next;
        rtAllocator.release(block);
    }
    while (PerOwnedBuffer* owned = pool->buffers) {
        pool->buffers = owned->next;
        rtAllocator.release(owned);
    }
    if (pool->large != nullptr) {
        rtAllocator.release(pool->large);
    }
    *pool = {};
}

// ---- context -------------------------------------------------------------------------------

// Two halves are cleared by a few wide stores, the whole by a loop.
static void clearContext(PerContext* ctx) {
    constexpr size_t HALF = sizeof(PerContext) / 2;
    auto* octets = reinterpret_cast<uint8_t*>(ctx);
    std::memset(octets, 0, HALF);
    std::memset(octets + HALF, 0, sizeof(PerContext) - HALF);
}

PER_INLINE static int32_t startMessage(PerContext* ctx, uint8_t aligned) {
    putCursorAtStart(ctx);
    ctx->aligned = aligned;
    pu_updateFastSize(ctx);
    return PER_OK;
}

static int32_t useNewBuffer(PerContext* ctx) {
    PerOwnedBuffer* owned = takeBuffer(ctx->pool, PER_BUFFER_STEP);
    if (owned == nullptr) {
        return fail(ctx, PER_NO_MEMORY);
    }
    useOwned(ctx, owned);
    return PER_OK;
}

[[gnu::noinline]] static int32_t startOwned(PerContext* ctx, uint8_t aligned) {
    PER_TRY(useNewBuffer(ctx));
    return startMessage(ctx, aligned);
}

int32_t pu_initContext(PerContext* ctx, const uint8_t* buffer, uint32_t size, uint8_t aligned) {
    if (ctx->initMarker != PER_CONTEXT_MARKER) {
        clearContext(ctx);
        ctx->initMarker = PER_CONTEXT_MARKER;
    }
    ctx->depth = 0;
    if (buffer == nullptr) [[unlikely]] {
        return startOwned(ctx, aligned);
    }
    ctx->buffer = const_cast<uint8_t*>(buffer); // written to by encoders only
    ctx->size = size;
    ctx->ownsBuffer = 0;
    return startMessage(ctx, aligned);
}

int32_t pu_initContextFrom(PerContext* ctx, const PerContext* source) {
    PER_TRY(pu_initContext(ctx, source->buffer, source->size, source->aligned));
    ctx->byteIndex = source->byteIndex;
    ctx->bitOffset = source->bitOffset;
    return PER_OK;
}

PerContext* pu_newContext(const uint8_t* buffer, uint32_t size, uint8_t aligned) {
    auto* ctx = static_cast<PerContext*>(rtAllocator.allocate(sizeof(PerContext)));
    if (ctx == nullptr) {
        return nullptr;
    }
    *ctx = {};
    if (pu_initContext(ctx, buffer, size, aligned) != PER_OK) {
        rtAllocator.release(ctx);
        return nullptr;
    }
    ctx->flags = PER_FLAG_ALLOCATED;
    return ctx;
}

[[gnu::noinline]] static void releaseFields(PerContext* ctx) {
    while (FieldNode* node = ctx->fieldList.first) {
        ctx->fieldList.first = node->next;
        rtAllocator.release(node);
    }
    ctx->fieldList = {};
}

[[gnu::noinline]] static void releaseBuffers(PerContext* ctx) {
    if (ctx->ownsBuffer != 0) {
        dropBuffer(ctx);
    }
    giveBuffersBack(&ctx->owned);
    giveBuffersBack(&ctx->spare);
}

void pu_freeContext(PerContext* ctx) {
    if (ctx == nullptr) {
        return;
    }
    if (ctx->ownsBuffer != 0 || ctx->owned != nullptr || ctx->spare != nullptr) {
        releaseBuffers(ctx);
    }
    MemBlock* newest = ctx->heap;
    if (newest != nullptr && (newest->next != nullptr || !returnToPool(newest))) {
        rtHeapFreeAll(newest);
    }
    ctx->heap = nullptr;
    ctx->spans = nullptr;
    ctx->recordSpans = 0;
    if (ctx->fieldList.first != nullptr) [[unlikely]] {
        releaseFields(ctx);
    }
    ctx->sizeConstraint = nullptr;
    ctx->initMarker = 0;
    if ((ctx->flags & PER_FLAG_ALLOCATED) != 0) {
        rtAllocator.release(ctx);
    }
}

int32_t pu_setBuffer(PerContext* ctx, const uint8_t* buffer, uint32_t size) {
    if (buffer != nullptr && size != 0) {
        ctx->buffer = const_cast<uint8_t*>(buffer);
        ctx->size = size;
        ctx->ownsBuffer = 0;
        pu_updateFastSize(ctx);
    } else {
        PER_TRY(useNewBuffer(ctx));
    }
    putCursorAtStart(ctx);
    return PER_OK;
}

void pu_copyBufferState(PerContext* destination, const PerContext* source) {
    destination->buffer = source->buffer;
    destination->byteIndex = source->byteIndex;
    destination->size = source->size;
    destination->bitOffset = source->bitOffset;
    destination->ownsBuffer = source->ownsBuffer;
    destination->aligned = source->aligned;
    destination->flags = source->flags;
    destination->fastSize = source->fastSize;
}

uint8_t* pe_getMsgPtr(const PerContext* ctx, uint32_t* length) {
    if (ctx == nullptr) {
        return nullptr;
    }
    if (length != nullptr) {
        *length = ctx->bitOffset == 8 ? ctx->byteIndex : ctx->byteIndex + 1;
    }
    return ctx->buffer;
}

int32_t pu_addSizeConstraint(PerContext* ctx, const SizeConstraint* chain) {
    const SizeConstraint* pending = ctx->sizeConstraint;
    if (pending == nullptr) {
        ctx->sizeConstraint = chain;
        return PER_OK;
    }
    for (const SizeConstraint* range = chain; range != nullptr; range = range->next) {
        if (pending->lower <= range->lower || pending->upper >= range->upper) {
            return PER_OK;
        }
    }
    return fail(ctx, PER_CONSTRAINT);
}

// A range on the caller's stack must not stay pending when a primitive failed before its length.
static int32_t dropRange(PerContext* ctx, int32_t status) {
    ctx->sizeConstraint = nullptr;
    return status;
}

// ---- source spans --------------------------------------------------------------------------

namespace {

struct Span {
    const uint8_t* copy;
    const uint8_t* source;
    uint32_t octets;
};

// Copies of copies end soon: each step leads from a nested open type to the one around it.
constexpr int SPAN_STEP_LIMIT = 64;

bool holds(const uint8_t* start, uint64_t size, const uint8_t* address, uint64_t octets) {
    const auto first = reinterpret_cast<uintptr_t>(start);
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    return wanted >= first && wanted - first <= size && octets <= size - (wanted - first);
}

} // namespace

constexpr uint32_t SPANS_PER_CHUNK = 42;
struct PerSpanChunk {
    PerSpanChunk* older;
    uint32_t count;
    Span spans[SPANS_PER_CHUNK];
};

namespace {

// The newest span whose copy holds these octets: an address may have been decoded into twice.
const Span* findSpan(const PerContext* ctx, const uint8_t* copy, uint32_t octets) {
    for (const PerSpanChunk* chunk = ctx->spans; chunk != nullptr; chunk = chunk->older) {
        for (uint32_t i = chunk->count; i-- > 0;) {
            if (holds(chunk->spans[i].copy, chunk->spans[i].octets, copy, octets)) {
                return &chunk->spans[i];
            }
        }
    }
    return nullptr;
}

} // namespace

void pu_recordSpans(PerContext* ctx, const PerContext* outer) {
    ctx->recordSpans = 1;
    ctx->spanBase = ctx->buffer;
    ctx->spanSize = ctx->size;
    ctx->outer = outer;
}

void pu_addSpan(PerContext* ctx, const uint8_t* copy, const uint8_t* source, uint32_t octets) {
    PerSpanChunk* chunk = ctx->spans;
    if (chunk == nullptr || chunk->count == SPANS_PER_CHUNK) {
        chunk = static_cast<PerSpanChunk*>(
            rtHeapAlloc(&ctx->heap, static_cast<int32_t>(sizeof(PerSpanChunk))));
        if (chunk == nullptr) {
            return;
        }
        chunk->older = ctx->spans;
        chunk->count = 0;
        ctx->spans = chunk;
    }
    chunk->spans[chunk->count++] = {copy, source, octets};
}

uint8_t* pu_sourceOf(const PerContext* ctx, const uint8_t* copy, uint32_t octets) {
    const uint8_t* address = copy;
    uint32_t held = 1; // the first copy may be shorter than the run that is asked for
    for (int step = 0; step < SPAN_STEP_LIMIT && ctx != nullptr && ctx->recordSpans != 0; ++step) {
        if (held == octets && holds(ctx->spanBase, ctx->spanSize, address, octets)) {
            if (ctx->outer == nullptr) {
                return const_cast<uint8_t*>(address);
            }
            ctx = ctx->outer;
            continue;
        }
        const Span* span = findSpan(ctx, address, held);
        if (span == nullptr) {
            return nullptr;
        }
        address = span->source + (address - span->copy);
        held = octets;
    }
    return nullptr;
}

// ---- writing: room -------------------------------------------------------------------------

int32_t pe_expandBuffer(PerContext* ctx, uint32_t octets) {
    if (ctx->ownsBuffer == 0) {
        return fail(ctx, PER_OVERFLOW);
    }
    PerOwnedBuffer* old = unlinkOwned(ctx, ctx->buffer);
    // Whole steps, so that a large request leaves a step for what follows it.
    const uint64_t steps = (uint64_t{octets} + PER_BUFFER_STEP - 1) / PER_BUFFER_STEP;
    const uint64_t wanted = uint64_t{ctx->size} + (steps == 0 ? 1 : steps) * PER_BUFFER_STEP;
    if (old == nullptr || wanted > PER_BUFFER_LIMIT) {
        if (old != nullptr) {
            giveBufferBack(old);
        }
        dropBuffer(ctx);
        return fail(ctx, PER_OVERFLOW);
    }
    PerOwnedBuffer* grown = takeBuffer(ctx->pool, static_cast<uint32_t>(wanted));
    if (grown == nullptr) {
        old->next = ctx->owned;
        ctx->owned = old;
        return fail(ctx, PER_NO_MEMORY);
    }
    std::memcpy(contentsOf(grown), contentsOf(old), ctx->size);
    giveBufferBack(old);
    useOwned(ctx, grown);
    return PER_OK;
}

int32_t pe_checkBuffer(PerContext* ctx, uint32_t octets) {
    if (uint64_t{ctx->byteIndex} + octets < ctx->size) {
        return PER_OK;
    }
    return pe_expandBuffer(ctx, octets == UINT32_MAX ? octets : octets + 1);
}

namespace {

// Room for `count` bits more. An encoding may fill the buffer to its last bit.
int32_t makeRoom(PerContext* ctx, uint64_t count) {
    const uint64_t octets = (pu_bitPosition(ctx) + count + 7) / 8;
    if (octets <= ctx->size) [[likely]] {
        return PER_OK;
    }
    const uint64_t missing = octets - ctx->size;
    return pe_expandBuffer(ctx, missing > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(missing));
}

void clearOctet(PerContext* ctx) {
    if (ctx->byteIndex < ctx->size) {
        ctx->buffer[ctx->byteIndex] = 0;
    }
}

// Writes bits for which there is room, an octet at a time, and leaves the cursor behind them.
void putBitsByOctet(PerContext* ctx, uint32_t value, uint32_t count) {
    pu_setBitPosition(ctx, pu_bitPosition(ctx));
    while (count > 0) {
        const auto unused = static_cast<uint32_t>(ctx->bitOffset);
        const uint32_t taken = count < unused ? count : unused;
        const uint32_t bits = value >> (count - taken) & ((1U << taken) - 1U);
        if (unused == 8) {
            ctx->buffer[ctx->byteIndex] = 0;
        }
        uint8_t* octet = ctx->buffer + ctx->byteIndex;
        *octet = static_cast<uint8_t>(*octet | bits << (unused - taken));
        count -= taken;
        pu_setBitPosition(ctx, pu_bitPosition(ctx) + taken);
    }
}

// Leaves a cursor that stands before an untouched octet at the end of the full one, where single
// bits leave it.
void stayInOctet(PerContext* ctx) {
    if (ctx->bitOffset == 8) {
        --ctx->byteIndex;
        ctx->bitOffset = 0;
    }
}

} // namespace

// ---- writing: bits -------------------------------------------------------------------------

int32_t pe_bitSlow(PerContext* ctx, uint8_t bit) {
    PER_TRY(makeRoom(ctx, 1));
    putBitsByOctet(ctx, bit != 0 ? 1 : 0, 1);
    stayInOctet(ctx);
    return PER_OK;
}

int32_t pe_bitsSlow(PerContext* ctx, uint32_t value, uint32_t count) {
    if (count == 0) {
        return PER_OK;
    }
    if (count > 32) {
        return fail(ctx, PER_RANGE);
    }
    PER_TRY(makeRoom(ctx, count));
    putBitsByOctet(ctx, value, count);
    if (ctx->bitOffset == 8) {
        clearOctet(ctx);
    }
    return PER_OK;
}

int32_t pe_bitRunSlow(PerContext* ctx, uint32_t bits, uint32_t count) {
    if (count - 1U >= 32U) {
        return fail(ctx, PER_RANGE);
    }
    PER_TRY(makeRoom(ctx, count));
    putBitsByOctet(ctx, pu_reverseBits(bits, count), count);
    stayInOctet(ctx);
    return PER_OK;
}

// Puts up to 8 bits, which may begin in the next octet and may reach into one more. The cursor
// stays in an octet that they fill, and another one follows it. False, and nothing done, without
// room.
PER_INLINE static bool putFewBits(PerContext* ctx, uint32_t bits, uint32_t count) {
    uint64_t index = ctx->byteIndex;
    auto unused = static_cast<uint32_t>(ctx->bitOffset);
    if (unused == 0) {
        ++index;
        unused = 8;
    }
    if (index + 1 >= ctx->size) [[unlikely]] {
        return false;
    }
    uint8_t* octet = ctx->buffer + index;
    const uint32_t begun = unused == 8 ? 0U : *octet;
    if (count <= unused) {
        *octet = static_cast<uint8_t>(begun | bits << (unused - count));
        ctx->byteIndex = static_cast<uint32_t>(index);
        ctx->bitOffset = static_cast<int16_t>(unused - count);
        return true;
    }
    const uint32_t over = count - unused;
    octet[0] = static_cast<uint8_t>(begun | bits >> over);
    octet[1] = static_cast<uint8_t>(bits << (8U - over));
    ctx->byteIndex = static_cast<uint32_t>(index + 1);
    ctx->bitOffset = static_cast<int16_t>(8U - over);
    return true;
}

int32_t pe_bitsWord(PerContext* ctx, uint32_t value, uint32_t count) {
    if (count - 1U < 8U && putFewBits(ctx, value & ((1U << count) - 1U), count)) [[likely]] {
        if (ctx->bitOffset == 0) {
            pu_setOctet(ctx, uint64_t{ctx->byteIndex} + 1);
            ctx->buffer[ctx->byteIndex] = 0;
        }
        return PER_OK;
    }
    const uint64_t position = pu_bitPosition(ctx);
    const uint64_t index = position >> 3;
    if (index + 8 > ctx->size || count - 1U >= 32U) [[unlikely]] {
        return pe_bitsSlow(ctx, value, count);
    }
    const uint32_t offset = position & 7U;
    pu_putBits(ctx->buffer + index, offset, value, count, (offset + count) >> 3);
    pu_setBitPosition(ctx, position + count);
    return PER_OK;
}

int32_t pe_bitRunWord(PerContext* ctx, uint32_t bits, uint32_t count) {
    if (count - 1U < 8U && putFewBits(ctx, pu_reverseBits(bits, count), count)) {
        return PER_OK;
    }
    const uint64_t position = pu_bitPosition(ctx);
    const uint64_t index = position >> 3;
    if (index + 8 > ctx->size || count - 1U >= 32U) [[unlikely]] {
        return pe_bitRunSlow(ctx, bits, count);
    }
    const uint32_t offset = position & 7U;
    const uint64_t last = position + count - 1;
    pu_putBits(ctx->buffer + index, offset, pu_reverseBits(bits, count), count,
               (offset + count - 1) >> 3);
    ctx->byteIndex = static_cast<uint32_t>(last >> 3);
    ctx->bitOffset = static_cast<int16_t>(7U - (last & 7U));
    return PER_OK;
}

int32_t pe_leadingBits(PerContext* ctx, uint8_t octet, uint32_t count) {
    const uint32_t taken = count < 8 ? count : 8;
    const uint32_t bits = uint32_t{octet} >> (8 - taken);
    if (taken == 0 || ctx->bitOffset == 8) {
        return pe_bits(ctx, bits, taken);
    }
    return pe_bitRun(ctx, pu_reverseBits(bits, taken), taken);
}

// Aligns and writes `octets` whole octets (1 or more) with an untouched one behind them. False, and
// nothing done, without room for that.
PER_INLINE static bool putOctets(PerContext* ctx, const uint8_t* data, uint32_t octets) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (index + octets >= ctx->size) [[unlikely]] {
        return false;
    }
    uint8_t* place = ctx->buffer + index;
    std::memmove(place, data, octets);
    place[octets] = 0;
    pu_setOctet(ctx, index + octets);
    return true;
}

int32_t pe_bitData(PerContext* ctx, const uint8_t* data, uint32_t bitCount) {
    const bool onBoundary = ctx->bitOffset == 8 || ctx->bitOffset == 0;
    if (onBoundary && bitCount % 8 == 0 && bitCount != 0 && putOctets(ctx, data, bitCount / 8)) {
        return PER_OK;
    }
    if (bitCount == 0) {
        return PER_OK;
    }
    PER_TRY(makeRoom(ctx, bitCount));
    const uint32_t octets = bitCount / 8;
    if (onBoundary || octets == 0) {
        const uint64_t index = pu_alignedIndex(ctx);
        if (octets != 0) {
            std::memmove(ctx->buffer + index, data, octets);
            pu_setOctet(ctx, index + octets);
            clearOctet(ctx);
        }
    } else {
        uint32_t i = 0;
        for (; octets - i >= 4; i += 4) {
            const uint32_t high = uint32_t{data[i]} << 8 | data[i + 1];
            PER_TRY(pe_bits(ctx, high << 16 | uint32_t{data[i + 2]} << 8 | data[i + 3], 32));
        }
        for (; i < octets; ++i) {
            PER_TRY(pe_bits(ctx, data[i], 8));
        }
    }
    return bitCount % 8 == 0 ? PER_OK : pe_leadingBits(ctx, data[octets], bitCount % 8);
}

int32_t pe_byteAlignSlow(PerContext* ctx) {
    if (ctx->bitOffset != 8) {
        PER_TRY(pe_checkBuffer(ctx, 1));
        pu_setOctet(ctx, uint64_t{ctx->byteIndex} + 1);
        clearOctet(ctx);
    }
    pu_setFieldBitOffset(ctx);
    return PER_OK;
}

// ---- writing: whole numbers and lengths ----------------------------------------------------

namespace {

// Octets of a non-negative number, 1..4.
uint32_t octetsOf(uint32_t value) {
    return value < 256 ? 1 : (pu_bitcount(value) + 7) / 8;
}

PER_INLINE int32_t alignIfAligned(PerContext* ctx) {
    return ctx->aligned != 0 ? pe_byteAlign(ctx) : PER_OK;
}

// Closes the newest record as the length of a field and opens one of the field's name for its
// value.
void splitTrackedField(PerContext* ctx) {
    if (!isTracking(ctx) || ctx->fieldList.last == nullptr) {
        return;
    }
    FieldRecord* record = ctx->fieldList.last->record;
    const char* name = record->name;
    const size_t length = std::strlen(name);
    constexpr char SUFFIX[] = " length";
    auto* renamed =
        static_cast<char*>(rtHeapAlloc(&ctx->heap, static_cast<int32_t>(length + sizeof SUFFIX)));
    if (renamed == nullptr) {
        return;
    }
    std::memcpy(renamed, name, length);
    std::memcpy(renamed + length, SUFFIX, sizeof SUFFIX);
    record->name = renamed;
    pu_setFieldBitCount(ctx);
    (void)pu_newField(ctx, name + 1); // behind the space, which pu_newField puts before it again
}

} // namespace

int32_t pe_ConsWholeNumberSlow(PerContext* ctx, uint32_t value, uint32_t range) {
    if (value >= range && range != UINT32_MAX) {
        return fail(ctx, PER_RANGE);
    }
    if (ctx->aligned == 0 || range <= 255) {
        return pe_bits(ctx, value, pu_bitcount(range - 1));
    }
    if (range <= 65536) {
        PER_TRY(pe_byteAlign(ctx));
        return pe_bits(ctx, value, range == 256 ? 8 : 16);
    }
    PER_TRY(pe_bits(ctx, octetsOf(value) - 1, 2));
    splitTrackedField(ctx);
    PER_TRY(pe_byteAlign(ctx));
    return pe_NonNegBinInteger(ctx, value);
}

int32_t pe_NonNegBinInteger(PerContext* ctx, uint32_t value) {
    return pe_bits(ctx, value, octetsOf(value) * 8);
}

int32_t pe_2sCompBinInteger(PerContext* ctx, int32_t value) {
    return pe_bits(ctx, static_cast<uint32_t>(value),
                   static_cast<uint32_t>(pe_GetIntLen(value)) * 8);
}

int32_t pe_GetIntLen(int32_t value) {
    int32_t shift = 23;
    rtTrace("pe_GetIntLen: shift is %d, value is 0x%x", shift, static_cast<uint32_t>(value));
    while (shift > 0) {
        const uint32_t group = static_cast<uint32_t>(value >> shift) & 0x1FFU;
        rtTrace("pe_GetIntLen: shift is %d, tempValue is 0x%x", shift, group);
        if (group != 0 && group != 0x1FF) {
            break;
        }
        shift -= 8;
    }
    const int32_t octets = (shift + 9) / 8;
    rtTrace("pe_GetIntLen: len is %d\n", octets);
    return octets;
}

int32_t pe_SmallNonNegWholeNumber(PerContext* ctx, uint32_t value) {
    if (value < 64) [[likely]] {
        return pe_bits(ctx, value, 7);
    }
    PER_TRY(pe_bit(ctx, 1));
    PER_TRY(pe_UnconsLength(ctx, octetsOf(value)));
    PER_TRY(alignIfAligned(ctx));
    return pe_NonNegBinInteger(ctx, value);
}

// A length determinant of one octet, without a constraint. False, and nothing done, when it is
// anything else or has no room.
PER_INLINE static bool putShortLength(PerContext* ctx, uint32_t length) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (length >= 128 || index + 1 >= ctx->fastSize) [[unlikely]] {
        return false;
    }
    ctx->buffer[index] = static_cast<uint8_t>(length);
    ctx->buffer[index + 1] = 0;
    pu_setOctet(ctx, index + 1);
    return true;
}

int32_t pe_UnconsLength(PerContext* ctx, uint32_t length) {
    if (putShortLength(ctx, length)) {
        return static_cast<int32_t>(length);
    }
    PER_TRY(alignIfAligned(ctx));
    if (length < 128) {
        PER_TRY(pe_bits(ctx, length, 8));
        return static_cast<int32_t>(length);
    }
    if (length < 16384) {
        PER_TRY(pe_bits(ctx, 0x8000U | length, 16));
        return static_cast<int32_t>(length);
    }
    const uint32_t multiple = length < 65536 ? length / 16384 : 4;
    PER_TRY(pe_bits(ctx, 0xC0U | multiple, 8));
    return static_cast<int32_t>(multiple * 16384);
}

namespace {

const SizeConstraint* findRange(const SizeConstraint* chain, uint32_t count) {
    while (chain != nullptr && (count < chain->lower || count > chain->upper)) {
        chain = chain->next;
    }
    return chain;
}

bool isExtensible(const SizeConstraint* chain) {
    while (chain != nullptr && chain->extended == 0) {
        chain = chain->next;
    }
    return chain != nullptr;
}

[[gnu::noinline]] int32_t putLength(PerContext* ctx, uint32_t length) {
    const SizeConstraint* chain = ctx->sizeConstraint;
    // Consumed in any case: it may stand on a stack frame that ends with this failure.
    ctx->sizeConstraint = nullptr;
    const SizeConstraint* range = findRange(chain, length);
    if (chain != nullptr && range == nullptr) {
        return fail(ctx, PER_CONSTRAINT);
    }
    if (isExtensible(chain)) {
        (void)pu_newField(ctx, "length extension");
        PER_TRY(pe_bit(ctx, range->extended));
        pu_setFieldBitCount(ctx);
    }
    if (range != nullptr && range->upper < 65536) {
        if (range->upper != range->lower) {
            (void)pu_newField(ctx, "length");
            PER_TRY(
                pe_ConsWholeNumber(ctx, length - range->lower, range->upper - range->lower + 1));
            pu_setFieldBitCount(ctx);
        }
        return static_cast<int32_t>(length);
    }
    (void)pu_newField(ctx, "length");
    const int32_t covered = pe_UnconsLength(ctx, length);
    PER_TRY(covered);
    pu_setFieldBitCount(ctx);
    return covered;
}

} // namespace

int32_t pe_Length(PerContext* ctx, uint32_t length) {
    if (ctx->sizeConstraint == nullptr && putShortLength(ctx, length)) [[likely]] {
        return static_cast<int32_t>(length);
    }
    return putLength(ctx, length);
}

int32_t pe_LengthSizedSlow(PerContext* ctx, uint32_t length, uint32_t lower, uint32_t upper) {
    const SizeConstraint range = {0, lower, upper, nullptr};
    PER_TRY(pu_addSizeConstraint(ctx, &range));
    return dropRange(ctx, pe_Length(ctx, length));
}

int32_t pe_ConsIntegerSlow(PerContext* ctx, int32_t value, int32_t lower, int32_t upper) {
    (void)pu_newField(ctx, "ConsInteger");
    const auto base = static_cast<uint32_t>(lower);
    const uint32_t range = static_cast<uint32_t>(upper) - base + 1;
    if (static_cast<int32_t>(range) <= 0 || value < lower) {
        return fail(ctx, PER_RANGE);
    }
    if (upper != lower) {
        PER_TRY(pe_ConsWholeNumberSlow(ctx, static_cast<uint32_t>(value) - base, range));
    }
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

int32_t pe_ConsUnsignedSlow(PerContext* ctx, uint32_t value, uint32_t lower, uint32_t upper) {
    (void)pu_newField(ctx, "ConsUnsigned");
    if (upper != lower) {
        const uint32_t range = lower == 0 && upper == UINT32_MAX ? UINT32_MAX : upper - lower + 1;
        PER_TRY(pe_ConsWholeNumberSlow(ctx, value - lower, range));
    }
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

int32_t pe_choiceHeadSlow(PerContext* ctx, uint32_t alternative, uint32_t last) {
    PER_TRY(pe_bit(ctx, 0));
    if (alternative - 1U > last) { // an index of no bits would hide it
        return fail(ctx, PER_RANGE);
    }
    return pe_ConsUnsigned(ctx, alternative - 1U, 0, last);
}

int32_t pe_UnconsInteger(PerContext* ctx, int32_t value) {
    (void)pu_newField(ctx, "UnconsInteger");
    PER_TRY(pe_Length(ctx, static_cast<uint32_t>(pe_GetIntLen(value))));
    PER_TRY(alignIfAligned(ctx));
    PER_TRY(pe_2sCompBinInteger(ctx, value));
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// ---- writing: bit and octet strings, open types --------------------------------------------

int32_t pu_stringNeedsAlignment(const SizeConstraint* chain, uint32_t count, uint8_t isBitString,
                                uint8_t* needed) {
    *needed = 1;
    if (chain == nullptr || count > (isBitString != 0 ? 16U : 2U)) {
        return PER_OK;
    }
    if (chain->next == nullptr && chain->extended != 0 && chain->lower == chain->upper) {
        *needed = 0;
        return PER_OK;
    }
    const SizeConstraint* range = findRange(chain, count);
    if (range == nullptr) {
        return PER_DOES_NOT_FIT;
    }
    *needed = range->lower == range->upper && range->extended == 0 ? 0 : 1;
    return PER_OK;
}

namespace {

// What tells a BIT STRING, an OCTET STRING and an open type apart.
struct StringKind {
    const char* writeLabel;
    const char* readLabel;
    uint32_t bitsPerItem;
    bool alwaysAligned;
};
constexpr StringKind BIT_STRING = {"BitString", "bits", 1, false};
constexpr StringKind OCTET_STRING = {"OctetString", "octets", 8, false};
constexpr StringKind OPEN_TYPE = {"OpenType", "octets", 8, true};

int32_t stringAlignment(PerContext* ctx, const StringKind& kind, const SizeConstraint* chain,
                        uint32_t count, uint8_t* needed) {
    *needed = 0;
    if (ctx->aligned == 0) {
        return PER_OK;
    }
    if (kind.alwaysAligned) {
        *needed = 1;
        return PER_OK;
    }
    PER_TRY(pu_stringNeedsAlignment(chain, count, kind.bitsPerItem == 1, needed));
    return PER_OK;
}

int32_t putString(PerContext* ctx, const StringKind& kind, uint32_t count, const uint8_t* data) {
    const SizeConstraint* chain = ctx->sizeConstraint;
    const SizeConstraint* range = findRange(chain, count);
    bool fragmented = count >= 16384 && (range == nullptr || range->upper >= 65536);
    int32_t covered = pe_Length(ctx, count);
    while (true) {
        PER_TRY(covered);
        (void)pu_newField(ctx, kind.writeLabel);
        const auto items = static_cast<uint32_t>(covered);
        if (items > 0) {
            uint8_t align = 0;
            PER_TRY(stringAlignment(ctx, kind, chain, count, &align));
            if (align != 0) {
                PER_TRY(pe_byteAlign(ctx));
            }
            PER_TRY(pe_bitData(ctx, data, items * kind.bitsPerItem));
        }
        pu_setFieldBitCount(ctx);
        if (!fragmented) {
            return PER_OK;
        }
        // A length always follows a fragment, a zero one when no items are left.
        data += items * kind.bitsPerItem / 8;
        count -= items;
        fragmented = count >= 16384;
        covered = pe_Length(ctx, count);
    }
}

// Length and contents in whole octets when nothing constrains or splits them. False, and nothing
// done, when the exact way must be taken.
PER_INLINE bool putRun(PerContext* ctx, const uint8_t* data, uint32_t octets) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (octets - 1U >= 16383U || index + 2 + octets >= ctx->fastSize ||
        ctx->sizeConstraint != nullptr) [[unlikely]] {
        return false;
    }
    uint8_t* place = ctx->buffer + index;
    if (octets >= 128) {
        *place++ = static_cast<uint8_t>(0x80U | octets >> 8);
    }
    *place++ = static_cast<uint8_t>(octets);
    std::memmove(place, data, octets);
    place += octets;
    *place = 0;
    pu_setOctet(ctx, static_cast<uint64_t>(place - ctx->buffer));
    return true;
}

} // namespace

int32_t pe_BitString(PerContext* ctx, uint32_t bitCount, const uint8_t* data) {
    return putString(ctx, BIT_STRING, bitCount, data);
}

int32_t pe_OctetString(PerContext* ctx, uint32_t octets, const uint8_t* data) {
    return putRun(ctx, data, octets) ? PER_OK : putString(ctx, OCTET_STRING, octets, data);
}

int32_t pe_OpenType(PerContext* ctx, uint32_t octets, const uint8_t* data) {
    static constexpr uint8_t EMPTY = 0;
    if (putRun(ctx, data, octets)) [[likely]] {
        return PER_OK;
    }
    return octets == 0 ? putString(ctx, OPEN_TYPE, 1, &EMPTY)
                       : putString(ctx, OPEN_TYPE, octets, data);
}

int32_t pe_BitStringSized(PerContext* ctx, uint32_t bitCount, const uint8_t* data, uint32_t lower,
                          uint32_t upper) {
    const SizeConstraint range = {0, lower, upper, nullptr};
    PER_TRY(pu_addSizeConstraint(ctx, &range));
    return dropRange(ctx, pe_BitString(ctx, bitCount, data));
}

// The exact way, for every bound and state.
[[gnu::noinline]] static int32_t putOctetsSized(PerContext* ctx, uint32_t octets,
                                                const uint8_t* data, uint32_t lower,
                                                uint32_t upper) {
    const bool packed = lower == upper && upper <= 2;
    if (upper >= 65536 || octets == 0 || packed || ctx->fastSize == 0 ||
        ctx->sizeConstraint != nullptr) {
        const SizeConstraint range = {0, lower, upper, nullptr};
        PER_TRY(pu_addSizeConstraint(ctx, &range));
        return dropRange(ctx, pe_OctetString(ctx, octets, data));
    }
    PER_TRY(pe_LengthSized(ctx, octets, lower, upper));
    if (putOctets(ctx, data, octets)) [[likely]] {
        return PER_OK;
    }
    PER_TRY(pe_byteAlign(ctx));
    return pe_bitData(ctx, data, octets * 8);
}

int32_t pe_OctetStringSized(PerContext* ctx, uint32_t octets, const uint8_t* data, uint32_t lower,
                            uint32_t upper) {
    // Of one size above 2: no length. A range of 256 sizes: one octet of length.
    const uint32_t span = upper - lower;
    const uint64_t index = pu_alignedIndex(ctx) + (span != 0 ? 1U : 0U);
    if ((span != 0 && span != 255) || upper >= 65536 || upper <= 2 || octets - lower > span ||
        octets == 0 || index + octets >= ctx->fastSize || ctx->sizeConstraint != nullptr)
        [[unlikely]] {
        return putOctetsSized(ctx, octets, data, lower, upper);
    }
    uint8_t* place = ctx->buffer + index;
    if (span != 0) {
        place[-1] = static_cast<uint8_t>(octets - lower);
    }
    pu_setOctet(ctx, index + octets);
    place[octets] = 0;
    std::memmove(place, data, octets);
    return PER_OK;
}

// ---- reading: bits -------------------------------------------------------------------------

int32_t pd_IncrBitIdx(PerContext* ctx) {
    uint64_t index = ctx->byteIndex;
    int offset = ctx->bitOffset - 1;
    if (offset < 0) {
        ++index;
        offset = 7;
    }
    if (index >= ctx->size) {
        // Stands behind the end, or stays where it already was beyond.
        if (index <= UINT32_MAX) {
            pu_setOctet(ctx, index);
        }
        return fail(ctx, PER_OVERFLOW);
    }
    ctx->byteIndex = static_cast<uint32_t>(index);
    ctx->bitOffset = static_cast<int16_t>(offset);
    rtTrace("pd_IncrBitIdx: bitOffset = %d, byteIndex = %d", offset,
            static_cast<int>(ctx->byteIndex));
    return PER_OK;
}

int32_t pd_bitSlow(PerContext* ctx, uint8_t* bit) {
    PER_TRY(pd_IncrBitIdx(ctx));
    const auto value = static_cast<uint8_t>(ctx->buffer[ctx->byteIndex] >> ctx->bitOffset & 1);
    if (bit != nullptr) {
        *bit = value;
    }
    rtTrace("pd_bit: value = %d\n", static_cast<int>(value));
    return PER_OK;
}

int32_t pd_bitRunSlow(PerContext* ctx, uint32_t* bits, uint32_t count) {
    *bits = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t bit = 0;
        PER_TRY(pd_bitSlow(ctx, &bit));
        if (i < 32) {
            *bits |= uint32_t{bit} << i;
        }
    }
    return PER_OK;
}

int32_t pd_bitsSlow(PerContext* ctx, uint32_t* value, uint32_t count) {
    rtTrace("pd_bits: nbits = %d, nbytes = %d\n", static_cast<int>(count),
            static_cast<int>((count + 7) / 8));
    *value = 0;
    if (count == 0) {
        return PER_OK;
    }
    if (count > 32) {
        return fail(ctx, PER_RANGE);
    }
    if (!hasBits(ctx, count)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    auto unread = static_cast<uint32_t>(ctx->bitOffset);
    uint32_t index = ctx->byteIndex;
    uint32_t result = unread == 0 ? 0 : ctx->buffer[index] & ((1U << unread) - 1U);
    uint32_t remaining = count;
    if (remaining <= unread) {
        result >>= unread - remaining;
        unread -= remaining;
        remaining = 0;
        if (unread == 0) {
            ++index;
            unread = 8;
        }
    } else {
        remaining -= unread;
    }
    while (remaining > 0) {
        ++index;
        const uint32_t taken = remaining < 8 ? remaining : 8;
        unread = 8 - taken;
        result = result << taken | static_cast<uint32_t>(ctx->buffer[index]) >> unread;
        remaining -= taken;
        rtTrace("pd_bits: mask = %x, data[index] = %x\n", (1U << taken) - 1U,
                static_cast<unsigned>(ctx->buffer[index]));
    }
    ctx->byteIndex = index;
    ctx->bitOffset = static_cast<int16_t>(unread);
    *value = result;
    return PER_OK;
}

int32_t pd_bitsWord(PerContext* ctx, uint32_t* value, uint32_t count) {
    const auto unread = static_cast<uint32_t>(ctx->bitOffset);
    if (uint64_t{ctx->byteIndex} + 8 <= ctx->fastSize && count - 1U < 32U) [[likely]] {
        const uint64_t word = pu_load64(ctx->buffer + ctx->byteIndex) << (8U - unread);
        *value = static_cast<uint32_t>(word >> (64U - count));
        const uint32_t stay = count != unread ? 1U : 0U; // as below
        const uint32_t end = 8U - unread + count - stay;
        ctx->byteIndex += end >> 3;
        ctx->bitOffset = static_cast<int16_t>(8U - stay - (end & 7U));
        return PER_OK;
    }
    const uint64_t position = pu_bitPosition(ctx);
    if (position + count > uint64_t{ctx->fastSize} * 8 || ctx->fastSize < 8 || count - 1U >= 32U)
        [[unlikely]] {
        return pd_bitsSlow(ctx, value, count);
    }
    *value = pu_peekBits(ctx, position, count);
    // Bits that end with their first octet move on to the next one; a later octet is left full.
    const uint32_t stay = count != static_cast<uint32_t>(ctx->bitOffset) ? 1U : 0U;
    const uint64_t end = position + count - stay;
    ctx->byteIndex = static_cast<uint32_t>(end >> 3);
    ctx->bitOffset = static_cast<int16_t>(8U - stay - (end & 7U));
    return PER_OK;
}

// Up to 8 bits of which the last lies in the octet behind the cursor's. False, and nothing done,
// when there is none or the exact way must be taken.
PER_INLINE static bool takeCrossing(PerContext* ctx, uint32_t* value, uint32_t count) {
    const uint32_t index = ctx->byteIndex;
    const int rest = ctx->bitOffset - static_cast<int>(count);
    if (rest >= 0 || uint64_t{index} + 1 >= ctx->fastSize) [[unlikely]] {
        return false;
    }
    *value = pu_load16(ctx->buffer + index) >> (8 + rest) & ((1U << count) - 1U);
    ctx->byteIndex = index + 1;
    ctx->bitOffset = static_cast<int16_t>(8 + rest);
    return true;
}

// More than 8 bits, from one load, or what ends with the buffer.
[[gnu::noinline]] static int32_t pd_longBitRun(PerContext* ctx, uint32_t* bits, uint32_t count) {
    const uint64_t position = pu_bitPosition(ctx);
    if (position + count > uint64_t{ctx->fastSize} * 8 || ctx->fastSize < 8 || count - 1U >= 32U)
        [[unlikely]] {
        return pd_bitRunSlow(ctx, bits, count);
    }
    *bits = pu_reverseBits(pu_peekBits(ctx, position, count), count);
    const uint64_t last = position + count - 1;
    ctx->byteIndex = static_cast<uint32_t>(last >> 3);
    ctx->bitOffset = static_cast<int16_t>(7U - (last & 7U));
    return PER_OK;
}

int32_t pd_bitRunWord(PerContext* ctx, uint32_t* bits, uint32_t count) {
    uint32_t value = 0;
    if (count > 8 || !takeCrossing(ctx, &value, count)) [[unlikely]] {
        return pd_longBitRun(ctx, bits, count);
    }
    *bits = pu_reverseBits(value, count);
    return PER_OK;
}

namespace {

// Reads bits that are known to be there into as many octets as they need.
void readBits(PerContext* ctx, uint8_t* data, uint32_t bitCount) {
    const uint32_t shift = static_cast<uint32_t>(pu_bitPosition(ctx) & 7U);
    const uint64_t first = pu_bitPosition(ctx) >> 3;
    const uint32_t octets = bitCount / 8 + (bitCount % 8 != 0 ? 1 : 0);
    for (uint32_t i = 0; i < octets; ++i) {
        const uint64_t index = first + i;
        const uint32_t high = uint32_t{ctx->buffer[index]} << shift;
        const uint32_t low = index + 1 < ctx->size ? ctx->buffer[index + 1] : 0U;
        data[i] = static_cast<uint8_t>(high | low >> (8U - shift));
    }
    const uint64_t last = pu_bitPosition(ctx) + bitCount - 1;
    ctx->byteIndex = static_cast<uint32_t>(last >> 3);
    ctx->bitOffset = static_cast<int16_t>(7U - (last & 7U));
}

// pd_octets, or only the same move of the cursor when `data` is null.
int32_t readOctets(PerContext* ctx, uint8_t* data, uint64_t capacity, uint32_t bitCount) {
    if (bitCount == 0) {
        return PER_OK;
    }
    if (!hasBits(ctx, bitCount)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    const uint32_t octets = bitCount / 8 + (bitCount % 8 != 0 ? 1 : 0);
    if (octets > capacity) {
        return fail(ctx, PER_DOES_NOT_FIT);
    }
    const bool onBoundary = ctx->bitOffset == 8 || ctx->bitOffset == 0;
    if (data == nullptr || onBoundary) {
        const uint64_t position = pu_bitPosition(ctx);
        if (data != nullptr) {
            const uint8_t* source = ctx->buffer + position / 8;
            std::memcpy(data, source, octets);
            if (ctx->recordSpans != 0 && bitCount >= 8) {
                pu_addSpan(ctx, data, source, bitCount / 8);
            }
        }
        pu_setBitPosition(ctx, position + bitCount);
    } else {
        readBits(ctx, data, bitCount);
    }
    if (data != nullptr && bitCount % 8 != 0) {
        data[octets - 1] = static_cast<uint8_t>(data[octets - 1] & 0xFF00U >> (bitCount % 8));
    }
    return PER_OK;
}

} // namespace

int32_t pd_octets(PerContext* ctx, uint8_t* data, uint32_t capacity, uint32_t bitCount) {
    return readOctets(ctx, data, capacity, bitCount);
}

int32_t pd_byteAlignSlow(PerContext* ctx) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (index <= UINT32_MAX) {
        pu_setOctet(ctx, index);
    }
    if (index >= ctx->size) {
        return fail(ctx, PER_OVERFLOW);
    }
    pu_setFieldBitOffset(ctx);
    return PER_OK;
}

int32_t pd_moveBitCursor(PerContext* ctx, int32_t bitCount) {
    const auto position = static_cast<int64_t>(pu_bitPosition(ctx));
    rtTrace("pd_moveBitCursor: bitOffset = %d\n", static_cast<int>(position));
    rtTrace("context before move: bitOffset = %d, byteIndex = %d", static_cast<int>(ctx->bitOffset),
            static_cast<int>(ctx->byteIndex));
    const int64_t moved = position + bitCount;
    if (moved < 0) {
        return fail(ctx, PER_OVERFLOW);
    }
    pu_setBitPosition(ctx, static_cast<uint64_t>(moved));
    rtTrace("context after move: bitOffset = %d, byteIndex = %d", static_cast<int>(ctx->bitOffset),
            static_cast<int>(ctx->byteIndex));
    return ctx->byteIndex > ctx->size ? fail(ctx, PER_OVERFLOW) : PER_OK;
}

// ---- reading: whole numbers and lengths ----------------------------------------------------

namespace {

int32_t alignToRead(PerContext* ctx) {
    return ctx->aligned != 0 ? pd_byteAlign(ctx) : PER_OK;
}

} // namespace

int32_t pd_ConsWholeNumberSlow(PerContext* ctx, uint32_t* value, uint32_t range) {
    if (ctx->aligned == 0 || range <= 255) {
        return pd_bits(ctx, value, pu_bitcount(range - 1));
    }
    if (range <= 65536) {
        PER_TRY(pd_byteAlign(ctx));
        return pd_bits(ctx, value, range == 256 ? 8 : 16);
    }
    uint32_t octets = 0;
    PER_TRY(pd_bits(ctx, &octets, 2));
    PER_TRY(pd_byteAlign(ctx));
    return pd_bits(ctx, value, (octets + 1) * 8);
}

int32_t pd_SmallNonNegWholeNumberSlow(PerContext* ctx, uint32_t* value) {
    uint8_t isLarge = 0;
    PER_TRY(pd_bit(ctx, &isLarge));
    if (isLarge == 0) {
        return pd_bits(ctx, value, 6);
    }
    uint32_t octets = 0;
    PER_TRY(pd_Length(ctx, &octets));
    PER_TRY(alignToRead(ctx));
    if (!hasBits(ctx, uint64_t{octets} * 8)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    // A number of more than 32 bits counts nothing that a message could hold.
    if (octets > 4) {
        return fail(ctx, PER_DOES_NOT_FIT);
    }
    return pd_bits(ctx, value, octets * 8);
}

namespace {

// A length determinant of one octet, without a constraint. False, and nothing done, when it is
// anything else.
PER_INLINE bool readShortLength(PerContext* ctx, uint32_t* length) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (index >= ctx->fastSize || ctx->buffer[index] >= 0x80) [[unlikely]] {
        return false;
    }
    *length = ctx->buffer[index];
    pu_setOctet(ctx, index + 1);
    return true;
}

// Length determinant without a constraint.
int32_t readUnconsLength(PerContext* ctx, uint32_t* length) {
    if (readShortLength(ctx, length)) {
        return PER_OK;
    }
    PER_TRY(alignToRead(ctx));
    uint8_t bit = 0;
    PER_TRY(pd_bit(ctx, &bit));
    if (bit == 0) {
        return pd_bits(ctx, length, 7);
    }
    PER_TRY(pd_bit(ctx, &bit));
    if (bit == 0) {
        return pd_bits(ctx, length, 14);
    }
    uint32_t multiple = 0;
    PER_TRY(pd_bits(ctx, &multiple, 6));
    *length = multiple * 16384;
    return PER_FRAGMENT;
}

[[gnu::noinline]] int32_t readLength(PerContext* ctx, uint32_t* length) {
    const SizeConstraint* chain = ctx->sizeConstraint;
    ctx->sizeConstraint = nullptr;
    uint8_t extended = 0;
    if (isExtensible(chain)) {
        (void)pu_newField(ctx, "length extension");
        PER_TRY(pd_bit(ctx, &extended));
        pu_setFieldBitCount(ctx);
    }
    while (chain != nullptr && chain->extended != extended) {
        chain = chain->next;
    }
    if (chain != nullptr && chain->upper < 65536) {
        uint32_t number = 0;
        if (chain->upper != chain->lower) {
            (void)pu_newField(ctx, "length");
            PER_TRY(pd_ConsWholeNumber(ctx, &number, chain->upper - chain->lower + 1));
            pu_setFieldBitCount(ctx);
        }
        *length = chain->lower + number;
        return PER_OK;
    }
    (void)pu_newField(ctx, "length");
    const int32_t status = readUnconsLength(ctx, length);
    PER_TRY(status);
    pu_setFieldBitCount(ctx);
    return status;
}

} // namespace

int32_t pd_Length(PerContext* ctx, uint32_t* length) {
    if (ctx->sizeConstraint == nullptr && readShortLength(ctx, length)) [[likely]] {
        return PER_OK;
    }
    return readLength(ctx, length);
}

int32_t pd_LengthSizedSlow(PerContext* ctx, uint32_t* length, uint32_t lower, uint32_t upper) {
    const SizeConstraint range = {0, lower, upper, nullptr};
    PER_TRY(pu_addSizeConstraint(ctx, &range));
    return dropRange(ctx, pd_Length(ctx, length));
}

int32_t pd_totalLength(PerContext* ctx, uint32_t bitsPerItem) {
    PerContext ahead = {};
    pu_copyBufferState(&ahead, ctx);
    ahead.flags = 0;
    ahead.sizeConstraint = ctx->sizeConstraint;
    uint64_t total = 0;
    while (true) {
        uint32_t length = 0;
        const int32_t status = pd_Length(&ahead, &length);
        PER_TRY(status);
        total += length;
        if (total > INT32_MAX) {
            return fail(ctx, PER_NO_MEMORY);
        }
        if (status != PER_FRAGMENT) {
            return static_cast<int32_t>(total);
        }
        PER_TRY(pd_moveBitCursor(&ahead, static_cast<int32_t>(length * bitsPerItem)));
    }
}

int32_t pd_ConsIntegerWord(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper) {
    if (ctx->fastSize == 0) [[unlikely]] {
        return pd_ConsIntegerSlow(ctx, value, lower, upper);
    }
    const auto base = static_cast<uint32_t>(lower);
    uint32_t number = 0;
    PER_TRY(pd_bitsWord(ctx, &number, pu_bitcount(static_cast<uint32_t>(upper) - base)));
    *value = static_cast<int32_t>(base + number);
    return PER_OK;
}

int32_t pd_ConsIntegerSlow(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper) {
    (void)pu_newField(ctx, "ConsInteger");
    if (lower > upper) {
        return fail(ctx, PER_RANGE);
    }
    const auto base = static_cast<uint32_t>(lower);
    uint32_t number = 0;
    if (lower != upper) {
        PER_TRY(pd_ConsWholeNumberSlow(ctx, &number, static_cast<uint32_t>(upper) - base + 1));
    }
    *value = static_cast<int32_t>(base + number);
    pu_setFieldBitCount(ctx);
    rtTrace("pd_ConsInteger: decoded value is %d\n", *value);
    return PER_OK;
}

int32_t pd_ConsUnsignedWord(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper) {
    if (ctx->fastSize == 0) [[unlikely]] {
        return pd_ConsUnsignedSlow(ctx, value, lower, upper);
    }
    uint32_t number = 0;
    PER_TRY(pd_bitsWord(ctx, &number, pu_bitcount(upper - lower)));
    *value = lower + number;
    return PER_OK;
}

int32_t pd_ConsUnsignedSlow(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper) {
    (void)pu_newField(ctx, "ConsUnsigned");
    uint32_t number = 0;
    if (lower != upper) {
        const uint32_t range = lower == 0 && upper == UINT32_MAX ? UINT32_MAX : upper - lower + 1;
        PER_TRY(pd_ConsWholeNumberSlow(ctx, &number, range));
    }
    *value = lower + number;
    pu_setFieldBitCount(ctx);
    rtTrace("pd_ConsUnsigned: decoded value is %d\n", static_cast<int>(*value));
    return PER_OK;
}

[[gnu::noinline]] static int32_t readChoiceHead(PerContext* ctx, uint32_t* index, uint32_t last) {
    uint8_t extended = 0;
    PER_TRY(pd_bit(ctx, &extended));
    if (extended != 0) {
        *index = PER_EXTENDED;
        return PER_OK;
    }
    return pd_ConsUnsigned(ctx, index, 0, last);
}

int32_t pd_choiceHeadWord(PerContext* ctx, uint32_t* index, uint32_t last) {
    const uint32_t count = pu_bitcount(last);
    const uint32_t at = ctx->byteIndex;
    const int rest = ctx->bitOffset - static_cast<int>(count) - 1;
    if (count >= 8 || rest >= 0 || uint64_t{at} + 1 >= ctx->fastSize) [[unlikely]] {
        return readChoiceHead(ctx, index, last);
    }
    const uint32_t bits = pu_load16(ctx->buffer + at) >> (8 + rest);
    if ((bits >> count & 1U) != 0) [[unlikely]] {
        return readChoiceHead(ctx, index, last);
    }
    *index = bits & ((1U << count) - 1U);
    ctx->byteIndex = at + 1;
    ctx->bitOffset = static_cast<int16_t>(8 + rest);
    return PER_OK;
}

int32_t pd_UnconsInteger(PerContext* ctx, int32_t* value) {
    rtTrace("pd_UnconsInteger: start\n");
    (void)pu_newField(ctx, "UnconsInteger");
    uint32_t octets = 0;
    PER_TRY(pd_Length(ctx, &octets));
    rtTrace("pd_UnconsInteger: nbytes is %d\n", static_cast<int>(octets));
    PER_TRY(alignToRead(ctx));
    if (!hasBits(ctx, uint64_t{octets} * 8)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    if (octets > 0) {
        uint32_t octet = 0;
        PER_TRY(pd_bits(ctx, &octet, 8));
        uint32_t result = octet >= 128 ? octet | 0xFFFFFF00U : octet;
        for (uint32_t i = 1; i < octets; ++i) {
            PER_TRY(pd_bits(ctx, &octet, 8));
            result = result << 8 | octet;
        }
        *value = static_cast<int32_t>(result);
    }
    pu_setFieldBitCount(ctx);
    rtTrace("pd_UnconsInteger: decoded value is %d\n", *value);
    return PER_OK;
}

// ---- reading: bit and octet strings, open types, lists -------------------------------------

namespace {

// Reads a string of one or more fragments into `data`, or steps over it when `data` is null.
// *count receives its items, in all or up to a failure.
int32_t getString(PerContext* ctx, const StringKind& kind, uint32_t* count, uint8_t* data,
                  uint64_t capacity) {
    const SizeConstraint* chain = ctx->sizeConstraint;
    *count = 0;
    while (true) {
        uint32_t length = 0;
        const int32_t status = pd_Length(ctx, &length);
        PER_TRY(status);
        (void)pu_newField(ctx, kind.readLabel);
        if (length > 0) {
            *count += length;
            uint8_t align = 0;
            PER_TRY(stringAlignment(ctx, kind, chain, length, &align));
            if (align != 0) {
                PER_TRY(pd_byteAlign(ctx));
            }
            PER_TRY(readOctets(ctx, data, capacity, length * kind.bitsPerItem));
        }
        pu_setFieldBitCount(ctx);
        if (status != PER_FRAGMENT) {
            return PER_OK;
        }
        const uint32_t octets = length * kind.bitsPerItem / 8;
        data = data != nullptr ? data + octets : nullptr;
        capacity -= octets;
    }
}

// The same into memory from the heap.
int32_t getDynString(PerContext* ctx, const StringKind& kind, uint32_t* count, uint8_t** data) {
    *count = 0;
    *data = nullptr;
    const int32_t total = pd_totalLength(ctx, kind.bitsPerItem);
    if (total < 0) {
        return fail(ctx, dropRange(ctx, total));
    }
    const uint64_t bits = uint64_t{static_cast<uint32_t>(total)} * kind.bitsPerItem;
    if (total == 0 || !hasBits(ctx, bits)) {
        // No memory for a length that the data cannot hold: stepping over it gives its status.
        uint32_t skipped = 0;
        return getString(ctx, kind, &skipped, nullptr, UINT64_MAX);
    }
    const auto octets = static_cast<int32_t>((bits + 7) / 8);
    auto* memory = static_cast<uint8_t*>(rtHeapAlloc(&ctx->heap, octets));
    if (memory == nullptr) {
        uint32_t length = 0;
        PER_TRY(pd_Length(ctx, &length));
        return fail(ctx, PER_NO_MEMORY);
    }
    *data = memory;
    return getString(ctx, kind, count, memory, static_cast<uint64_t>(octets));
}

PER_INLINE bool canViewOpenTypes(const PerContext* ctx) {
    return ctx->fastSize != 0 && ctx->sizeConstraint == nullptr;
}

// The octets of an open type where they stand: true when they are one run of whole octets, with the
// cursor behind them; false with the cursor unchanged when the exact way must be taken. Only where
// open types can be viewed.
PER_INLINE bool viewRun(PerContext* ctx, uint64_t* start, uint32_t* octets) {
    uint64_t index = pu_alignedIndex(ctx);
    if (index + 2 > ctx->size) [[unlikely]] {
        return false;
    }
    uint32_t length = ctx->buffer[index++];
    if (length >= 0x80) [[unlikely]] {
        if (length >= 0xC0) {
            return false;
        }
        length = (length & 0x3FU) << 8 | ctx->buffer[index++];
    }
    if (length == 0 || index + length > ctx->size) [[unlikely]] {
        return false;
    }
    *start = index;
    *octets = length;
    pu_setOctet(ctx, index + length);
    return true;
}

PER_INLINE bool viewOpenType(PerContext* ctx, uint64_t* start, uint32_t* octets) {
    return canViewOpenTypes(ctx) && viewRun(ctx, start, octets);
}

} // namespace

int32_t pd_BitString(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity) {
    return getString(ctx, BIT_STRING, count, data, capacity);
}

int32_t pd_OctetString(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity) {
    return getString(ctx, OCTET_STRING, count, data, capacity);
}

int32_t pd_DynBitString(PerContext* ctx, DynBitString* value) {
    return getDynString(ctx, BIT_STRING, &value->numbits, &value->data);
}

int32_t pd_DynOctetString(PerContext* ctx, DynOctetString* value) {
    uint64_t start = 0;
    uint32_t octets = 0;
    if (viewOpenType(ctx, &start, &octets)) {
        value->numocts = 0;
        value->data = static_cast<uint8_t*>(rtHeapAlloc(&ctx->heap, static_cast<int32_t>(octets)));
        if (value->data == nullptr) {
            return fail(ctx, PER_NO_MEMORY);
        }
        value->numocts = octets;
        std::memcpy(value->data, ctx->buffer + start, octets);
        if (ctx->recordSpans != 0) {
            pu_addSpan(ctx, value->data, ctx->buffer + start, octets);
        }
        return PER_OK;
    }
    return getDynString(ctx, OCTET_STRING, &value->numocts, &value->data);
}

int32_t pd_OpenType(PerContext* ctx, uint8_t** data, uint32_t* octets) {
    DynOctetString value = {};
    const int32_t status = pd_DynOctetString(ctx, &value);
    *data = value.data;
    *octets = value.numocts;
    return status;
}

int32_t pd_skipOpenType(PerContext* ctx) {
    uint64_t start = 0;
    uint32_t octets = 0;
    if (viewOpenType(ctx, &start, &octets)) {
        return PER_OK;
    }
    PER_TRY(pd_totalLength(ctx, 8));
    return getString(ctx, OCTET_STRING, &octets, nullptr, UINT64_MAX);
}

int32_t pd_listTooLong(PerContext* ctx) {
    return fail(ctx, PER_END_OF_DATA);
}

[[gnu::noinline]] static int32_t readListCount(PerContext* ctx, uint32_t* count,
                                               uint32_t minBitsPerItem) {
    const int32_t status = readLength(ctx, count);
    if (status != PER_OK) {
        return fail(ctx, status);
    }
    return hasBits(ctx, uint64_t{*count} * minBitsPerItem) ? PER_OK : pd_listTooLong(ctx);
}

int32_t pd_listCount(PerContext* ctx, uint32_t* count, uint32_t minBitsPerItem) {
    if (ctx->sizeConstraint != nullptr || !readShortLength(ctx, count)) [[unlikely]] {
        return readListCount(ctx, count, minBitsPerItem);
    }
    return hasBits(ctx, uint64_t{*count} * minBitsPerItem) ? PER_OK : pd_listTooLong(ctx);
}

int32_t pd_BitStringSized(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                          uint32_t lower, uint32_t upper) {
    const SizeConstraint range = {0, lower, upper, nullptr};
    PER_TRY(pu_addSizeConstraint(ctx, &range));
    return dropRange(ctx, pd_BitString(ctx, count, data, capacity));
}

int32_t pd_OctetStringSizedSlow(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                                uint32_t lower, uint32_t upper) {
    if (upper >= 65536 || upper <= 2 || ctx->sizeConstraint != nullptr || ctx->fastSize == 0) {
        const SizeConstraint range = {0, lower, upper, nullptr};
        PER_TRY(pu_addSizeConstraint(ctx, &range));
        return dropRange(ctx, pd_OctetString(ctx, count, data, capacity));
    }
    uint32_t octets = 0;
    const int32_t status = pd_LengthSized(ctx, &octets, lower, upper);
    *count = octets;
    if (status != PER_OK || octets == 0) {
        return status;
    }
    PER_TRY(pd_byteAlign(ctx));
    return readOctets(ctx, data, capacity, octets * 8);
}

// ---- strings: alphabets --------------------------------------------------------------------

namespace {

// Codes 0x00 to 0x87 and 0x90 to 0xFF.
struct GeneralSet {
    uint8_t codes[248];
    constexpr GeneralSet() : codes() {
        for (uint32_t i = 0; i < 248; ++i) {
            codes[i] = static_cast<uint8_t>(i < 0x88 ? i : i + 8);
        }
    }
};
constexpr GeneralSet GENERAL_SET = {};
constexpr char NUMERIC_SET[] = " 0123456789";
constexpr char PRINTABLE_SET[] = " '()+,-./0123456789:=?ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                 "abcdefghijklmnopqrstuvwxyz";

struct TextSet {
    uint8_t codes[sizeof PRINTABLE_SET];
    constexpr explicit TextSet(const char* text) : codes() {
        for (uint32_t i = 0; text[i] != 0; ++i) {
            codes[i] = static_cast<uint8_t>(text[i]);
        }
    }
};
constexpr TextSet NUMERIC_CODES(NUMERIC_SET);
constexpr TextSet PRINTABLE_CODES(PRINTABLE_SET);

// Without a FROM constraint the effective alphabet is the canonical set as a text: empty for the
// two sets that begin with code 0, which are written by code.
constexpr PermittedAlphabet wholeAlphabet(const uint8_t* codes, uint32_t size, uint32_t unaligned,
                                          uint32_t aligned) {
    PermittedAlphabet alphabet = {};
    alphabet.canonicalSet = codes;
    alphabet.canonicalSize = size;
    alphabet.canonicalBits = pu_bitcount(size);
    alphabet.unalignedBits = unaligned;
    alphabet.alignedBits = aligned;
    if (codes[0] != 0) {
        alphabet.count = size;
        for (uint32_t i = 0; i < size; ++i) {
            alphabet.chars[i] = codes[i];
        }
    }
    return alphabet;
}
constexpr PermittedAlphabet NUMERIC = wholeAlphabet(NUMERIC_CODES.codes, 11, 4, 4);
constexpr PermittedAlphabet PRINTABLE = wholeAlphabet(PRINTABLE_CODES.codes, 74, 7, 8);
constexpr PermittedAlphabet IA5 = wholeAlphabet(PER_IA5_SET.codes, 96, 7, 8);
constexpr PermittedAlphabet GENERAL = wholeAlphabet(GENERAL_SET.codes, 248, 7, 8);

bool isWrittenByIndex(const PermittedAlphabet* alphabet, uint32_t bits) {
    return bits < alphabet->canonicalBits || alphabet->canonicalBits <= 4;
}

// The alphabets of dialled digits and of user-input signals, which nearly every FROM constraint of
// H.225.0 and H.245 names, are not worked out for each string.
struct KnownAlphabet {
    const char* from;
    PermittedAlphabet alphabet;
};
constexpr const char* DIGITS = "0123456789#*,";
constexpr const char* SIGNALS = "0123456789#*ABCD!";
constexpr KnownAlphabet KNOWN_ALPHABETS[] = {{DIGITS, pu_ia5Alphabet(DIGITS)},
                                             {SIGNALS, pu_ia5Alphabet(SIGNALS)}};

// The effective alphabet of a type under a FROM constraint, worked out in `room` if need be.
const PermittedAlphabet* effectiveAlphabet(const PermittedAlphabet& whole, const char* from,
                                           PermittedAlphabet* room) {
    if (from == nullptr) {
        return &whole;
    }
    if (&whole == &IA5) {
        for (const KnownAlphabet& known : KNOWN_ALPHABETS) {
            if (std::strcmp(known.from, from) == 0) {
                return &known.alphabet;
            }
        }
    }
    *room = whole;
    pu_setPermittedAlphabet(room, from);
    return room;
}

// The SIZE range of a Sized entry; the entries without one take what is pending.
struct SizeBounds {
    uint32_t lower;
    uint32_t upper;
};

PER_INLINE int32_t putSize(PerContext* ctx, uint32_t length, const SizeBounds* bounds) {
    return bounds == nullptr ? pe_Length(ctx, length)
                             : pe_LengthSized(ctx, length, bounds->lower, bounds->upper);
}

PER_INLINE int32_t getSize(PerContext* ctx, uint32_t* length, const SizeBounds* bounds) {
    return bounds == nullptr ? pd_Length(ctx, length)
                             : pd_LengthSized(ctx, length, bounds->lower, bounds->upper);
}

// ---- strings: 8-bit characters -------------------------------------------------------------

// Index of a character, or the alphabet's count when it is not in it. Characters that follow each
// other mostly do so in the alphabet: *distance, from index to code, is that of the one before.
PER_INLINE uint32_t indexOf(const PermittedAlphabet* alphabet, uint32_t code, uint32_t* distance) {
    const uint32_t guess = code - *distance;
    if (guess < alphabet->count && alphabet->chars[guess] == code) [[likely]] {
        return guess;
    }
    const void* found = std::memchr(alphabet->chars, static_cast<int>(code), alphabet->count);
    if (found == nullptr) {
        return alphabet->count;
    }
    const auto index = static_cast<uint32_t>(static_cast<const uint8_t*>(found) - alphabet->chars);
    *distance = code - index;
    return index;
}

bool permitsAll(const PermittedAlphabet* alphabet, const char* text, size_t length) {
    uint32_t distance = 0;
    for (size_t i = 0; i < length; ++i) {
        if (indexOf(alphabet, static_cast<uint8_t>(text[i]), &distance) == alphabet->count) {
            return false;
        }
    }
    return true;
}

// Characters that lie two in an octet, up to one outside the alphabet or a last half octet. Returns
// their number.
uint32_t getPairs(PerContext* ctx, char* text, uint32_t count, const PermittedAlphabet* alphabet) {
    const uint8_t* octets = ctx->buffer + ctx->byteIndex;
    uint32_t i = 0;
    for (; i + 1 < count; i += 2, ++octets) {
        const uint32_t high = *octets >> 4;
        const uint32_t low = *octets & 0xFU;
        if (high >= alphabet->count || low >= alphabet->count) {
            break;
        }
        text[i] = static_cast<char>(alphabet->chars[high]);
        text[i + 1] = static_cast<char>(alphabet->chars[low]);
    }
    ctx->byteIndex += i / 2;
    return i;
}

// The way back, for which there is room.
uint32_t putPairs(PerContext* ctx, const char* text, uint32_t count,
                  const PermittedAlphabet* alphabet) {
    uint8_t* octets = ctx->buffer + ctx->byteIndex;
    uint32_t distance = 0;
    uint32_t i = 0;
    for (; i + 1 < count; i += 2, ++octets) {
        const uint32_t high = indexOf(alphabet, static_cast<uint8_t>(text[i]), &distance);
        const uint32_t low = indexOf(alphabet, static_cast<uint8_t>(text[i + 1]), &distance);
        if (high >= alphabet->count || low >= alphabet->count) {
            break;
        }
        *octets = static_cast<uint8_t>(high << 4 | low);
    }
    *octets = 0;
    ctx->byteIndex += i / 2;
    return i;
}

int32_t getCharacters(PerContext* ctx, char* text, uint32_t count,
                      const PermittedAlphabet* alphabet, uint32_t bits) {
    const bool byIndex = isWrittenByIndex(alphabet, bits);
    if (!byIndex && bits == 8) {
        return readOctets(ctx, reinterpret_cast<uint8_t*>(text), count, count * 8);
    }
    uint32_t begun = 0;
    if (byIndex && bits == 4 && ctx->bitOffset == 8 && ctx->fastSize != 0) {
        begun = getPairs(ctx, text, count, alphabet);
    }
    for (uint32_t i = begun; i < count; ++i) {
        uint32_t code = 0;
        PER_TRY(pd_bits(ctx, &code, bits));
        if (byIndex) {
            if (code >= alphabet->count) {
                return fail(ctx, PER_CONSTRAINT);
            }
            code = alphabet->chars[code];
        }
        text[i] = static_cast<char>(code);
    }
    return PER_OK;
}

// Whether every character must be in the alphabet even if it is written by its code.
enum class Checked : uint8_t { IfByIndex, Always };

int32_t putText(PerContext* ctx, const char* value, const PermittedAlphabet* alphabet,
                Checked checked, const SizeBounds* bounds) {
    const size_t length = std::strlen(value);
    if (length > INT32_MAX) {
        return fail(ctx, PER_OVERFLOW);
    }
    const uint32_t bits = ctx->aligned != 0 ? alphabet->alignedBits : alphabet->unalignedBits;
    PER_TRY(putSize(ctx, static_cast<uint32_t>(length), bounds));
    PER_TRY(alignIfAligned(ctx));
    (void)pu_newField(ctx, "data");
    const bool byIndex = isWrittenByIndex(alphabet, bits);
    if (!byIndex && checked == Checked::Always && !permitsAll(alphabet, value, length)) {
        return fail(ctx, PER_DOES_NOT_FIT);
    }
    if (!byIndex && bits == 8 && length < INT32_MAX / 8) {
        PER_TRY(pe_bitData(ctx, reinterpret_cast<const uint8_t*>(value),
                           static_cast<uint32_t>(length) * 8));
        pu_setFieldBitCount(ctx);
        return PER_OK;
    }
    size_t begun = 0;
    if (byIndex && bits == 4 && ctx->bitOffset == 8 && hasBits(ctx, uint64_t{length} * 4 + 8)) {
        begun = putPairs(ctx, value, static_cast<uint32_t>(length), alphabet);
    }
    uint32_t distance = 0;
    for (size_t i = begun; i < length; ++i) {
        uint32_t code = static_cast<uint8_t>(value[i]);
        if (byIndex) {
            code = indexOf(alphabet, code, &distance);
            if (code >= alphabet->count) {
                return fail(ctx, PER_DOES_NOT_FIT);
            }
        }
        PER_TRY(pe_bits(ctx, code, bits));
    }
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

int32_t getText(PerContext* ctx, const char** value, const PermittedAlphabet* alphabet,
                const SizeBounds* bounds) {
    const uint32_t bits = ctx->aligned != 0 ? alphabet->alignedBits : alphabet->unalignedBits;
    uint32_t length = 0;
    PER_TRY(getSize(ctx, &length, bounds));
    PER_TRY(alignToRead(ctx));
    if (!hasBits(ctx, uint64_t{length} * bits)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    auto* text = static_cast<char*>(rtHeapAllocArray(&ctx->heap, length + 1, 1));
    if (text == nullptr) {
        return fail(ctx, PER_NO_MEMORY);
    }
    (void)pu_newField(ctx, "data");
    PER_TRY(getCharacters(ctx, text, length, alphabet, bits));
    pu_setFieldBitCount(ctx);
    text[length] = 0;
    *value = text;
    return PER_OK;
}

int32_t putType(PerContext* ctx, const char* value, const char* from,
                const PermittedAlphabet& whole, const SizeBounds* bounds) {
    PermittedAlphabet room;
    const Checked checked = from != nullptr ? Checked::Always : Checked::IfByIndex;
    return putText(ctx, value, effectiveAlphabet(whole, from, &room), checked, bounds);
}

// An alphabet without characters is that of a type written by code.
Checked checkedBy(const PermittedAlphabet* alphabet) {
    const bool narrowed = alphabet->count != 0 && alphabet->count < alphabet->canonicalSize;
    return narrowed ? Checked::Always : Checked::IfByIndex;
}

int32_t getType(PerContext* ctx, const char** value, const char* from,
                const PermittedAlphabet& whole, const SizeBounds* bounds) {
    PermittedAlphabet room;
    return getText(ctx, value, effectiveAlphabet(whole, from, &room), bounds);
}

} // namespace

int32_t pe_ConstrainedString(PerContext* ctx, const char* value,
                             const PermittedAlphabet* alphabet) {
    return putText(ctx, value, alphabet, checkedBy(alphabet), nullptr);
}

int32_t pd_ConstrainedString(PerContext* ctx, const char** value,
                             const PermittedAlphabet* alphabet) {
    return getText(ctx, value, alphabet, nullptr);
}

int32_t pe_ConstrainedStringSized(PerContext* ctx, const char* value,
                                  const PermittedAlphabet* alphabet, uint32_t lower,
                                  uint32_t upper) {
    const SizeBounds bounds = {lower, upper};
    return putText(ctx, value, alphabet, checkedBy(alphabet), &bounds);
}

int32_t pd_ConstrainedStringSized(PerContext* ctx, const char** value,
                                  const PermittedAlphabet* alphabet, uint32_t lower,
                                  uint32_t upper) {
    const SizeBounds bounds = {lower, upper};
    return getText(ctx, value, alphabet, &bounds);
}

// Four entries for each type: with the pending constraint, and with a range.
#define PER_STRING_TYPE(Type, WHOLE)                                                               \
    int32_t pe_##Type(PerContext* ctx, const char* value, const char* from) {                      \
        return putType(ctx, value, from, WHOLE, nullptr);                                          \
    }                                                                                              \
    int32_t pd_##Type(PerContext* ctx, const char** value, const char* from) {                     \
        return getType(ctx, value, from, WHOLE, nullptr);                                          \
    }                                                                                              \
    int32_t pe_##Type##Sized(PerContext* ctx, const char* value, const char* from, uint32_t lower, \
                             uint32_t upper) {                                                     \
        const SizeBounds bounds = {lower, upper};                                                  \
        return putType(ctx, value, from, WHOLE, &bounds);                                          \
    }                                                                                              \
    int32_t pd_##Type##Sized(PerContext* ctx, const char** value, const char* from,                \
                             uint32_t lower, uint32_t upper) {                                     \
        const SizeBounds bounds = {lower, upper};                                                  \
        return getType(ctx, value, from, WHOLE, &bounds);                                          \
    }
PER_STRING_TYPE(NumericString, NUMERIC)
PER_STRING_TYPE(PrintableString, PRINTABLE)
PER_STRING_TYPE(IA5String, IA5)
PER_STRING_TYPE(GeneralString, GENERAL)
#undef PER_STRING_TYPE

// ---- strings: 16-bit characters ------------------------------------------------------------

void pu_init16BitAlphabet(PermittedAlphabet16* alphabet) {
    *alphabet = {0, nullptr, 0, 0xFFFF, 16, 16};
}

int32_t pu_set16BitAlphabet(PerContext* ctx, PermittedAlphabet16* alphabet,
                            const PermittedCharacters16* from) {
    if (from->count != 0 && from->chars != nullptr) {
        auto* list =
            static_cast<uint16_t*>(rtHeapAllocArray(&ctx->heap, from->count, sizeof(uint16_t)));
        if (list == nullptr) {
            return fail(ctx, PER_NO_MEMORY);
        }
        std::memcpy(list, from->chars, from->count * sizeof(uint16_t));
        alphabet->count = from->count;
        alphabet->chars = list;
    } else {
        alphabet->first = from->first;
        alphabet->last = from->last;
        alphabet->count = static_cast<uint32_t>(from->last - from->first) + 1;
    }
    alphabet->unalignedBits = pu_bitcount(alphabet->count);
    alphabet->alignedBits = std::bit_ceil(alphabet->unalignedBits);
    return PER_OK;
}

namespace {

// Plain 16-bit codes on an octet boundary: two octets a character.
bool isPlain16(const PerContext* ctx, const PermittedAlphabet16* alphabet, uint32_t bits) {
    return bits == 16 && alphabet->chars == nullptr && alphabet->first == 0 &&
           ctx->bitOffset == 8 && ctx->aligned != 0;
}

// Copies characters from host to network order, or back.
void copyCharacters(void* destination, const void* source, uint32_t count) {
    if constexpr (std::endian::native == std::endian::big) {
        std::memcpy(destination, source, size_t{count} * 2);
        return;
    }
    auto* to = static_cast<uint8_t*>(destination);
    const auto* from = static_cast<const uint8_t*>(source);
    for (; count >= 4; count -= 4, to += 8, from += 8) {
        constexpr uint64_t EVEN = 0x00FF00FF00FF00FFU;
        uint64_t word;
        std::memcpy(&word, from, sizeof word);
        word = (word & EVEN) << 8 | (word >> 8 & EVEN);
        std::memcpy(to, &word, sizeof word);
    }
    for (; count > 0; --count, to += 2, from += 2) {
        const uint8_t first = from[0];
        to[0] = from[1];
        to[1] = first;
    }
}

int32_t putText16(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                  const PermittedAlphabet16* alphabet, const SizeBounds* bounds) {
    const uint32_t bits = ctx->aligned != 0 ? alphabet->alignedBits : alphabet->unalignedBits;
    PER_TRY(putSize(ctx, nchars, bounds));
    PER_TRY(alignIfAligned(ctx));
    (void)pu_newField(ctx, "data");
    if (isPlain16(ctx, alphabet, bits) && hasBits(ctx, uint64_t{nchars} * 16 + 8)) {
        uint8_t* octets = ctx->buffer + ctx->byteIndex;
        copyCharacters(octets, data, nchars);
        octets[size_t{nchars} * 2] = 0;
        ctx->byteIndex += nchars * 2;
        pu_setFieldBitCount(ctx);
        return PER_OK;
    }
    for (uint32_t i = 0; i < nchars; ++i) {
        uint32_t code = data[i];
        if (alphabet->chars == nullptr) {
            if (code < alphabet->first || code > alphabet->last) {
                return fail(ctx, PER_DOES_NOT_FIT);
            }
            code -= alphabet->first;
        } else {
            uint32_t index = 0;
            while (index < alphabet->count && alphabet->chars[index] != code) {
                ++index;
            }
            if (index == alphabet->count) {
                return fail(ctx, PER_DOES_NOT_FIT);
            }
            code = index;
        }
        PER_TRY(pe_bits(ctx, code, bits));
    }
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// What nearly every alias is: any characters behind a length of one octet. False, and nothing done,
// when it is anything else.
bool getPlainBmp(PerContext* ctx, BMPStringValue* value, uint32_t lower, uint32_t upper) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (upper - lower != 255 || upper >= 65536 || index >= ctx->fastSize ||
        ctx->sizeConstraint != nullptr) {
        return false;
    }
    const uint32_t count = lower + ctx->buffer[index];
    const uint64_t end = index + 1 + uint64_t{count} * 2;
    // No characters are aligned all the same, which the end of the data does not allow.
    if (end > ctx->fastSize || (count == 0 && index + 1 >= ctx->fastSize)) {
        return false;
    }
    auto* chars = static_cast<uint16_t*>(rtHeapAllocArray(&ctx->heap, count, sizeof(uint16_t)));
    if (chars == nullptr) {
        return false;
    }
    copyCharacters(chars, ctx->buffer + index + 1, count);
    pu_setOctet(ctx, end);
    value->nchars = count;
    value->data = chars;
    return true;
}

int32_t getText16(PerContext* ctx, BMPStringValue* value, const PermittedAlphabet16* alphabet,
                  const SizeBounds* bounds) {
    const uint32_t bits = ctx->aligned != 0 ? alphabet->alignedBits : alphabet->unalignedBits;
    value->nchars = 0;
    value->data = nullptr;
    uint32_t count = 0;
    PER_TRY(getSize(ctx, &count, bounds));
    PER_TRY(alignToRead(ctx));
    if (!hasBits(ctx, uint64_t{count} * bits)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    auto* chars = static_cast<uint16_t*>(rtHeapAllocArray(&ctx->heap, count, sizeof(uint16_t)));
    if (chars == nullptr) {
        return fail(ctx, PER_NO_MEMORY);
    }
    (void)pu_newField(ctx, "data");
    uint32_t begun = 0;
    if (isPlain16(ctx, alphabet, bits) && ctx->fastSize != 0) {
        copyCharacters(chars, ctx->buffer + ctx->byteIndex, count);
        ctx->byteIndex += count * 2;
        begun = count;
    }
    for (uint32_t i = begun; i < count; ++i) {
        uint32_t code = 0;
        PER_TRY(pd_bits(ctx, &code, bits));
        if (alphabet->chars == nullptr) {
            chars[i] = static_cast<uint16_t>(alphabet->first + code);
        } else if (code < alphabet->count) {
            chars[i] = alphabet->chars[code];
        } else {
            return fail(ctx, PER_CONSTRAINT);
        }
    }
    pu_setFieldBitCount(ctx);
    value->nchars = count;
    value->data = chars;
    return PER_OK;
}

constexpr PermittedAlphabet16 WHOLE_16 = {0, nullptr, 0, 0xFFFF, 16, 16};

// The effective alphabet under a FROM constraint, worked out in `room` if need be.
int32_t effectiveAlphabet16(PerContext* ctx, const PermittedCharacters16* from,
                            PermittedAlphabet16* room, const PermittedAlphabet16** alphabet) {
    *alphabet = &WHOLE_16;
    if (from == nullptr) [[likely]] {
        return PER_OK;
    }
    pu_init16BitAlphabet(room);
    PER_TRY(pu_set16BitAlphabet(ctx, room, from));
    *alphabet = room;
    return PER_OK;
}

int32_t putBmp(PerContext* ctx, uint32_t nchars, const uint16_t* data,
               const PermittedCharacters16* from, const SizeBounds* bounds) {
    PermittedAlphabet16 room;
    const PermittedAlphabet16* alphabet = nullptr;
    PER_TRY(effectiveAlphabet16(ctx, from, &room, &alphabet));
    return putText16(ctx, nchars, data, alphabet, bounds);
}

int32_t getBmp(PerContext* ctx, BMPStringValue* value, const PermittedCharacters16* from,
               const SizeBounds* bounds) {
    PermittedAlphabet16 room;
    const PermittedAlphabet16* alphabet = nullptr;
    PER_TRY(effectiveAlphabet16(ctx, from, &room, &alphabet));
    return getText16(ctx, value, alphabet, bounds);
}

} // namespace

int32_t pe_16BitConstrainedString(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                                  const PermittedAlphabet16* alphabet) {
    return putText16(ctx, nchars, data, alphabet, nullptr);
}

int32_t pd_16BitConstrainedString(PerContext* ctx, BMPStringValue* value,
                                  const PermittedAlphabet16* alphabet) {
    return getText16(ctx, value, alphabet, nullptr);
}

int32_t pe_BMPString(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                     const PermittedCharacters16* from) {
    return putBmp(ctx, nchars, data, from, nullptr);
}

int32_t pd_BMPString(PerContext* ctx, BMPStringValue* value, const PermittedCharacters16* from) {
    return getBmp(ctx, value, from, nullptr);
}

int32_t pe_BMPStringSized(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                          const PermittedCharacters16* from, uint32_t lower, uint32_t upper) {
    const SizeBounds bounds = {lower, upper};
    return putBmp(ctx, nchars, data, from, &bounds);
}

int32_t pd_BMPStringSized(PerContext* ctx, BMPStringValue* value, const PermittedCharacters16* from,
                          uint32_t lower, uint32_t upper) {
    if (from == nullptr && getPlainBmp(ctx, value, lower, upper)) [[likely]] {
        return PER_OK;
    }
    const SizeBounds bounds = {lower, upper};
    return getBmp(ctx, value, from, &bounds);
}

// ---- strings: OBJECT IDENTIFIER ------------------------------------------------------------

namespace {

constexpr uint32_t OID_AREA = 300;
constexpr uint32_t OID_ENCODED_LIMIT = 299;

// Puts the base-128 form of a subidentifier before *start. False when the area is full.
bool prependSubidentifier(const uint8_t* area, uint8_t** start, uint64_t value) {
    uint8_t more = 0;
    if (value < 0x80 && *start - area > static_cast<ptrdiff_t>(OID_AREA - OID_ENCODED_LIMIT)) {
        *--*start = static_cast<uint8_t>(value);
        return true;
    }
    do {
        if (*start - area <= static_cast<ptrdiff_t>(OID_AREA - OID_ENCODED_LIMIT)) {
            return false;
        }
        *--*start = static_cast<uint8_t>((value & 0x7FU) | more);
        more = 0x80;
        value >>= 7;
    } while (value != 0);
    return true;
}

} // namespace

int32_t pe_ObjectIdentifier(PerContext* ctx, const ObjectIdentifier* value) {
    const uint32_t* arcs = value->arcs;
    if (value->numarcs < 2 || value->numarcs > OBJECT_IDENTIFIER_MAX_ARCS || arcs[0] > 2 ||
        (arcs[0] < 2 && arcs[1] > 39)) {
        return fail(ctx, PER_BAD_OID);
    }
    uint8_t area[OID_AREA];
    uint8_t* start = area + OID_AREA;
    for (uint32_t i = value->numarcs; i-- > 1;) {
        const uint64_t subidentifier = i > 1 ? arcs[i] : uint64_t{arcs[0]} * 40 + arcs[1];
        if (!prependSubidentifier(area, &start, subidentifier)) {
            return fail(ctx, PER_OVERFLOW);
        }
    }
    const auto octets = static_cast<uint32_t>(area + OID_AREA - start);
    PER_TRY(pe_Length(ctx, octets));
    (void)pu_newField(ctx, "ObjectId");
    PER_TRY(pe_bitData(ctx, start, octets * 8));
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// The octet behind a subidentifier; null when the octets end inside it.
PER_INLINE static const uint8_t* readSubidentifier(const uint8_t* octets, const uint8_t* end,
                                                   uint64_t* value) {
    uint32_t octet = *octets++;
    *value = octet & 0x7FU;
    while (octet >= 0x80) {
        if (octets == end) {
            return nullptr;
        }
        octet = *octets++;
        *value = *value << 7 | (octet & 0x7FU);
    }
    return octets;
}

static int32_t getArcs(PerContext* ctx, ObjectIdentifier* value, const uint8_t* octets,
                       uint32_t count) {
    if (count == 0) {
        return PER_OK;
    }
    const uint8_t* end = octets + count;
    uint64_t subidentifier = 0;
    octets = readSubidentifier(octets, end, &subidentifier);
    if (octets == nullptr) {
        return fail(ctx, PER_END_OF_DATA);
    }
    const uint32_t root = subidentifier >= 80 ? 2 : static_cast<uint32_t>(subidentifier / 40);
    value->arcs[0] = root;
    value->arcs[1] = static_cast<uint32_t>(subidentifier) - root * 40;
    uint32_t arcs = 2;
    for (; octets != end; ++arcs) {
        octets = readSubidentifier(octets, end, &subidentifier);
        if (octets == nullptr || arcs == OBJECT_IDENTIFIER_MAX_ARCS) {
            value->numarcs = arcs;
            return fail(ctx, octets == nullptr ? PER_END_OF_DATA : PER_BAD_OID);
        }
        value->arcs[arcs] = static_cast<uint32_t>(subidentifier);
    }
    value->numarcs = arcs;
    return PER_OK;
}

int32_t pd_ObjectIdentifier(PerContext* ctx, ObjectIdentifier* value) {
    value->numarcs = 0;
    uint32_t octets = 0;
    PER_TRY(pd_Length(ctx, &octets));
    (void)pu_newField(ctx, "ObjectID");
    if (!hasBits(ctx, uint64_t{octets} * 8)) {
        return fail(ctx, PER_END_OF_DATA);
    }
    if (octets > OID_AREA) {
        return fail(ctx, PER_DOES_NOT_FIT);
    }
    uint8_t area[OID_AREA];
    const uint8_t* contents = area;
    if ((ctx->bitOffset == 8 || ctx->bitOffset == 0) && octets != 0) [[likely]] {
        const uint64_t index = pu_alignedIndex(ctx);
        contents = ctx->buffer + index;
        pu_setOctet(ctx, index + octets);
    } else {
        PER_TRY(readOctets(ctx, area, sizeof area, octets * 8));
    }
    PER_TRY(getArcs(ctx, value, contents, octets));
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// ---- extensions: decoding known types ------------------------------------------------------

namespace {

// A buffer state begins as a context does: all but the flags is one copy.
constexpr size_t SAME_HEAD = offsetof(PerBufferState, flags);
static_assert(offsetof(PerContext, buffer) == offsetof(PerBufferState, buffer));
static_assert(offsetof(PerContext, byteIndex) == offsetof(PerBufferState, byteIndex));
static_assert(offsetof(PerContext, size) == offsetof(PerBufferState, size));
static_assert(offsetof(PerContext, bitOffset) == offsetof(PerBufferState, bitOffset));
static_assert(offsetof(PerContext, ownsBuffer) == offsetof(PerBufferState, ownsBuffer));
static_assert(offsetof(PerContext, aligned) == offsetof(PerBufferState, aligned));

PER_INLINE void parkState(const PerContext* ctx, PerBufferState* state) {
    std::memcpy(state, ctx, SAME_HEAD);
    state->flags = ctx->flags;
    state->fastSize = ctx->fastSize;
}

PER_INLINE void restoreState(PerContext* ctx, const PerBufferState& state) {
    std::memcpy(ctx, &state, SAME_HEAD);
    ctx->flags = state.flags;
    ctx->fastSize = state.fastSize;
}

PER_INLINE void pointAt(PerContext* ctx, uint8_t* data, uint32_t octets) {
    ctx->buffer = data;
    ctx->byteIndex = 0;
    ctx->size = octets;
    ctx->bitOffset = 8;
    ctx->ownsBuffer = 0;
    ctx->fastSize = ctx->fastSize != 0 ? octets : 0;
}

// Reads an open type that begins with the octet at or behind the cursor and points the context at
// its contents: where they stand, or, when fragments or bit positions scatter them, in a copy.
[[gnu::noinline]] int32_t enterAnyOpenType(PerContext* ctx, PerBufferState* parked) {
    uint64_t start = 0;
    uint32_t octets = 0;
    uint8_t* data = nullptr;
    if (viewOpenType(ctx, &start, &octets)) {
        data = ctx->buffer + start;
    } else {
        PER_TRY(pd_OpenType(ctx, &data, &octets));
    }
    parkState(ctx, parked);
    pointAt(ctx, data != nullptr ? data : ctx->buffer, octets);
    return PER_OK;
}

// The same for an open type whose length, an octet of its own as nearly always, stands at `index`
// of the outer buffer, whose state is parked. False, and nothing done, when it is anything else.
PER_INLINE bool pointAtShort(PerContext* ctx, PerBufferState* outer, uint32_t index) {
    if (index >= outer->fastSize || ctx->sizeConstraint != nullptr) [[unlikely]] {
        return false;
    }
    const uint32_t octets = outer->buffer[index];
    const uint32_t start = index + 1;
    if (octets - 1U >= 0x7FU || octets > outer->fastSize - start) [[unlikely]] {
        return false;
    }
    outer->byteIndex = start + octets;
    outer->bitOffset = 8;
    ctx->buffer = outer->buffer + start;
    ctx->byteIndex = 0;
    ctx->size = octets;
    ctx->bitOffset = 8;
    ctx->ownsBuffer = 0;
    ctx->fastSize = octets;
    return true;
}

// The next up to 64 presence bits, the first one highest.
uint64_t loadPresence(const PerAdditions* additions) {
    const uint32_t wanted =
        additions->count - additions->base < 64 ? additions->count - additions->base : 64;
    const uint64_t position = additions->mapPosition + additions->base;
    uint64_t bits = 0;
    for (uint64_t octet = position / 8; octet <= (position + wanted - 1) / 8; ++octet) {
        // The octet's first bit stands `lead` places behind the first bit that is wanted.
        const auto lead = static_cast<int64_t>(octet * 8 - position);
        const uint64_t value = uint64_t{additions->map[octet]} << 56;
        bits |= lead < 0 ? value << -lead : value >> lead;
    }
    return wanted < 64 ? bits & ~(~uint64_t{0} >> wanted) : bits;
}

} // namespace

// Number and presence bits from one word, when it holds both. False, and nothing done, otherwise.
static bool beginFromWord(PerContext* ctx, PerAdditions* additions) {
    const uint64_t position = pu_bitPosition(ctx);
    const uint64_t end = uint64_t{ctx->fastSize} * 8;
    if (ctx->fastSize < 8 || position + 7 > end) [[unlikely]] {
        return false;
    }
    const uint64_t base = position / 8 < ctx->fastSize - 8U ? position / 8 : ctx->fastSize - 8U;
    const uint64_t word = pu_load64(ctx->buffer + base) << (position - base * 8);
    // The long form of a number begins with a 1 and is too large here.
    const uint64_t count = (word >> 57) + 1;
    if (count > 50 || position + 7 + count > end) [[unlikely]] {
        return false;
    }
    additions->count = static_cast<uint32_t>(count);
    additions->base = 0;
    additions->open = 0;
    additions->bits = word << 7 & ~(~uint64_t{0} >> count);
    pu_setBitPosition(ctx, position + 7 + count);
    return true;
}

// The exact way, and the last octets of a buffer.
[[gnu::noinline]] static int32_t beginAnyAdditions(PerContext* ctx, PerAdditions* additions) {
    if (beginFromWord(ctx, additions)) [[likely]] {
        return PER_OK; // one word of presence bits: the map is not asked again
    }
    uint32_t announced = 0;
    PER_TRY(pd_SmallNonNegWholeNumber(ctx, &announced));
    const uint64_t count = uint64_t{announced} + 1;
    const uint64_t position = pu_bitPosition(ctx);
    // A last bit map octet that is cut is like a bit that cannot be read.
    pu_setBitPosition(ctx, position + count);
    if (announced == UINT32_MAX || position + count > bitSize(ctx)) {
        return fail(ctx, PER_OVERFLOW);
    }
    additions->count = static_cast<uint32_t>(count);
    additions->base = 0;
    additions->open = 0;
    additions->map = ctx->buffer;
    additions->mapPosition = position;
    additions->bits = loadPresence(additions);
    return PER_OK;
}

int32_t pd_beginAdditions(PerContext* ctx, PerAdditions* additions) {
    const uint32_t at = ctx->byteIndex;
    if (uint64_t{at} + 8 > ctx->fastSize) [[unlikely]] {
        return beginAnyAdditions(ctx, additions);
    }
    // At least 56 bits are left of the word, which hold number and presence bits of most types.
    const auto unread = static_cast<uint32_t>(ctx->bitOffset);
    const uint64_t word = pu_load64(ctx->buffer + at) << (8U - unread);
    const auto count = static_cast<uint32_t>(word >> 57) + 1;
    if (count > 49) [[unlikely]] {
        return beginAnyAdditions(ctx, additions);
    }
    additions->count = count;
    additions->base = 0;
    additions->open = 0;
    additions->bits = word << 7 & ~(~uint64_t{0} >> count);
    const uint32_t end = 8U - unread + 7U + count;
    ctx->byteIndex = at + (end >> 3);
    ctx->bitOffset = static_cast<int16_t>(8U - (end & 7U));
    return PER_OK;
}

// Steps over the additions whose presence bits are left in the word.
static int32_t skipAdditions(PerContext* ctx, PerAdditions* additions) {
    uint64_t bits = additions->bits;
    additions->bits = 0;
    if (canViewOpenTypes(ctx)) [[likely]] {
        uint64_t start = 0;
        uint32_t octets = 0;
        while (bits != 0 && viewRun(ctx, &start, &octets)) {
            bits &= bits - 1;
        }
    }
    for (; bits != 0; bits &= bits - 1) {
        PER_TRY(pd_skipOpenType(ctx));
    }
    return PER_OK;
}

// The exact way: unknown additions, further words of presence bits, open types in pieces.
[[gnu::noinline]] static int32_t findAddition(PerContext* ctx, PerAdditions* additions,
                                              uint32_t known) {
    while (true) {
        while (additions->bits == 0) {
            if (additions->count - additions->base <= 64) {
                return 0;
            }
            additions->base += 64;
            additions->bits = loadPresence(additions);
        }
        const auto lead = static_cast<uint32_t>(std::countl_zero(additions->bits));
        additions->index = additions->base + lead;
        if (additions->index < known) {
            additions->bits &= ~(uint64_t{1} << (63U - lead));
            PER_TRY(enterAnyOpenType(ctx, &additions->parked));
            additions->open = 1;
            return 1;
        }
        PER_TRY(skipAdditions(ctx, additions));
    }
}

// Leaves the addition that the context points into and goes on in the exact way.
[[gnu::noinline]] static int32_t findNextAddition(PerContext* ctx, PerAdditions* additions,
                                                  uint32_t known) {
    if (additions->open != 0) {
        restoreState(ctx, additions->parked);
        additions->open = 0;
    }
    return findAddition(ctx, additions, known);
}

int32_t pd_nextAddition(PerContext* ctx, PerAdditions* additions, uint32_t known) {
    const uint64_t bits = additions->bits;
    PerBufferState* outer = &additions->parked;
    if (bits == 0) {
        if (additions->count - additions->base > 64) [[unlikely]] {
            return findNextAddition(ctx, additions, known);
        }
        if (additions->open != 0) {
            restoreState(ctx, *outer);
            additions->open = 0;
        }
        return 0;
    }
    // From one addition to the next, the outer state stays parked and only moves on.
    if (additions->open == 0) {
        parkState(ctx, outer);
    }
    const auto lead = static_cast<uint32_t>(std::countl_zero(bits));
    additions->index = additions->base + lead;
    if (additions->index >= known ||
        !pointAtShort(ctx, outer, outer->byteIndex + (outer->bitOffset != 8 ? 1U : 0U)))
        [[unlikely]] {
        return findNextAddition(ctx, additions, known);
    }
    // The flags are still those outside: where the fast way goes nothing is tracked.
    additions->bits = bits ^ (uint64_t{1} << 63 >> lead);
    additions->open = 1;
    return 1;
}

[[gnu::noinline]] static int32_t beginAnyAlternative(PerContext* ctx, PerOpenType* open,
                                                     uint32_t* index) {
    PER_TRY(pd_SmallNonNegWholeNumber(ctx, index));
    PER_TRY(pd_byteAlign(ctx));
    return enterAnyOpenType(ctx, &open->parked);
}

int32_t pd_beginAlternative(PerContext* ctx, PerOpenType* open, uint32_t* index) {
    // A number of 7 bits that ends in this octet or the next one, and the length behind it.
    const uint64_t at = ctx->byteIndex;
    const int rest = ctx->bitOffset - 7;
    if (at + 1 < ctx->fastSize) [[likely]] {
        const uint32_t number = pu_load16(ctx->buffer + at) >> (8 + rest) & 0x7FU;
        const uint32_t lengthAt =
            static_cast<uint32_t>(at) + 1 + (static_cast<uint32_t>(rest) >> 31);
        parkState(ctx, &open->parked);
        if (number < 64 && pointAtShort(ctx, &open->parked, lengthAt)) [[likely]] {
            *index = number;
            return PER_OK;
        }
    }
    return beginAnyAlternative(ctx, open, index);
}

void pd_endOpenType(PerContext* ctx, const PerOpenType* open) {
    restoreState(ctx, open->parked);
}

// ---- extensions: encoding known types ------------------------------------------------------

int32_t pe_beginAdditions(PerContext* ctx, uint32_t known, uint32_t map) {
    PER_TRY(pe_SmallNonNegWholeNumber(ctx, known - 1));
    return pe_bitRun(ctx, map, known);
}

int32_t pe_beginOpenType(PerContext* ctx, PerOpenType* open) {
    PerOwnedBuffer* scratch = ctx->spare;
    if (scratch != nullptr) {
        ctx->spare = scratch->next;
    } else {
        scratch = takeBuffer(ctx->pool, PER_BUFFER_STEP);
        if (scratch == nullptr) {
            return fail(ctx, PER_NO_MEMORY);
        }
    }
    parkState(ctx, &open->parked);
    // Positions in the scratch buffer would mean nothing among those of the outer one.
    ctx->flags = static_cast<uint16_t>(ctx->flags & ~PER_FLAG_TRACKING);
    useOwned(ctx, scratch);
    putCursorAtStart(ctx);
    return PER_OK;
}

int32_t pe_endOpenType(PerContext* ctx, const PerOpenType* open, uint8_t alignFirst) {
    PER_TRY(alignIfAligned(ctx));
    const uint8_t* data = ctx->buffer;
    const uint32_t octets = ctx->bitOffset == 8 ? ctx->byteIndex : ctx->byteIndex + 1;
    PerOwnedBuffer* scratch = ctx->owned;
    if (scratch != nullptr && contentsOf(scratch) == data) [[likely]] {
        ctx->owned = scratch->next;
    } else {
        scratch = unlinkOwned(ctx, data);
    }
    restoreState(ctx, open->parked);
    // A run is aligned in any case.
    int32_t status = PER_OK;
    if (!putRun(ctx, data, octets)) [[unlikely]] {
        status = alignFirst != 0 ? pe_byteAlign(ctx) : PER_OK;
        if (status == PER_OK) {
            status = pe_OpenType(ctx, octets, data);
        }
    }
    if (scratch != nullptr) {
        scratch->next = ctx->spare;
        ctx->spare = scratch;
    }
    return status == PER_OK ? PER_OK : fail(ctx, status);
}

// ---- extensions: unknown content -----------------------------------------------------------

// What an OpenTypeValue cannot say: which bits of its octets are content, and what they were. The
// octets of the copy follow.
struct PerKeptContent {
    const uint8_t* source; // data and numocts of the value that this belongs to
    uint32_t numocts;
    uint32_t startBit; // of the first octet, 0..7
    uint64_t bitCount;
    uint64_t headBits; // bits before the first alignment that the content contains
};

namespace {

enum class ExtensionOf { Sequence, Choice };

// The next `count` presence bits from one load. False, and nothing done, when the exact way must be
// taken.
PER_INLINE bool takePresence(PerContext* ctx, uint64_t count, uint32_t* bits) {
    const uint64_t position = pu_bitPosition(ctx);
    if (count > 32 || ctx->fastSize < 8 || position + count > uint64_t{ctx->fastSize} * 8) {
        return false;
    }
    *bits = pu_peekBits(ctx, position, static_cast<uint32_t>(count));
    pu_setBitPosition(ctx, position + count);
    return true;
}

// Steps over `number` + 1 presence bits. *present receives how many are 1.
int32_t skipPresence(PerContext* ctx, uint32_t number, uint64_t* present) {
    uint32_t bits = 0;
    *present = 0;
    if (takePresence(ctx, uint64_t{number} + 1, &bits)) [[likely]] {
        for (; bits != 0; bits &= bits - 1) {
            ++*present;
        }
        return PER_OK;
    }
    (void)pu_newField(ctx, "ext opt bits");
    for (uint64_t i = 0; i <= number; ++i) {
        uint8_t bit = 0;
        PER_TRY(pd_bit(ctx, &bit));
        *present += bit;
    }
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// Reads extension content without looking into its open types. *headBits as above.
int32_t skipExtension(PerContext* ctx, ExtensionOf owner, uint64_t* headBits) {
    const uint64_t start = pu_bitPosition(ctx);
    const bool isSequence = owner == ExtensionOf::Sequence;
    (void)pu_newField(ctx, isSequence ? "ext opt bits len" : "choice index");
    uint32_t number = 0;
    PER_TRY(pd_SmallNonNegWholeNumber(ctx, &number));
    pu_setFieldBitCount(ctx);
    uint64_t present = 1;
    if (isSequence) {
        PER_TRY(skipPresence(ctx, number, &present));
    }
    *headBits = pu_bitPosition(ctx) - start;
    // The first bit tells the long form, in which a peer may also write a number below 64.
    const bool longForm = (ctx->buffer[start / 8] << start % 8 & 0x80) != 0;
    if (ctx->aligned != 0 && longForm) {
        *headBits = 1; // the number itself is aligned behind its first bit
    }
    for (; present > 0; --present) {
        (void)pu_newField(ctx, isSequence ? "ext elements" : "choice element");
        PER_TRY(pd_skipOpenType(ctx));
        pu_setFieldBitCount(ctx);
    }
    return PER_OK;
}

int32_t keepExtension(PerContext* ctx, ExtensionOf owner, OpenTypeValue* value) {
    *value = {};
    const uint64_t start = pu_bitPosition(ctx);
    uint64_t headBits = 0;
    PER_TRY(skipExtension(ctx, owner, &headBits));
    const uint64_t end = pu_bitPosition(ctx);
    const uint8_t* data = ctx->buffer + start / 8;
    const uint64_t octets = (end + 7) / 8 - start / 8;
    if (octets > INT32_MAX - sizeof(PerKeptContent)) {
        return fail(ctx, PER_NO_MEMORY);
    }
    auto* kept = static_cast<PerKeptContent*>(
        rtHeapAlloc(&ctx->heap, static_cast<int32_t>(sizeof(PerKeptContent) + octets)));
    if (kept == nullptr) {
        return fail(ctx, PER_NO_MEMORY);
    }
    const auto count = static_cast<uint32_t>(octets);
    *kept = {data, count, static_cast<uint32_t>(start % 8), end - start, headBits};
    std::memcpy(kept + 1, data, count);
    *value = {count, data, kept};
    return PER_OK;
}

// Writes `count` bits that begin at bit `start` of `octets`.
int32_t putBitsFrom(PerContext* ctx, const uint8_t* octets, uint64_t start, uint64_t count) {
    octets += start / 8;
    const auto skipped = static_cast<uint32_t>(start % 8);
    if (skipped != 0 && count != 0) {
        const uint64_t rest = 8 - skipped;
        const auto taken = static_cast<uint32_t>(count < rest ? count : rest);
        PER_TRY(pe_leadingBits(ctx, static_cast<uint8_t>(*octets << skipped), taken));
        count -= taken;
        ++octets;
    }
    while (count > 0) { // in runs that 32 bits can count
        constexpr uint64_t RUN = uint64_t{1} << 31;
        const auto taken = static_cast<uint32_t>(count < RUN ? count : RUN);
        PER_TRY(pe_bitData(ctx, octets, taken));
        octets += taken / 8;
        count -= taken;
    }
    return PER_OK;
}

int32_t putKept(PerContext* ctx, const PerKeptContent* kept) {
    const auto* octets = reinterpret_cast<const uint8_t*>(kept + 1);
    const bool samePlace = pu_bitPosition(ctx) % 8 == kept->startBit;
    if (samePlace || ctx->aligned == 0 || kept->headBits == kept->bitCount) {
        return putBitsFrom(ctx, octets, kept->startBit, kept->bitCount);
    }
    const uint64_t tail = (kept->startBit + kept->headBits + 7) / 8 * 8;
    PER_TRY(putBitsFrom(ctx, octets, kept->startBit, kept->headBits));
    PER_TRY(pe_byteAlign(ctx));
    return putBitsFrom(ctx, octets, tail, kept->startBit + kept->bitCount - tail);
}

} // namespace

int32_t pd_OpenTypeExt(PerContext* ctx, OpenTypeValue* value) {
    return keepExtension(ctx, ExtensionOf::Sequence, value);
}

int32_t pd_ChoiceOpenTypeExt(PerContext* ctx, OpenTypeValue* value) {
    return keepExtension(ctx, ExtensionOf::Choice, value);
}

namespace {

int32_t locateExtension(PerContext* ctx, ExtensionOf owner, const uint8_t** data,
                        uint32_t* octets) {
    const uint64_t start = pu_bitPosition(ctx);
    uint64_t headBits = 0;
    PER_TRY(skipExtension(ctx, owner, &headBits));
    *data = ctx->buffer + start / 8;
    *octets = static_cast<uint32_t>((pu_bitPosition(ctx) + 7) / 8 - start / 8);
    return PER_OK;
}

} // namespace

int32_t pd_OpenTypeExt(PerContext* ctx, const uint8_t** data, uint32_t* octets) {
    return locateExtension(ctx, ExtensionOf::Sequence, data, octets);
}

int32_t pd_ChoiceOpenTypeExt(PerContext* ctx, const uint8_t** data, uint32_t* octets) {
    return locateExtension(ctx, ExtensionOf::Choice, data, octets);
}

int32_t pe_OpenTypeExt(PerContext* ctx, const OpenTypeValue* value) {
    const PerKeptContent* kept = value->kept;
    // A record edited by hand no longer matches what was kept of it.
    if (value->numocts == 0 || kept == nullptr || kept->source != value->data ||
        kept->numocts != value->numocts) {
        return pe_OpenTypeExt(ctx, value->numocts, value->data);
    }
    (void)pu_newField(ctx, "OpenTypeExt");
    PER_TRY(putKept(ctx, kept));
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

int32_t pe_OpenTypeExt(PerContext* ctx, uint32_t octets, const uint8_t* data) {
    if (octets == 0) {
        return PER_OK;
    }
    (void)pu_newField(ctx, "OpenTypeExt");
    const uint64_t skipped = pu_bitPosition(ctx) % 8;
    PER_TRY(putBitsFrom(ctx, data, skipped, uint64_t{octets} * 8 - skipped));
    pu_setFieldBitCount(ctx);
    return PER_OK;
}

// ---- diagnostics: field tracking -----------------------------------------------------------

FieldRecord* pu_openField(PerContext* ctx, const char* label) {
    const size_t length = std::strlen(label) + 1; // with the zero
    auto* record = static_cast<FieldRecord*>(rtHeapAlloc(&ctx->heap, sizeof(FieldRecord)));
    auto* name = static_cast<char*>(rtHeapAlloc(&ctx->heap, static_cast<int32_t>(length + 1)));
    if (record == nullptr || name == nullptr) {
        return nullptr;
    }
    auto* node = static_cast<FieldNode*>(rtAllocator.allocate(sizeof(FieldNode)));
    if (node == nullptr) {
        return nullptr;
    }
    name[0] = ' ';
    std::memcpy(name + 1, label, length);
    *record = {name, static_cast<uint32_t>(pu_bitPosition(ctx)), 0};
    rtTrace("pu_newField: name ',27h,'%s',27h,', bitOffset %d, pField 0x%%", record->name,
            static_cast<int>(record->bitOffset));
    *node = {nullptr, record};
    FieldList& list = ctx->fieldList;
    if (list.last == nullptr) {
        list.first = node;
    } else {
        list.last->next = node;
    }
    list.last = node;
    ++list.count;
    return record;
}

void pu_moveFieldStart(PerContext* ctx) {
    if (ctx->fieldList.last == nullptr) {
        return;
    }
    FieldRecord* record = ctx->fieldList.last->record;
    record->bitOffset = static_cast<uint32_t>(pu_bitPosition(ctx));
    rtTrace("field '%s' bit offset set to %d\n", record->name, static_cast<int>(record->bitOffset));
}

void pu_closeField(PerContext* ctx) {
    if (ctx->fieldList.last == nullptr) {
        return;
    }
    FieldRecord* record = ctx->fieldList.last->record;
    record->bitCount = static_cast<uint32_t>(pu_bitPosition(ctx) - record->bitOffset);
    rtTrace("field '%s' bit count set to %d\n", record->name, static_cast<int>(record->bitCount));
}

// ---- diagnostics: traces and printers ------------------------------------------------------

void rtHexDump(const uint8_t* data, uint32_t octets) {
    for (uint32_t i = 0; i < octets; ++i) {
        (void)std::printf("0x%.2x ", static_cast<unsigned>(data[i]));
        if (i % 16 == 15) {
            (void)std::printf("\n");
        }
    }
    (void)std::printf("\n");
}

bool pu_beginTrace(PerContext* ctx, const char* function) {
    ctx->traced ^= 1U;
    if (ctx->traced != 0) {
        rtTrace("%s: start\n", function);
    }
    return ctx->traced != 0;
}

int32_t pu_endTrace(const char* function, int32_t status) {
    if (status == PER_OK) {
        rtTrace("%s: end\n", function);
    }
    return status;
}

void rtPrintBoolean(const char* name, uint8_t value) {
    (void)std::printf("%s = %s\n", name, value != 0 ? "TRUE" : "FALSE");
}

void rtPrintInteger(const char* name, int32_t value) {
    (void)std::printf("%s = %d\n", name, value);
}

void rtPrintUnsigned(const char* name, uint32_t value) {
    (void)std::printf("%s = %u\n", name, value);
}

void rtPrintCharStr(const char* name, const char* value) {
    (void)std::printf("%s = '%s'\n", name, value);
}

void rtPrintBitStr(const char* name, uint32_t bitCount, const uint8_t* data,
                   const char* separator) {
    (void)std::printf("%s%snumbits = %u\n", name, separator, bitCount);
    (void)std::printf("%s%sdata = \n", name, separator);
    rtHexDump(data, bitCount / 8 + (bitCount % 8 != 0 ? 1 : 0));
}

void rtPrintOctStr(const char* name, uint32_t octets, const uint8_t* data, const char* separator) {
    (void)std::printf("%s%snumocts = %u\n", name, separator, octets);
    (void)std::printf("%s%sdata = \n", name, separator);
    rtHexDump(data, octets);
}

void rtPrint16BitCharStr(const char* name, const BMPStringValue* value, const char* separator) {
    (void)std::printf("%s%snchars = %u\n", name, separator, value->nchars);
    (void)std::printf("%s%sdata = \n", name, separator);
    rtHexDump(reinterpret_cast<const uint8_t*>(value->data), 2 * value->nchars);
}

void rtPrintOID(const char* name, const ObjectIdentifier* value) {
    (void)std::printf("%s = ", name);
    (void)std::printf("{ \n");
    for (uint32_t i = 0; i < value->numarcs && i < OBJECT_IDENTIFIER_MAX_ARCS; ++i) {
        (void)std::printf("%d ", static_cast<int>(value->arcs[i]));
    }
    (void)std::printf("}\n");
}
