// The context of an encoder or decoder: buffer, bit cursor, heap; and the value types that live
// in decoded records. Sizes and counts are in octets unless a name says bits.
#pragma once

#include <cstddef>
#include <cstdint>

#include "asn1per/heap_poison.h"
#include "asn1per/status.h"

// ---- value types of decoded records -------------------------------------------------------

// OCTET STRING without an upper bound, contents of an open type.
struct DynOctetString {
    uint32_t numocts;
    uint8_t* data; // null when numocts is 0
};

// BIT STRING without an upper bound; the first bit is the high bit of the first octet.
struct DynBitString {
    uint32_t numbits;
    uint8_t* data; // ceil(numbits / 8) octets
};

struct BMPStringValue {
    uint32_t nchars;
    uint16_t* data; // characters in host byte order
};

constexpr uint32_t OBJECT_IDENTIFIER_MAX_ARCS = 128;

struct ObjectIdentifier {
    uint32_t numarcs;
    uint32_t arcs[OBJECT_IDENTIFIER_MAX_ARCS];
};

struct PerKeptContent;

// Extension content that a decoder kept without understanding it. `data` points into the decoded
// buffer at the octet that holds the first bit of the content; `numocts` counts the octets up to
// the one that holds the last. `kept` belongs to the runtime: the exact bits and a copy in the
// context's heap, so that encoding over the decoded buffer finds them whatever the writer cleared
// or overwrote before (extensions.h). Null in a record built by hand.
struct OpenTypeValue {
    uint32_t numocts;
    const uint8_t* data;
    const PerKeptContent* kept;
};

// One range of a SIZE constraint. Built by the caller, usually on its stack; it must live until
// the length that consumes it has been coded.
struct SizeConstraint {
    uint8_t extended; // the range belongs to the extension part of an extensible SIZE
    uint32_t lower;
    uint32_t upper;
    const SizeConstraint* next;
};

// ---- memory --------------------------------------------------------------------------------

// All memory of the module comes from here. Tests replace the pair; whoever replaces it does so
// while no context, pool or record of the module holds memory.
struct PerAllocator {
    void* (*allocate)(size_t octets); // null when memory is exhausted; aligned as malloc does
    void (*release)(void* memory);    // never called with null
};
extern PerAllocator rtAllocator;

constexpr uint32_t PER_BLOCK_SPACE = 4088;   // octets that a heap block can hand out
constexpr uint32_t PER_BUFFER_STEP = 16384;  // first size and smallest growth of owned buffers
constexpr uint32_t PER_BUFFER_LIMIT = 65536; // an owned buffer never grows beyond
constexpr uint32_t PER_HEAP_WALK_LIMIT = 16; // blocks that one allocation looks at

struct PerBlockPool;

// A heap block. `used` counts the octets handed out; a block of its own for a large request is
// marked full from the start.
struct MemBlock {
    MemBlock* next; // older
    PerBlockPool* pool;
    uint32_t used;
    alignas(8) uint8_t space[PER_BLOCK_SPACE];
};

// The heap of a context: its newest block, null when empty.
using MemHeap = MemBlock*;

// An encoding buffer that a context owns; the octets follow the header.
struct PerOwnedBuffer {
    PerOwnedBuffer* next;
    PerBlockPool* pool;
    uint32_t capacity;
};

// Blocks and buffers kept between messages, so that a message costs no allocation. Zero-initialised
// by its owner, who outlives every context that uses it and drains it in the end. It keeps at most
// PER_POOL_BLOCKS and PER_POOL_BUFFERS, and one block for a large record; what a large message
// needed beyond goes back at once.
constexpr uint32_t PER_POOL_BLOCKS = 16;
constexpr uint32_t PER_POOL_BUFFERS = 4;
constexpr uint32_t PER_LARGE_SPACE = 73728; // octets that the block for a large record can hand out
struct PerBlockPool {
    MemBlock* blocks;
    PerOwnedBuffer* buffers;
    uint32_t blockCount;
    uint32_t bufferCount;
    MemBlock* large; // null until it was needed once
    uint8_t largeInUse;
};

// ---- the context ---------------------------------------------------------------------------

struct FieldRecord; // diagnostics.h
struct FieldNode;

struct FieldList {
    uint32_t count;
    FieldNode* first;
    FieldNode* last;
};

struct PerSpanChunk;

constexpr uint16_t PER_CONTEXT_MARKER = 0x0A0A;
constexpr uint16_t PER_FLAG_ALLOCATED = 0x8000; // the context itself came from pu_newContext
constexpr uint16_t PER_FLAG_TRACKING = 0x2000;  // field tracking is on

