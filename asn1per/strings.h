// Known-multiplier character strings (X.691 27), BMPString and OBJECT IDENTIFIER (X.691 23).
#pragma once

#include <bit>

#include "asn1per/context.h"

// Effective alphabet of an 8-bit string type.
struct PermittedAlphabet {
    uint32_t count;     // characters in `chars`
    uint8_t chars[256]; // ascending
    const uint8_t* canonicalSet;
    uint32_t canonicalSize;
    uint32_t canonicalBits;
    uint32_t unalignedBits; // bits per character
    uint32_t alignedBits;
};

// Effective alphabet of a 16-bit string type: a list, or the codes first..last when it is null.
struct PermittedAlphabet16 {
    uint32_t count;
    const uint16_t* chars;
    uint16_t first;
    uint16_t last;
    uint32_t unalignedBits;
    uint32_t alignedBits;
};

// FROM constraint of a 16-bit string: `count` characters, or first..last when count is 0.
struct PermittedCharacters16 {
    uint32_t count;
    const uint16_t* chars;
    uint16_t first;
    uint16_t last;
};

// 8-bit strings are zero-terminated. `from` lists the permitted characters, null without a FROM
// constraint. The length is under the pending SIZE constraint; in the aligned variant the
// characters are aligned whatever the size. Strings are not fragmented: 16,384 characters and more
// do not read back.
//
// A character is written as its index in the effective alphabet where that takes fewer bits than
// the codes of the whole type, in a NumericString always, else as its code. The bits of an index
// are the fewest that hold the alphabet's count, so that 2^k characters take k + 1; the aligned
// variant rounds them up to a power of two.
//
// Encoding: PER_DOES_NOT_FIT for a character outside the FROM constraint, or outside a type that is
// written by index; the length stands by then. Decoding: the string is a new one in the heap;
// PER_CONSTRAINT for an index outside the alphabet; a code is taken as it is.
int32_t pe_NumericString(PerContext* ctx, const char* value, const char* from);
int32_t pe_PrintableString(PerContext* ctx, const char* value, const char* from);
int32_t pe_IA5String(PerContext* ctx, const char* value, const char* from);
int32_t pe_GeneralString(PerContext* ctx, const char* value, const char* from);
int32_t pd_NumericString(PerContext* ctx, const char** value, const char* from);
int32_t pd_PrintableString(PerContext* ctx, const char** value, const char* from);
int32_t pd_IA5String(PerContext* ctx, const char** value, const char* from);
int32_t pd_GeneralString(PerContext* ctx, const char** value, const char* from);

// The same with an effective alphabet that is there already. One of fewer characters than the type
// has restricts as FROM does; without characters, or with all of them, it is that of a whole type.
int32_t pe_ConstrainedString(PerContext* ctx, const char* value, const PermittedAlphabet* alphabet);
int32_t pd_ConstrainedString(PerContext* ctx, const char** value,
                             const PermittedAlphabet* alphabet);

// Narrows an alphabet whose canonical set is filled in to the characters in `from`. A codec can do
// so when it is compiled: `static constexpr PermittedAlphabet A = pu_ia5Alphabet("0123456789");`
// and pe_ConstrainedString or pd_ConstrainedString with it.
constexpr void pu_setPermittedAlphabet(PermittedAlphabet* alphabet, const char* from) {
    bool permitted[256] = {};
    for (; *from != 0; ++from) {
        permitted[static_cast<uint8_t>(*from)] = true;
    }
    alphabet->count = 0;
    for (uint32_t i = 0; i < alphabet->canonicalSize; ++i) {
        if (permitted[alphabet->canonicalSet[i]]) {
            alphabet->chars[alphabet->count++] = alphabet->canonicalSet[i];
        }
    }
    alphabet->unalignedBits = alphabet->count == 0 ? 8 : pu_bitcount(alphabet->count);
    alphabet->alignedBits = std::bit_ceil(alphabet->unalignedBits);
}

