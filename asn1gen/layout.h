#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "asn1gen/model.h"

/// How values lie in memory and how many bits they take at least.
namespace asn1gen {

/// Numbers the presence bits of every SEQUENCE (OPTIONAL root fields first, then every addition)
/// and the alternatives of every CHOICE (from 1, root first). Throws SourceError for a record that
/// contains itself other than through a list or a CHOICE.
void layOut(Model& model);

/// Presence bits of a SEQUENCE; 0 when its record has no presence word.
int presenceBits(const Type& sequence);

/// A SEQUENCE or CHOICE that is extensible without known additions keeps unknown ones as received.
bool keepsExtension(const Type& record);

/// An INTEGER held as uint32_t: its upper bound does not fit 31 bits.
bool isUnsigned(const Type& integer);

/// The member of a CHOICE is a pointer to a record of its own.
bool heldByPointer(const Type& type);

/// A BIT STRING or OCTET STRING with an upper bound, held inline.
bool isSizedString(const Type& type);

/// Octets of a sized string's array.
int64_t arrayOctets(const Type& sizedString);

/// The C++ type of a value, as a member, destination or element.
std::string valueType(const Type& type);

/// Bits in which a whole number of 0 to upper - lower is coded when that needs no alignment; -1
/// when it does (range 256 and more in the aligned variant, X.691 10.5.7).
int bitField(const Range& range);

/// The fewest bits of a length determinant under a SIZE constraint, or without one.
int64_t lengthBits(const std::optional<Range>& size);

/// The fewest bits that any encoding of the type takes, alignment not counted. Both variants.
int64_t minimalBits(const Type& type);

} // namespace asn1gen
