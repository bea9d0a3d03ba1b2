// Fast halves of decode.h, inlined into the codecs so that constant bounds choose their case when
// the codec is compiled. A fast half handles the aligned variant in which nothing is wrong and no
// diagnostics are on, which one comparison with fastSize tells; before it has changed anything it
// leaves all else to the exact function (…Slow), which also decides about every failing status. In
// between stand the …Word functions, out of line to keep the codecs small: bits that cross an
// octet, read with one load.
#pragma once

#include <bit>
#include <cstring>

#include "asn1per/decode.h"

#define PER_INLINE [[gnu::always_inline]] inline

int32_t pd_bitSlow(PerContext* ctx, uint8_t* bit);
int32_t pd_bitsWord(PerContext* ctx, uint32_t* value, uint32_t count);
int32_t pd_bitRunWord(PerContext* ctx, uint32_t* bits, uint32_t count);
int32_t pd_choiceHeadWord(PerContext* ctx, uint32_t* index, uint32_t last);
int32_t pd_bitsSlow(PerContext* ctx, uint32_t* value, uint32_t count);
int32_t pd_bitRunSlow(PerContext* ctx, uint32_t* bits, uint32_t count);
int32_t pd_byteAlignSlow(PerContext* ctx);
int32_t pd_ConsWholeNumberSlow(PerContext* ctx, uint32_t* value, uint32_t range);
int32_t pd_SmallNonNegWholeNumberSlow(PerContext* ctx, uint32_t* value);
int32_t pd_ConsIntegerWord(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper);
int32_t pd_ConsIntegerSlow(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper);
int32_t pd_ConsUnsignedWord(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper);
int32_t pd_ConsUnsignedSlow(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper);
int32_t pd_LengthSizedSlow(PerContext* ctx, uint32_t* length, uint32_t lower, uint32_t upper);
int32_t pd_OctetStringSizedSlow(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                                uint32_t lower, uint32_t upper);
int32_t pd_listTooLong(PerContext* ctx);

