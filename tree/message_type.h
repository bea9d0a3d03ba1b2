// What the generated tables tell about the types of today's modules: enough to read any encoding of
// them. The tables hold no code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tree {

enum class TypeKind : uint8_t {
    Boolean,
    Null,
    Integer,
    Enumerated,
    OctetString,
    BitString,
    NumericString,
    PrintableString,
    IA5String,
    GeneralString,
    BmpString,
    ObjectIdentifier,
    OpenType,
    Sequence,
    Choice,
    List,
};

struct MessageType;

// A field of a SEQUENCE or an alternative of a CHOICE.
struct MessageMember {
    const char* name; // as in the module
    const MessageType* type;
    const MessageType* contents; // what octet strings here hold an encoding of; null for others
    bool optional;
};

struct MessageType {
    const char* name; // PREFIX and name, as H225Setup_UUIE; the notation of a type without a name
    TypeKind kind;
    bool extensible; // the type itself, or the range of an INTEGER
    bool bounded;    // lower and upper hold: an INTEGER's value, ENUMERATED's root items,
                     // the size of all others
    int64_t lower;   // INT64_MAX in `upper` is a lower bound alone
    int64_t upper;
    const char* alphabet;         // permitted characters, null without a FROM constraint
    const MessageMember* members; // root ones first
    uint32_t rootCount;
    uint32_t additionCount;
    const MessageType* element; // List
    const char* const* items;   // Enumerated: names of root items, then additions
    uint32_t itemCount;
};

// Every named type of the modules, used types first.
extern const MessageType* const messageTypes[];
extern const size_t messageTypeCount;

} // namespace tree
