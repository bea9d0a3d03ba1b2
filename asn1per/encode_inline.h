// Fast halves of encode.h, in the manner of decode_inline.h: they write when there is room behind
// the cursor and leave the end of the buffer, growing and failing to the exact functions.
#pragma once

#include "asn1per/decode_inline.h"
#include "asn1per/encode.h"

int32_t pe_bitSlow(PerContext* ctx, uint8_t bit);
int32_t pe_bitsWord(PerContext* ctx, uint32_t value, uint32_t count);
int32_t pe_bitRunWord(PerContext* ctx, uint32_t bits, uint32_t count);
int32_t pe_choiceHeadSlow(PerContext* ctx, uint32_t alternative, uint32_t last);
int32_t pe_bitsSlow(PerContext* ctx, uint32_t value, uint32_t count);
int32_t pe_bitRunSlow(PerContext* ctx, uint32_t bits, uint32_t count);
int32_t pe_byteAlignSlow(PerContext* ctx);
int32_t pe_ConsWholeNumberSlow(PerContext* ctx, uint32_t value, uint32_t range);
int32_t pe_ConsIntegerSlow(PerContext* ctx, int32_t value, int32_t lower, int32_t upper);
int32_t pe_ConsUnsignedSlow(PerContext* ctx, uint32_t value, uint32_t lower, uint32_t upper);
int32_t pe_LengthSizedSlow(PerContext* ctx, uint32_t length, uint32_t lower, uint32_t upper);

PER_INLINE void pu_store64(uint8_t* octets, uint64_t word) {
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    std::memcpy(octets, &word, sizeof word);
}

// Puts `count` (1..32) bits at a position with 8 octets of room. Bits behind them are cleared in
// the octets 0 .. lastOctet that follow; octets behind stay as they are, since kept content and
// undecoded octets may still lie there.
PER_INLINE void pu_putBits(uint8_t* octets, uint32_t offset, uint32_t value, uint32_t count,
                           uint32_t lastOctet) {
    const uint64_t before = ~(~uint64_t{0} >> offset);
    const uint64_t behind = ~uint64_t{0} >> (8U * (lastOctet + 1U));
    const uint64_t bits = uint64_t{value} << (64U - count) >> offset;
    pu_store64(octets, (pu_load64(octets) & (before | behind)) | bits);
}

PER_INLINE int32_t pe_bit(PerContext* ctx, uint8_t bit) {
    uint64_t index = ctx->byteIndex;
    int offset = ctx->bitOffset;
    if (offset == 0) {
        ++index;
        offset = 8;
    }
    if (index >= ctx->size) [[unlikely]] {
        return pe_bitSlow(ctx, bit);
    }
    const int octet = offset == 8 ? 0 : ctx->buffer[index];
    --offset;
    ctx->buffer[index] = static_cast<uint8_t>(octet | (bit != 0 ? 1 << offset : 0));
    ctx->byteIndex = static_cast<uint32_t>(index);
    ctx->bitOffset = static_cast<int16_t>(offset);
    return PER_OK;
}

// The octet at the cursor before something is added: untouched ones are cleared.
PER_INLINE uint32_t pu_begunOctet(const PerContext* ctx) {
    return ctx->bitOffset == 8 ? 0U : ctx->buffer[ctx->byteIndex];
}

PER_INLINE int32_t pe_bits(PerContext* ctx, uint32_t value, uint32_t count) {
    const int rest = ctx->bitOffset - static_cast<int>(count);
    if (count - 1U >= 8U || rest <= 0 || ctx->byteIndex >= ctx->size) {
        return pe_bitsWord(ctx, value, count);
    }
    const uint32_t bits = value & ((1U << count) - 1U);
    ctx->buffer[ctx->byteIndex] = static_cast<uint8_t>(pu_begunOctet(ctx) | bits << rest);
    ctx->bitOffset = static_cast<int16_t>(rest);
    return PER_OK;
}

PER_INLINE int32_t pe_bitRun(PerContext* ctx, uint32_t bits, uint32_t count) {
    const int rest = ctx->bitOffset - static_cast<int>(count);
    if (count - 1U >= 8U || rest < 0 || ctx->byteIndex >= ctx->size) {
        return pe_bitRunWord(ctx, bits, count);
    }
    ctx->buffer[ctx->byteIndex] =
        static_cast<uint8_t>(pu_begunOctet(ctx) | pu_reverseBits(bits, count) << rest);
    ctx->bitOffset = static_cast<int16_t>(rest);
    return PER_OK;
}

