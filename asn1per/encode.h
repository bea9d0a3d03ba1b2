// Writing halves of X.691. Bits go most significant first, octets in increasing index. Every octet
// is cleared before its first bit is written, so old contents never survive; nothing outside
// buffer[0 .. size - 1] is touched.
//
// Statuses common to all: PER_OVERFLOW when a caller's buffer is full, or when an owned one would
// pass 65,536 octets (it is then released and the context refers to no buffer); PER_NO_MEMORY when
// growing fails. What was written before a failure stays. Where a count is returned, a negative
// result is a status.
//
// BIT STRING, OCTET STRING and open types of 16,384 items and more are written in fragments when no
// range below 65,536 bounds them; a fragment is always followed by another length, a zero one when
// nothing is left. Character strings (strings.h) and lists are not.
#pragma once

#include "asn1per/context.h"

// Makes room for writing `octets` octets more. A caller's buffer cannot grow.
int32_t pe_expandBuffer(PerContext* ctx, uint32_t octets);

// Room for a write that advances the cursor by `octets`; expands when the octet that the cursor
// would reach lies outside.
int32_t pe_checkBuffer(PerContext* ctx, uint32_t octets);

// One bit, 0 or 1 (X.691 11, presence and extension bits).
int32_t pe_bit(PerContext* ctx, uint8_t bit);

// The low `count` bits of `value`, count 0..32.
int32_t pe_bits(PerContext* ctx, uint32_t value, uint32_t count);

// `count` (1..32) single bits, bit 0 of `bits` first: a presence word as it stands in a record.
// The same as that many pe_bit.
int32_t pe_bitRun(PerContext* ctx, uint32_t bits, uint32_t count);

// The leading `count` bits of an octet; 8 or more: all of it.
int32_t pe_leadingBits(PerContext* ctx, uint8_t octet, uint32_t count);

// `bitCount` bits from `data`, first octet first. On an octet boundary a block copy; `data` may
// overlap the place written to.
int32_t pe_bitData(PerContext* ctx, const uint8_t* data, uint32_t bitCount);

// Zero bits up to the next octet boundary.
int32_t pe_byteAlign(PerContext* ctx);

// Constrained whole number (X.691 10.5) of `range` values; 0xFFFFFFFF means all 32-bit values.
// PER_RANGE when value >= range.
int32_t pe_ConsWholeNumber(PerContext* ctx, uint32_t value, uint32_t range);

// `value` in as many whole octets as it needs, at least one (X.691 10.3).
int32_t pe_NonNegBinInteger(PerContext* ctx, uint32_t value);

// `value` in its minimal two's-complement octets (X.691 10.4).
int32_t pe_2sCompBinInteger(PerContext* ctx, int32_t value);

// Octets that pe_2sCompBinInteger writes, 1..4.
int32_t pe_GetIntLen(int32_t value);

// Normally small non-negative whole number (X.691 10.6).
int32_t pe_SmallNonNegWholeNumber(PerContext* ctx, uint32_t value);

// Unconstrained length determinant (X.691 10.9). Returns the items that it covers: `length`, or a
// multiple of 16,384 after which another determinant must follow; or a status.
int32_t pe_UnconsLength(PerContext* ctx, uint32_t length);

// Length determinant under the pending SIZE constraint, which it consumes. Result as above; all of
// `length` when a range below 65,536 holds it. PER_CONSTRAINT when no range does.
int32_t pe_Length(PerContext* ctx, uint32_t length);

// INTEGER with bounds. PER_RANGE when outside them, or when they are out of order.
int32_t pe_ConsInteger(PerContext* ctx, int32_t value, int32_t lower, int32_t upper);
int32_t pe_ConsUnsigned(PerContext* ctx, uint32_t value, uint32_t lower, uint32_t upper);

// INTEGER without bounds (X.691 12.2.6).
int32_t pe_UnconsInteger(PerContext* ctx, int32_t value);

// BIT STRING (X.691 15) and OCTET STRING (X.691 16) under the pending SIZE constraint, fragmented
// when needed. PER_CONSTRAINT as pe_Length; PER_DOES_NOT_FIT when no range tells the alignment.
int32_t pe_BitString(PerContext* ctx, uint32_t bitCount, const uint8_t* data);
int32_t pe_OctetString(PerContext* ctx, uint32_t octets, const uint8_t* data);

// Open type (X.691 10.2); 0 octets are written as one zero octet.
int32_t pe_OpenType(PerContext* ctx, uint32_t octets, const uint8_t* data);

// Tells in *needed whether the contents of a string of `count` items are octet-aligned under
// `chain` (X.691 15.9 to 15.11, 16.6 to 16.8). PER_DOES_NOT_FIT when no range holds `count`.
int32_t pu_stringNeedsAlignment(const SizeConstraint* chain, uint32_t count, uint8_t isBitString,
                                uint8_t* needed);

// The same as pu_addSizeConstraint with one range lower..upper, then the primitive of that name.
int32_t pe_LengthSized(PerContext* ctx, uint32_t length, uint32_t lower, uint32_t upper);
int32_t pe_BitStringSized(PerContext* ctx, uint32_t bitCount, const uint8_t* data, uint32_t lower,
                          uint32_t upper);
int32_t pe_OctetStringSized(PerContext* ctx, uint32_t octets, const uint8_t* data, uint32_t lower,
                            uint32_t upper);

#include "asn1per/encode_inline.h"
