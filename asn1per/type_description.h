// What the generated tables tell about every type of the codecs, so that a program can walk any
// decoded value without knowing its type: the tree printer, verifiers, fuzzers. Not part of the
// module library.
#pragma once

#include <cstddef>
#include <cstdint>

#include "asn1per/asn1per.h"

// What lies in memory.
enum class TypeKind : uint8_t {
    Boolean,          // uint8_t
    Null,             // nothing
    Integer,          // int32_t
    Unsigned,         // uint32_t
    OctetArray,       // record: uint32_t numocts, uint8_t data[capacity]
    OctetString,      // DynOctetString
    BitArray,         // record: uint32_t numbits, uint8_t data[capacity]
    BitString,        // DynBitString
    CharacterString,  // const char*
    BmpString,        // BMPStringValue
    ObjectIdentifier, // ObjectIdentifier
    OpenType,         // DynOctetString: a complete encoding
    KeptExtension,    // OpenTypeValue: unknown extension content
    Sequence,
    Choice,
    List, // record: uint32_t count, pointer to the elements
};

struct TypeDescription;

// A field of a SEQUENCE or an alternative of a CHOICE; kept unknown content is one of them, last.
struct MemberDescription {
    const char* name; // the member's name in the record; of a NULL the name it would have
    const TypeDescription* type;
    uint32_t offset;      // in octets from the start of the record; of a NULL 0
    uint32_t presence;    // SEQUENCE: mask in the presence word, 0 for a member always present
    uint32_t alternative; // CHOICE: its number
    bool pointer;         // the record holds a pointer to the value
    bool optional;        // OPTIONAL in the ASN.1
    bool addition;        // stands behind the extension marker
};

struct TypeDescription {
    const char* name; // as in C++, or the ASN.1 notation of a type without a name
    TypeKind kind;
    bool named;      // has a name and functions of its own
    bool extensible; // SEQUENCE, CHOICE: has an extension marker; integers: extensible range
    bool bounded;    // lower and upper hold: of the value of an integer, the size of all others
    uint32_t size;   // sizeof the record or value; 0 for a NULL
    int64_t lower;
    int64_t upper;
    const char* alphabet; // permitted characters, null without a FROM constraint
    const MemberDescription* members;
    uint32_t memberCount;
    const TypeDescription* element; // List
    // Null unless named. The value is of this type, in the form of `kind`.
    int32_t (*encode)(PerContext* ctx, const void* value);
    int32_t (*decode)(PerContext* ctx, void* value);
};