PER_INLINE uint64_t pu_load64(const uint8_t* octets) {
    uint64_t word;
    std::memcpy(&word, octets, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    return word;
}

PER_INLINE uint32_t pu_load16(const uint8_t* octets) {
    return static_cast<uint32_t>(octets[0]) << 8 | octets[1];
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
    if (index >= ctx->fastSize) [[unlikely]] {
        return pd_bitSlow(ctx, bit);
    }
    ctx->byteIndex = index;
    ctx->bitOffset = static_cast<int16_t>(offset);
    if (bit != nullptr) {
        *bit = static_cast<uint8_t>(ctx->buffer[index] >> offset & 1);
    }
    return PER_OK;
}

// Up to 8 bits that lie in one octet with at least `least` more behind them. False, and nothing
// done, when they do not, when the buffer ends, or when the exact way must be taken.
PER_INLINE bool pu_takeBits(PerContext* ctx, uint32_t* value, uint32_t count, int least) {
    uint32_t index = ctx->byteIndex;
    int unread = ctx->bitOffset;
    if (unread == 0) {
        ++index;
        unread = 8;
    }
    const int rest = unread - static_cast<int>(count);
    if (count - 1U >= 8U || rest < least || index >= ctx->fastSize) {
        return false;
    }
    *value = static_cast<uint32_t>(ctx->buffer[index] >> rest) & ((1U << count) - 1U);
    ctx->byteIndex = index;
    ctx->bitOffset = static_cast<int16_t>(rest);
    return true;
}

PER_INLINE int32_t pd_bits(PerContext* ctx, uint32_t* value, uint32_t count) {
    return pu_takeBits(ctx, value, count, 1) ? PER_OK : pd_bitsWord(ctx, value, count);
}

PER_INLINE int32_t pd_bitRun(PerContext* ctx, uint32_t* bits, uint32_t count) {
    uint32_t value = 0;
    if (!pu_takeBits(ctx, &value, count, 0)) {
        return pd_bitRunWord(ctx, bits, count);
    }
    *bits = pu_reverseBits(value, count);
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

// A number of a range from 256 to 65536, one or two aligned octets. False, and nothing done, when
// the exact way must be taken.
PER_INLINE bool pu_takeOctets(PerContext* ctx, uint32_t* value, uint32_t range) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (range > 65536 || index + 2 > ctx->fastSize) [[unlikely]] {
        return false;
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
    return true;
}

PER_INLINE int32_t pd_ConsWholeNumber(PerContext* ctx, uint32_t* value, uint32_t range) {
    if (range <= 255) {
        return pd_bits(ctx, value, pu_bitcount(range - 1));
    }
    return pu_takeOctets(ctx, value, range) ? PER_OK : pd_ConsWholeNumberSlow(ctx, value, range);
}

PER_INLINE int32_t pd_SmallNonNegWholeNumber(PerContext* ctx, uint32_t* value) {
    const uint64_t position = pu_bitPosition(ctx);
    if (ctx->fastSize < 8 || position + 7 > uint64_t{ctx->fastSize} * 8) [[unlikely]] {
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
    const uint32_t range = upper - lower + 1; // 0 for all 32-bit numbers
    uint32_t number = 0;
    if (range - 2U < 254U) {
        if (!pu_takeBits(ctx, &number, pu_bitcount(range - 1), 1)) {
            return pd_ConsUnsignedWord(ctx, value, lower, upper);
        }
    } else if (range - 256U > 65280U || !pu_takeOctets(ctx, &number, range)) {
        return pd_ConsUnsignedSlow(ctx, value, lower, upper);
    }
    *value = lower + number;
    return PER_OK;
}

PER_INLINE int32_t pd_ConsInteger(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper) {
    const auto base = static_cast<uint32_t>(lower);
    const uint32_t range = static_cast<uint32_t>(upper) - base + 1;
    uint32_t number = 0;
    if (lower <= upper && range - 2U < 254U) {
        if (!pu_takeBits(ctx, &number, pu_bitcount(range - 1), 1)) {
            return pd_ConsIntegerWord(ctx, value, lower, upper);
        }
    } else if (lower > upper || range - 256U > 65280U || !pu_takeOctets(ctx, &number, range)) {
        return pd_ConsIntegerSlow(ctx, value, lower, upper);
    }
    *value = static_cast<int32_t>(base + number);
    return PER_OK;
}

// Index that stands for an extension alternative.
constexpr uint32_t PER_EXTENDED = UINT32_MAX;

// The head of an extensible CHOICE, X.691 22.5 to 22.8: PER_EXTENDED when the extension bit is 1,
// with the cursor behind it, else the index of one of `last` + 1 root alternatives. An index above
// `last` can come out when its bits can hold it.
PER_INLINE int32_t pd_choiceHead(PerContext* ctx, uint32_t* index, uint32_t last) {
    const uint32_t count = pu_bitcount(last);
    uint32_t bits = 0;
    if (count >= 8U || !pu_takeBits(ctx, &bits, count + 1U, 0)) {
        return pd_choiceHeadWord(ctx, index, last);
    }
    *index = bits;
    if ((bits >> count) != 0) [[unlikely]] {
        *index = PER_EXTENDED;
        ctx->bitOffset = static_cast<int16_t>(ctx->bitOffset + static_cast<int>(count));
    }
    return PER_OK;
}

PER_INLINE int32_t pd_LengthSized(PerContext* ctx, uint32_t* length, uint32_t lower,
                                  uint32_t upper) {
    if (upper >= 65536 || lower > upper || ctx->sizeConstraint != nullptr || ctx->fastSize == 0)
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

// Takes `octets` whole octets that stand at `index`, of a buffer that holds them.
PER_INLINE void pu_takeRun(PerContext* ctx, uint8_t* data, uint64_t index, uint32_t octets) {
    std::memcpy(data, ctx->buffer + index, octets);
    if (ctx->recordSpans != 0) [[unlikely]] {
        pu_addSpan(ctx, data, ctx->buffer + index, octets);
    }
    pu_setOctet(ctx, index + octets);
}

PER_INLINE int32_t pd_OctetStringSized(PerContext* ctx, uint32_t* count, uint8_t* data,
                                       uint32_t capacity, uint32_t lower, uint32_t upper) {
    // Of one size above 2: no length. A range of 256 sizes: one octet of length.
    const uint32_t lengthOctets = lower != upper ? 1 : 0;
    const uint64_t index = pu_alignedIndex(ctx) + lengthOctets;
    if ((lower != upper && upper - lower != 255) || upper >= 65536 || upper <= 2 ||
        ctx->sizeConstraint != nullptr || index + lower > ctx->fastSize) [[unlikely]] {
        return pd_OctetStringSizedSlow(ctx, count, data, capacity, lower, upper);
    }
    const uint32_t octets = lower + (lengthOctets != 0 ? ctx->buffer[index - 1] : 0U);
    if (octets == 0 || octets > capacity || (lengthOctets != 0 && index + octets > ctx->fastSize))
        [[unlikely]] {
        return pd_OctetStringSizedSlow(ctx, count, data, capacity, lower, upper);
    }
    *count = octets;
    pu_takeRun(ctx, data, index, octets);
    return PER_OK;
}
