// Decoded values of any type, walked by their descriptions.
#pragma once

#include <cstddef>

#include "asn1per/type_description.h"

namespace fuzzing {

/// How DynOctetString, list records and arrays of bounded size lie in memory.
struct ListHead {
    uint32_t count;
    uint8_t* elements;
};
struct ArrayHead {
    uint32_t count;
    uint8_t data[1];
};

/// What an octet of an encoding of this type may cost in memory, by the module it belongs to.
size_t memoryPerOctet(const TypeDescription& type);

/// A member's value; null for a NULL or an alternative without member.
const void* memberValue(const MemberDescription& member, const void* record);
void* memberValue(const MemberDescription& member, void* record);

/// Whether a SEQUENCE holds this member.
bool isPresent(const MemberDescription& member, const void* record);

/// The member that a CHOICE holds; null when its number names none.
const MemberDescription* chosenMember(const TypeDescription& choice, const void* record);

/// Whether every encoder must take the value and every decoder what it makes of it: numbers and
/// sizes within their bounds, CHOICEs with an alternative, additions that are not OPTIONAL present
/// when any is, text that is not empty and of permitted characters. A decoder may produce values
/// that are not: codes above a range, mandatory additions left out by the peer, text that begins
/// with a zero, a signal that is none.
bool isEncodable(const TypeDescription& type, const void* value);

/// Whether two decoded values of a type are equal. Absent members do not count.
bool sameValue(const TypeDescription& type, const void* left, const void* right);

} // namespace fuzzing
