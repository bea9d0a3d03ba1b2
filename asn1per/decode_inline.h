// Fast halves of decode.h, inlined into the codecs so that constant bounds choose their case when
// the codec is compiled. A fast half handles the case in which nothing is wrong and no diagnostics
// are on; before it has changed anything it leaves all else to the exact function (…Slow), which
// also decides about every failing status. In between stand the …Word functions, out of line to
// keep the codecs small: bits that cross an octet, read with one load.
#pragma once

#include <bit>
#include <cstring>

#include "asn1per/decode.h"

#define PER_INLINE [[gnu::always_inline]] inline

int32_t pd_bitSlow(PerContext* ctx, uint8_t* bit);
int32_t pd_bitsWord(PerContext* ctx, uint32_t* value, uint32_t count);
int32_t pd_bitRunWord(PerContext* ctx, uint32_t* bits, uint32_t count);
int32_t pd_bitsSlow(PerContext* ctx, uint32_t* value, uint32_t count);
int32_t pd_bitRunSlow(PerContext* ctx, uint32_t* bits, uint32_t count);
int32_t pd_byteAlignSlow(PerContext* ctx);
int32_t pd_ConsWholeNumberSlow(PerContext* ctx, uint32_t* value, uint32_t range);
int32_t pd_SmallNonNegWholeNumberSlow(PerContext* ctx, uint32_t* value);
int32_t pd_ConsIntegerSlow(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper);
int32_t pd_ConsUnsignedSlow(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper);
int32_t pd_LengthSizedSlow(PerContext* ctx, uint32_t* length, uint32_t lower, uint32_t upper);
int32_t pd_OctetStringSizedSlow(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                                uint32_t lower, uint32_t upper);
int32_t pd_alignedOctetsSlow(PerContext* ctx, uint8_t* data, uint32_t capacity, uint32_t octets);
int32_t pd_listTooLong(PerContext* ctx);

// True while neither trace nor field tracking wants to hear of each step.
PER_INLINE bool pu_isQuiet(const PerContext* ctx) {
    return (rtTraceOn | (ctx->flags & PER_FLAG_TRACKING)) == 0;
}