// A context is used by one thread at a time. Its memory must be all zeros, or a released context,
// before its first initialisation.
//
// The bit position byteIndex * 8 + 8 - bitOffset may be written in two ways at an octet boundary
// (bitOffset 0, or 8 on the next octet); every primitive accepts both.
struct PerContext {
    uint8_t* buffer;
    uint32_t byteIndex;
    uint32_t size;
    int16_t bitOffset;  // bits of the octet at byteIndex not yet written or read, 0..8
    uint8_t ownsBuffer; // the runtime allocated the buffer: it may grow and is freed on release
    uint8_t aligned;    // 1 aligned variant, 0 unaligned
    ErrorInfo errorInfo;
    MemHeap heap;
    uint16_t initMarker;
    uint16_t flags;
    FieldList fieldList;
    const SizeConstraint* sizeConstraint; // pending for the next length determinant

    // What follows is the runtime's own.
    uint32_t fastSize;   // below this octet the fast halves of the primitives work: `size`, or 0
                         // while trace, tracking or the unaligned variant want the exact way
    uint8_t lenient;     // decoders step over unknown CHOICE alternatives (pu_setLenient)
    uint8_t recordSpans; // block copies are recorded (pu_recordSpans)
    uint8_t traced;      // the function called next has already traced its start
    uint32_t depth;      // values of recursive types that are open
    PerBlockPool* pool;
    PerOwnedBuffer* owned; // every buffer handed out
    PerOwnedBuffer* spare; // scratch buffers for the next extension addition
    PerSpanChunk* spans;
    const uint8_t* spanBase; // outermost buffer, pu_sourceOf answers with addresses in it
    uint32_t spanSize;
    const PerContext* outer;
};

// The part of a context that a nested open type replaces and restores.
struct PerBufferState {
    uint8_t* buffer;
    uint32_t byteIndex;
    uint32_t size;
    int16_t bitOffset;
    uint8_t ownsBuffer;
    uint8_t aligned;
    uint16_t flags;
    uint32_t fastSize;
};

// Starts a message. A buffer with its size is taken as it is and stays the caller's; decoding never
// writes to it. Null and 0 give an owned buffer of 16,384 octets. On a fresh or released context
// everything is cleared first; a context that is still initialised keeps its heap, field list,
// flags and pending size constraint. Returns 0 or PER_NO_MEMORY; after a failure the context can
// still be released.
int32_t pu_initContext(PerContext* ctx, const uint8_t* buffer, uint32_t size, uint8_t aligned);

// Initialises `ctx` over the buffer, size, variant and cursor of `source`, which it does not move.
// The buffer stays the source's. Returns 0 or PER_NO_MEMORY.
int32_t pu_initContextFrom(PerContext* ctx, const PerContext* source);

// A context from the allocator, initialised as above and freed by its pu_freeContext. Null when
// memory is exhausted.
PerContext* pu_newContext(const uint8_t* buffer, uint32_t size, uint8_t aligned);

// Releases everything that the context owns: buffers, heap, field list. Null is allowed.
void pu_freeContext(PerContext* ctx);

// Points the context at a caller's buffer (both non-zero), or else at a fresh owned one of 16,384
// octets; the cursor stands at the start. The buffer before is not released: it comes back by
// pu_copyBufferState, and whatever is owned goes with pu_freeContext. Returns 0 or PER_NO_MEMORY.
int32_t pu_setBuffer(PerContext* ctx, const uint8_t* buffer, uint32_t size);

// Copies buffer, cursor, size, ownership, variant and flags, nothing else. Ownership of memory
// stays with the context that allocated it.
void pu_copyBufferState(PerContext* destination, const PerContext* source);

// Start of the encoding (null for a null context). `length`, when given, receives its octets; a
// last octet that is partly filled counts.
uint8_t* pe_getMsgPtr(const PerContext* ctx, uint32_t* length);

// Absolute bit position of the cursor. 64 bits: a buffer may have more than 2^29 octets.
inline uint64_t pu_bitPosition(const PerContext* ctx) {
    return uint64_t{ctx->byteIndex} * 8 + 8 - static_cast<uint64_t>(ctx->bitOffset);
}

// Puts the cursor at an absolute bit position; not checked against the size, since every primitive
// checks before it reads or writes. A position of 2^35 or more is held at 2^35 - 8.
inline void pu_setBitPosition(PerContext* ctx, uint64_t position) {
    constexpr uint64_t LAST = uint64_t{UINT32_MAX} * 8;
    position = position < LAST ? position : LAST;
    ctx->byteIndex = static_cast<uint32_t>(position >> 3);
    ctx->bitOffset = static_cast<int16_t>(8U - (position & 7U));
}