// Canonical set of IA5String as the codecs use it.
struct PerIA5Set {
    uint8_t codes[96];
    constexpr PerIA5Set() : codes() {
        for (uint32_t i = 0; i < 96; ++i) {
            codes[i] = static_cast<uint8_t>(i);
        }
    }
};
inline constexpr PerIA5Set PER_IA5_SET = {};

// Alphabet of an IA5String with this FROM constraint.
constexpr PermittedAlphabet pu_ia5Alphabet(const char* from) {
    PermittedAlphabet alphabet = {};
    alphabet.canonicalSet = PER_IA5_SET.codes;
    alphabet.canonicalSize = 96;
    alphabet.canonicalBits = 7;
    pu_setPermittedAlphabet(&alphabet, from);
    return alphabet;
}

int32_t pe_ConstrainedStringSized(PerContext* ctx, const char* value,
                                  const PermittedAlphabet* alphabet, uint32_t lower,
                                  uint32_t upper);
int32_t pd_ConstrainedStringSized(PerContext* ctx, const char** value,
                                  const PermittedAlphabet* alphabet, uint32_t lower,
                                  uint32_t upper);

// BMPString: characters in host byte order, `from` null without a FROM constraint. Statuses, bits
// and the limit of 16,383 characters as above.
int32_t pe_BMPString(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                     const PermittedCharacters16* from);
int32_t pd_BMPString(PerContext* ctx, BMPStringValue* value, const PermittedCharacters16* from);
int32_t pe_16BitConstrainedString(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                                  const PermittedAlphabet16* alphabet);
int32_t pd_16BitConstrainedString(PerContext* ctx, BMPStringValue* value,
                                  const PermittedAlphabet16* alphabet);

// The same as pu_addSizeConstraint with one range lower..upper, then the primitive of that name.
int32_t pe_NumericStringSized(PerContext* ctx, const char* value, const char* from, uint32_t lower,
                              uint32_t upper);
int32_t pe_PrintableStringSized(PerContext* ctx, const char* value, const char* from,
                                uint32_t lower, uint32_t upper);
int32_t pe_IA5StringSized(PerContext* ctx, const char* value, const char* from, uint32_t lower,
                          uint32_t upper);
int32_t pe_GeneralStringSized(PerContext* ctx, const char* value, const char* from, uint32_t lower,
                              uint32_t upper);
int32_t pe_BMPStringSized(PerContext* ctx, uint32_t nchars, const uint16_t* data,
                          const PermittedCharacters16* from, uint32_t lower, uint32_t upper);
int32_t pd_NumericStringSized(PerContext* ctx, const char** value, const char* from, uint32_t lower,
                              uint32_t upper);
int32_t pd_PrintableStringSized(PerContext* ctx, const char** value, const char* from,
                                uint32_t lower, uint32_t upper);
int32_t pd_IA5StringSized(PerContext* ctx, const char** value, const char* from, uint32_t lower,
                          uint32_t upper);
int32_t pd_GeneralStringSized(PerContext* ctx, const char** value, const char* from, uint32_t lower,
                              uint32_t upper);
int32_t pd_BMPStringSized(PerContext* ctx, BMPStringValue* value, const PermittedCharacters16* from,
                          uint32_t lower, uint32_t upper);

void pu_init16BitAlphabet(PermittedAlphabet16* alphabet);

// The list, when `from` has one, is copied to the context's heap. PER_NO_MEMORY when it cannot be.
int32_t pu_set16BitAlphabet(PerContext* ctx, PermittedAlphabet16* alphabet,
                            const PermittedCharacters16* from);

// OBJECT IDENTIFIER with the contents octets of X.690 8.19. PER_BAD_OID for arcs that cannot be,
// PER_OVERFLOW for more than 299 contents octets. Decoding: PER_DOES_NOT_FIT for more than 300,
// PER_END_OF_DATA when they end inside a subidentifier, PER_BAD_OID for a 129th arc.
int32_t pe_ObjectIdentifier(PerContext* ctx, const ObjectIdentifier* value);
int32_t pd_ObjectIdentifier(PerContext* ctx, ObjectIdentifier* value);