PER_INLINE uint64_t pu_load64(const uint8_t* octets) {
    uint64_t word;
    std::memcpy(&word, octets, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    return word;
}

// The low `count` (1..32) bits in reverse order.
PER_INLINE constexpr uint32_t pu_reverseBits(uint32_t bits, uint32_t count) {
    if (count == 1) {
        return bits & 1U;
    }
    if (count <= 8) { // spreads five copies of the octet, picks each bit once, gathers them
        const uint64_t picked = ((bits & 0xFFU) * 0x80200802ULL) & 0x0884422110ULL;
        return (static_cast<uint32_t>(picked * 0x0101010101ULL >> 32) & 0xFFU) >> (8U - count);
    }
    bits = __builtin_bswap32(bits);
    bits = (bits & 0x0F0F0F0FU) << 4 | (bits >> 4 & 0x0F0F0F0FU);
    bits = (bits & 0x33333333U) << 2 | (bits >> 2 & 0x33333333U);
    bits = (bits & 0x55555555U) << 1 | (bits >> 1 & 0x55555555U);
    return bits >> (32U - count);
}

// `count` (1..32) bits at a position that is known to hold them, from a buffer of 8 octets or more:
// one load, which is pulled back inside when it would pass the end.
PER_INLINE uint32_t pu_peekBits(const PerContext* ctx, uint64_t position, uint32_t count) {
    const uint64_t index = position >> 3;
    const uint64_t last = uint64_t{ctx->size} - 8;
    const uint64_t base = index < last ? index : last;
    const uint64_t word = pu_load64(ctx->buffer + base) << (position - base * 8);
    return static_cast<uint32_t>(word >> (64U - count));
}

PER_INLINE int32_t pd_bit(PerContext* ctx, uint8_t* bit) {
    uint32_t index = ctx->byteIndex;
    int offset = ctx->bitOffset - 1;
    if (offset < 0) {
        offset = 7;
        ++index;
    }
    if (index >= ctx->size || rtTraceOn != 0) [[unlikely]] {
        return pd_bitSlow(ctx, bit);
    }
    ctx->byteIndex = index;
    ctx->bitOffset = static_cast<int16_t>(offset);
    if (bit != nullptr) {
        *bit = static_cast<uint8_t>(ctx->buffer[index] >> offset & 1);
    }
    return PER_OK;
}

PER_INLINE int32_t pd_bits(PerContext* ctx, uint32_t* value, uint32_t count) {
    const int rest = ctx->bitOffset - static_cast<int>(count);
    if (count - 1U >= 8U || rest <= 0 || ctx->byteIndex >= ctx->size || rtTraceOn != 0) {
        return pd_bitsWord(ctx, value, count);
    }
    *value = static_cast<uint32_t>(ctx->buffer[ctx->byteIndex] >> rest) & ((1U << count) - 1U);
    ctx->bitOffset = static_cast<int16_t>(rest);
    return PER_OK;
}

PER_INLINE int32_t pd_bitRun(PerContext* ctx, uint32_t* bits, uint32_t count) {
    const int rest = ctx->bitOffset - static_cast<int>(count);
    if (count - 1U >= 8U || rest < 0 || ctx->byteIndex >= ctx->size || rtTraceOn != 0) {
        return pd_bitRunWord(ctx, bits, count);
    }
    *bits = pu_reverseBits(static_cast<uint32_t>(ctx->buffer[ctx->byteIndex] >> rest), count);
    ctx->bitOffset = static_cast<int16_t>(rest);
    return PER_OK;
}

// Octet at which an aligned read begins.
PER_INLINE uint64_t pu_alignedIndex(const PerContext* ctx) {
    return uint64_t{ctx->byteIndex} + (ctx->bitOffset != 8 ? 1U : 0U);
}

PER_INLINE void pu_setOctet(PerContext* ctx, uint64_t index) {
    ctx->byteIndex = static_cast<uint32_t>(index);
    ctx->bitOffset = 8;
}

PER_INLINE int32_t pd_byteAlign(PerContext* ctx) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (index >= ctx->size || (ctx->flags & PER_FLAG_TRACKING) != 0) [[unlikely]] {
        return pd_byteAlignSlow(ctx);
    }
    pu_setOctet(ctx, index);
    return PER_OK;
}

PER_INLINE int32_t pd_ConsWholeNumber(PerContext* ctx, uint32_t* value, uint32_t range) {
    if (range <= 255) {
        return pd_bits(ctx, value, pu_bitcount(range - 1));
    }
    const uint64_t index = pu_alignedIndex(ctx);
    if (range > 65536 || ctx->aligned == 0 || !pu_isQuiet(ctx) || index + 2 > ctx->size)
        [[unlikely]] {
        return pd_ConsWholeNumberSlow(ctx, value, range);
    }
    const uint8_t* octets = ctx->buffer + index;
    ctx->byteIndex = static_cast<uint32_t>(index + 1);
    if (range == 256) {
        *value = octets[0];
        ctx->bitOffset = 8;
    } else {
        *value = static_cast<uint32_t>(octets[0] << 8 | octets[1]);
        ctx->bitOffset = 0;
    }
    return PER_OK;
}

PER_INLINE int32_t pd_SmallNonNegWholeNumber(PerContext* ctx, uint32_t* value) {
    const uint64_t position = pu_bitPosition(ctx);
    if (ctx->size < 8 || position + 7 > uint64_t{ctx->size} * 8 || !pu_isQuiet(ctx)) [[unlikely]] {
        return pd_SmallNonNegWholeNumberSlow(ctx, value);
    }
    const uint32_t bits = pu_peekBits(ctx, position, 7);
    if (bits >= 64) [[unlikely]] {
        return pd_SmallNonNegWholeNumberSlow(ctx, value);
    }
    *value = bits;
    pu_setBitPosition(ctx, position + 7);
    return PER_OK;
}

