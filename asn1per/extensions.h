// Extensions: additions of a SEQUENCE (X.691 18.7 to 18.9), extension alternatives of a CHOICE
// (X.691 22.8), and unknown content that a record keeps and writes back.
#pragma once

#include "asn1per/context.h"

// ---- decoding known types ------------------------------------------------------------------

// The additions of one SEQUENCE value while they are decoded. Needs no initialisation.
struct PerAdditions {
    uint32_t count;       // additions announced
    uint32_t index;       // the one that the context points into
    uint32_t base;        // addition of the high bit of `bits`
    uint8_t open;         // the context points into an addition and `parked` holds the way back
    uint64_t bits;        // presence bits not yet handled, next one highest
    const uint8_t* map;   // buffer that holds the presence bits
    uint64_t mapPosition; // bit position of the first
    PerBufferState parked;
};

// Called with the cursor behind the root fields of a value whose extension bit was 1. Reads the
// number of additions and steps over their presence bits.
//
//     PerAdditions additions;
//     status = pd_beginAdditions(ctx, &additions);              // fails: return
//     while ((status = pd_nextAddition(ctx, &additions, K)) > 0)
//         switch (additions.index) { case 0: ... decode addition 0 from ctx ... }
//     // status < 0: return
int32_t pd_beginAdditions(PerContext* ctx, PerAdditions* additions);

// Goes on to the next present addition below `known`: 1, `index` set, and the context points at the
// octets of its open type. Additions at or above `known` are stepped over. 0 when none is left: the
// cursor stands behind the last open type. A negative status leaves the context where it failed.
// An open type without octets is an empty buffer.
int32_t pd_nextAddition(PerContext* ctx, PerAdditions* additions, uint32_t known);

// An open type into which the context points (decoding), or which it collects (encoding).
struct PerOpenType {
    PerBufferState parked;
};

// Called behind an extension bit of 1 in a CHOICE with known extension alternatives: reads the
// index (0 is the first extension alternative), aligns, and points the context at the octets of the
// open type. The caller compares the index with what it knows.
int32_t pd_beginAlternative(PerContext* ctx, PerOpenType* open, uint32_t* index);

// Points the context back behind the open type. Octets that the alternative left unread are
// skipped.
void pd_endOpenType(PerContext* ctx, const PerOpenType* open);

// ---- encoding known types ------------------------------------------------------------------

// Number and presence bits of `known` (1..32) additions; bit i of `map` belongs to addition i.
int32_t pe_beginAdditions(PerContext* ctx, uint32_t known, uint32_t map);

// What is encoded between the two becomes the contents of an open type: it is collected in a
// scratch buffer, brought to an octet boundary in the aligned variant, and written with
// pe_OpenType. Pairs nest. After a failure in between only pu_freeContext is left to call.
// An extension alternative aligns (pe_byteAlign) before pe_endOpenType writes: `alignFirst` 1.
int32_t pe_beginOpenType(PerContext* ctx, PerOpenType* open);
int32_t pe_endOpenType(PerContext* ctx, const PerOpenType* open, uint8_t alignFirst);

// ---- unknown content -----------------------------------------------------------------------

// SEQUENCE without known additions, behind its root fields, extension bit 1: reads number, presence
// bits and open types without looking into them, and keeps all of it. PER_NO_MEMORY when the copy
// does not fit the heap. The caller sets numocts 0 and data null when the extension bit was 0.
int32_t pd_OpenTypeExt(PerContext* ctx, OpenTypeValue* value);

// CHOICE without known extension alternatives, behind an extension bit of 1: index and open type.
int32_t pd_ChoiceOpenTypeExt(PerContext* ctx, OpenTypeValue* value);

// Writes kept content at the cursor, bit for bit when it begins at the same bit of an octet as it
// did when decoded; otherwise with the alignment that the new place needs. The decoded buffer may
// be the one written to, and may be overwritten in any way by then: the bits come from the copy in
// the heap of the decoding context, which must still live. 0 octets: nothing.
int32_t pe_OpenTypeExt(PerContext* ctx, const OpenTypeValue* value);

// The same with start and length only, without a copy. `data` begins at the octet that holds the
// first bit of the content; where in it is taken from the cursor when writing. All octets up to
// `octets` are written.
int32_t pd_OpenTypeExt(PerContext* ctx, const uint8_t** data, uint32_t* octets);
int32_t pd_ChoiceOpenTypeExt(PerContext* ctx, const uint8_t** data, uint32_t* octets);
int32_t pe_OpenTypeExt(PerContext* ctx, uint32_t octets, const uint8_t* data);

// ---- recursive types -----------------------------------------------------------------------

// Around the body of a function of a recursive type. PER_TOO_DEEP beyond PER_MAX_DEPTH open values.
// A function that fails need not leave: pu_initContext starts again from 0.
inline int32_t pd_enter(PerContext* ctx) {
    return ++ctx->depth > PER_MAX_DEPTH ? PER_TOO_DEEP : PER_OK;
}
inline void pd_leave(PerContext* ctx) {
    --ctx->depth;
}
inline int32_t pe_enter(PerContext* ctx) {
    return pd_enter(ctx);
}
inline void pe_leave(PerContext* ctx) {
    pd_leave(ctx);
}