PER_INLINE int32_t pe_byteAlign(PerContext* ctx) {
    if (ctx->bitOffset != 8 || (ctx->flags & PER_FLAG_TRACKING) != 0) {
        const uint64_t index = uint64_t{ctx->byteIndex} + 1;
        if (index >= ctx->size || (ctx->flags & PER_FLAG_TRACKING) != 0) [[unlikely]] {
            return pe_byteAlignSlow(ctx);
        }
        ctx->buffer[index] = 0;
        pu_setOctet(ctx, index);
    }
    return PER_OK;
}

PER_INLINE int32_t pe_ConsWholeNumber(PerContext* ctx, uint32_t value, uint32_t range) {
    const uint64_t index = pu_alignedIndex(ctx);
    if (value >= range || (range > 255 && (range > 65536 || index + 3 > ctx->fastSize)))
        [[unlikely]] {
        return pe_ConsWholeNumberSlow(ctx, value, range);
    }
    if (range <= 255) {
        return range == 1 ? PER_OK : pe_bits(ctx, value, pu_bitcount(range - 1));
    }
    uint8_t* octets = ctx->buffer + index;
    if (range == 256) {
        octets[0] = static_cast<uint8_t>(value);
        octets[1] = 0;
        pu_setOctet(ctx, index + 1);
    } else {
        octets[0] = static_cast<uint8_t>(value >> 8);
        octets[1] = static_cast<uint8_t>(value);
        octets[2] = 0;
        pu_setOctet(ctx, index + 2);
    }
    return PER_OK;
}

PER_INLINE int32_t pe_ConsUnsigned(PerContext* ctx, uint32_t value, uint32_t lower,
                                   uint32_t upper) {
    if (ctx->fastSize == 0) [[unlikely]] {
        return pe_ConsUnsignedSlow(ctx, value, lower, upper);
    }
    if (lower == upper) {
        return PER_OK;
    }
    const uint32_t range = lower == 0 && upper == UINT32_MAX ? UINT32_MAX : upper - lower + 1;
    return pe_ConsWholeNumber(ctx, value - lower, range);
}

PER_INLINE int32_t pe_ConsInteger(PerContext* ctx, int32_t value, int32_t lower, int32_t upper) {
    const auto base = static_cast<uint32_t>(lower);
    const uint32_t range = static_cast<uint32_t>(upper) - base + 1;
    if (static_cast<int32_t>(range) <= 0 || value < lower || ctx->fastSize == 0) [[unlikely]] {
        return pe_ConsIntegerSlow(ctx, value, lower, upper);
    }
    return lower == upper ? PER_OK
                          : pe_ConsWholeNumber(ctx, static_cast<uint32_t>(value) - base, range);
}

// The head of an extensible CHOICE with a root alternative, X.691 22.5 to 22.7: an extension bit of
// 0 and the index of one of `last` + 1. `alternative` counts from 1.
PER_INLINE int32_t pe_choiceHead(PerContext* ctx, uint32_t alternative, uint32_t last) {
    const uint32_t count = pu_bitcount(last);
    if (alternative - 1U > last || count >= 8U || ctx->fastSize == 0) [[unlikely]] {
        return pe_choiceHeadSlow(ctx, alternative, last);
    }
    return pe_bits(ctx, alternative - 1U, count + 1U);
}

PER_INLINE int32_t pe_LengthSized(PerContext* ctx, uint32_t length, uint32_t lower,
                                  uint32_t upper) {
    if (upper >= 65536 || length < lower || length > upper || ctx->sizeConstraint != nullptr ||
        ctx->fastSize == 0) [[unlikely]] {
        return pe_LengthSizedSlow(ctx, length, lower, upper);
    }
    if (lower != upper) {
        const int32_t status = pe_ConsWholeNumber(ctx, length - lower, upper - lower + 1);
        if (status != PER_OK) [[unlikely]] {
            return status;
        }
    }
    return static_cast<int32_t>(length);
}
