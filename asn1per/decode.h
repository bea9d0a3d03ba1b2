// Reading halves of X.691. Every primitive checks before it reads: nothing outside
// buffer[0 .. size - 1] is ever touched.
//
// Statuses common to all: PER_OVERFLOW when a single bit or an alignment lies past the end,
// PER_END_OF_DATA when several bits do; PER_NO_MEMORY when the heap is exhausted. A length or count
// that the rest of the buffer cannot hold fails before memory is taken for it. Contents that need
// storage are taken from the context's heap.
#pragma once

#include "asn1per/context.h"

// One bit; `bit` may be null.
int32_t pd_bit(PerContext* ctx, uint8_t* bit);

// Moves the cursor by one bit. PER_OVERFLOW when it leaves the buffer.
int32_t pd_IncrBitIdx(PerContext* ctx);

// `count` (0..32) bits as a number. PER_END_OF_DATA leaves the cursor.
int32_t pd_bits(PerContext* ctx, uint32_t* value, uint32_t count);

// `count` (1..32) single bits, the first into bit 0 of *bits: presence bits in the form that a
// record holds. The same as that many pd_bit.
int32_t pd_bitRun(PerContext* ctx, uint32_t* bits, uint32_t count);

// `bitCount` bits into `data` of `capacity` octets; the rest of the last octet is cleared.
// PER_DOES_NOT_FIT when the capacity is too small. On an octet boundary a block copy.
int32_t pd_octets(PerContext* ctx, uint8_t* data, uint32_t capacity, uint32_t bitCount);

// Skips to the next octet boundary. PER_OVERFLOW when no octet follows.
int32_t pd_byteAlign(PerContext* ctx);

// Moves the cursor by `bitCount` bits, back when negative. PER_OVERFLOW when it comes to stand
// beyond the octet behind the end, or before the start (then it stays).
int32_t pd_moveBitCursor(PerContext* ctx, int32_t bitCount);

// Constrained whole number of `range` values (X.691 10.5). The number may be above the range when
// the bits can hold more; callers that must know check.
int32_t pd_ConsWholeNumber(PerContext* ctx, uint32_t* value, uint32_t range);

// Normally small non-negative whole number (X.691 10.6).
int32_t pd_SmallNonNegWholeNumber(PerContext* ctx, uint32_t* value);

// Length determinant under the pending SIZE constraint, which it consumes (X.691 10.9).
// PER_FRAGMENT: *length is a multiple of 16,384 and another determinant follows those items.
int32_t pd_Length(PerContext* ctx, uint32_t* length);

// Items of a possibly fragmented value from the cursor on, without moving it and without consuming
// the pending constraint. `bitsPerItem` 1 or 8. Returns the sum (up to INT32_MAX) or a status.
int32_t pd_totalLength(PerContext* ctx, uint32_t bitsPerItem);

// INTEGER with bounds; nothing is read when they are equal. PER_RANGE when the signed bounds are
// out of order.
int32_t pd_ConsInteger(PerContext* ctx, int32_t* value, int32_t lower, int32_t upper);
int32_t pd_ConsUnsigned(PerContext* ctx, uint32_t* value, uint32_t lower, uint32_t upper);

// INTEGER without bounds (X.691 12.2.6). Octets before the last four are lost; a length of 0
// leaves *value.
int32_t pd_UnconsInteger(PerContext* ctx, int32_t* value);

// BIT STRING and OCTET STRING under the pending SIZE constraint into the caller's array of
// `capacity` octets. *count is in bits or octets. PER_DOES_NOT_FIT when the array is too small, or
// when no range tells the alignment.
int32_t pd_BitString(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity);
int32_t pd_OctetString(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity);

// The same into the heap; no memory for a value of length 0.
int32_t pd_DynBitString(PerContext* ctx, DynBitString* value);
int32_t pd_DynOctetString(PerContext* ctx, DynOctetString* value);

// Contents of an open type (X.691 10.2) into the heap; null and 0 for an empty one.
int32_t pd_OpenType(PerContext* ctx, uint8_t** data, uint32_t* octets);

// Steps over an open type without copying it. Statuses as pd_OpenType.
int32_t pd_skipOpenType(PerContext* ctx);

// Number of elements of a SEQUENCE OF or SET OF (X.691 19) under the pending SIZE constraint.
// PER_FRAGMENT for a count of 16,384 or more in fragments, which ends the decoding;
// PER_END_OF_DATA when the bits that remain cannot hold that many elements of `minBitsPerItem`.
int32_t pd_listCount(PerContext* ctx, uint32_t* count, uint32_t minBitsPerItem);

// The same as pu_addSizeConstraint with one range lower..upper, then the primitive of that name.
int32_t pd_LengthSized(PerContext* ctx, uint32_t* length, uint32_t lower, uint32_t upper);
int32_t pd_listCountSized(PerContext* ctx, uint32_t* count, uint32_t minBitsPerItem, uint32_t lower,
                          uint32_t upper);
int32_t pd_BitStringSized(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                          uint32_t lower, uint32_t upper);
int32_t pd_OctetStringSized(PerContext* ctx, uint32_t* count, uint8_t* data, uint32_t capacity,
                            uint32_t lower, uint32_t upper);

#include "asn1per/decode_inline.h"