// Hands a SIZE constraint to the next length determinant. A chain that is already pending stays in
// force and the new one is only compared with it: PER_CONSTRAINT when null or when each of its
// ranges lies strictly around the pending one.
int32_t pu_addSizeConstraint(PerContext* ctx, const SizeConstraint* chain);

// To be called after every change of what fastSize depends on.
inline void pu_updateFastSize(PerContext* ctx) {
    const bool isQuiet = (rtTraceOn | (ctx->flags & PER_FLAG_TRACKING)) == 0;
    ctx->fastSize = isQuiet && ctx->aligned != 0 ? ctx->size : 0;
}

// Field tracking (diagnostics.h) on or off; off touches no other flag.
inline void pu_setFieldTracking(PerContext* ctx, uint8_t on) {
    const bool isOn = (ctx->flags & PER_FLAG_TRACKING) != 0;
    if (isOn != (on != 0)) {
        ctx->flags ^= PER_FLAG_TRACKING;
        pu_updateFastSize(ctx);
    }
}

// Smallest k with 2^k > n; 32 for any n of 2^31 or more.
constexpr uint32_t pu_bitcount(uint32_t n) {
    return n == 0 ? 0U : 32U - static_cast<uint32_t>(__builtin_clz(n));
}

// ---- heap ----------------------------------------------------------------------------------

// The part of rtHeapAlloc that looks at older blocks and takes new ones. `octets` is a multiple
// of 8.
[[gnu::cold]] void* rtHeapAllocBlock(MemHeap* heap, uint32_t octets);

// `octets` of memory, 8-octet aligned and not cleared, that live until the heap is freed. First fit
// from the newest block, looking at no more than PER_HEAP_WALK_LIMIT blocks. Null for a null heap,
// a negative count, or exhausted memory (callers report PER_NO_MEMORY). 0 octets give an address
// without using space.
inline void* rtHeapAlloc(MemHeap* heap, int32_t octets) {
    if (heap == nullptr || octets < 0) [[unlikely]] {
        return nullptr;
    }
    const uint32_t rounded = (static_cast<uint32_t>(octets) + 7U) & ~7U;
    MemBlock* block = *heap;
    if (block == nullptr || rounded > PER_BLOCK_SPACE - block->used) [[unlikely]] {
        return pu_handOut(rtHeapAllocBlock(heap, rounded), static_cast<size_t>(octets));
    }
    void* memory = block->space + block->used;
    block->used += rounded;
    return pu_handOut(memory, static_cast<size_t>(octets));
}

// Memory for `count` items of `itemSize` octets, not cleared. Null as above, and when the product
// exceeds what rtHeapAlloc can give.
inline void* rtHeapAllocArray(MemHeap* heap, uint32_t count, uint32_t itemSize) {
    const uint64_t octets = uint64_t{count} * itemSize;
    return octets > INT32_MAX ? nullptr : rtHeapAlloc(heap, static_cast<int32_t>(octets));
}

// Frees a chain of blocks from its newest; null is allowed.
void rtHeapFreeAll(MemBlock* newest);

// Blocks and scratch buffers of this context come from the pool and return to it. To be called
// once, after pu_initContext. Null: plain allocation.
void pu_setBlockPool(PerContext* ctx, PerBlockPool* pool);

// Frees what the pool keeps. No context may be using it.
void pu_drainBlockPool(PerBlockPool* pool);

// ---- lossless rewriting --------------------------------------------------------------------

// Decoders of CHOICEs with known extension alternatives step over an unknown one by its open type
// and set `alternative` one past the last known, where they would fail with PER_BAD_CHOICE.
inline void pu_setLenient(PerContext* ctx, uint8_t on) {
    ctx->lenient = on;
}

// From now on every copy of whole octets out of the decoded buffer is remembered, so that
// pu_sourceOf can tell where it came from. To be called after pu_initContext; the buffer of that
// moment is the outermost one. `outer`, null or a context that records and outlives this one, is
// where the search goes on when this context decodes octets that `outer` decoded (an encoding
// inside an OCTET STRING). The records live in the heap.
void pu_recordSpans(PerContext* ctx, const PerContext* outer);

// Where the octets at `copy`, decoded into a record or the heap, stand in the outermost buffer (the
// outer context's when there is one), or null when that cannot be told: spans were not recorded,
// the copy was shifted by bits, fragments split it. `octets` is counted in the source: it may reach
// beyond the copy (an address and the port that follows it), and all of it lies in the buffer.
uint8_t* pu_sourceOf(const PerContext* ctx, const uint8_t* copy, uint32_t octets);

// Remembers that `octets` at `copy` came from `source`. Does nothing when memory is exhausted: the
// field then stays as it is.
[[gnu::cold]] void pu_addSpan(PerContext* ctx, const uint8_t* copy, const uint8_t* source,
                              uint32_t octets);