PER_INLINE int32_t pd_ConsUnsigned(PerContext* ctx, uint32_t* value, uint32_t lower,
                                   uint32_t upper) {
    if (!pu_isQuiet(ctx)) [[unlikely]] {
        return pd_ConsUnsignedSlow(ctx, value, lower, upper);
    }
    if (lower == upper) {
        *value = lower;
        return PER_OK;
    }
    const uint32_t range = lower == 0 && upper == UINT32_MAX ? UINT32_MAX : upper - lower + 1;
    uint32_t number = 0;
    const int32_t status = pd_ConsWholeNumber(ctx, &number, range);
    *value = lower + number;
    return status;
}

PER_INLINE int32_t pd_ConsInteger(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper) {
    if (lower > upper || !pu_isQuiet(ctx)) [[unlikely]] {
        return pd_ConsIntegerSlow(ctx, value, lower, upper);
    }
    if (lower == upper) {
        *value = lower;
        return PER_OK;
    }
    const auto base = static_cast<uint32_t>(lower);
    uint32_t number = 0;
    const int32_t status =
        pd_ConsWholeNumber(ctx, &number, static_cast<uint32_t>(upper) - base + 1);
    *value = static_cast<int32_t>(base + number);
    return status;
}

PER_INLINE int32_t pd_LengthSized(PerContext* ctx, uint32_t* length, uint32_t lower,
                                  uint32_t upper) {
    if (upper >= 65536 || lower > upper || ctx->sizeConstraint != nullptr || !pu_isQuiet(ctx))
        [[unlikely]] {
        return pd_LengthSizedSlow(ctx, length, lower, upper);
    }
    if (lower == upper) {
        *length = lower;
        return PER_OK;
    }
    uint32_t number = 0;
    const int32_t status = pd_ConsWholeNumber(ctx, &number, upper - lower + 1);
    *length = lower + number;
    return status;
}

PER_INLINE int32_t pd_listCountSized(PerContext* ctx, uint32_t* count, uint32_t minBitsPerItem,
                                     uint32_t lower, uint32_t upper) {
    const int32_t status = pd_LengthSized(ctx, count, lower, upper);
    if (status != PER_OK) [[unlikely]] {
        return status;
    }
    if (uint64_t{*count} * minBitsPerItem + pu_bitPosition(ctx) > uint64_t{ctx->size} * 8)
        [[unlikely]] {
        return pd_listTooLong(ctx);
    }
    return PER_OK;
}

// Aligns and reads `octets` (1 or more) whole octets.
PER_INLINE int32_t pd_alignedOctets(PerContext* ctx, uint8_t* data, uint32_t capacity,
                                    uint32_t octets) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (index + octets > ctx->size || octets > capacity) [[unlikely]] {
        return pd_alignedOctetsSlow(ctx, data, capacity, octets);
    }
    std::memcpy(data, ctx->buffer + index, octets);
    if (ctx->recordSpans != 0) [[unlikely]] {
        pu_addSpan(ctx, data, ctx->buffer + index, octets);
    }
    pu_setOctet(ctx, index + octets);
    return PER_OK;
}

PER_INLINE int32_t pd_OctetStringSized(PerContext* ctx, uint32_t* count, uint8_t* data,
                                       uint32_t capacity, uint32_t lower, uint32_t upper) {
    if (upper >= 65536 || (lower == upper && upper <= 2) || ctx->aligned == 0 ||
        ctx->sizeConstraint != nullptr || !pu_isQuiet(ctx)) [[unlikely]] {
        return pd_OctetStringSizedSlow(ctx, count, data, capacity, lower, upper);
    }
    uint32_t octets = 0;
    const int32_t status = pd_LengthSized(ctx, &octets, lower, upper);
    *count = octets;
    if (status != PER_OK || octets == 0) [[unlikely]] {
        return status;
    }
    return pd_alignedOctets(ctx, data, capacity, octets);
}
