#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "asn1gen/diagnostics.h"

/// What the parser reads: an ASN.1 module as it is written, references unresolved.
namespace asn1gen {

struct TypeSyntax;
using TypeSyntaxPtr = std::unique_ptr<TypeSyntax>;

enum class SyntaxKind {
    Boolean,
    Null,
    Integer,
    Enumerated,
    OctetString,
    BitString,
    CharacterString,
    ObjectIdentifier,
    OpenType, ///< TYPE-IDENTIFIER.&Type
    Sequence,
    Choice,
    List, ///< SEQUENCE OF, SET OF
    Reference,
};

/// A range of values or sizes; both ends included.
struct Range {
    static constexpr int64_t least = std::numeric_limits<int64_t>::min();    ///< MIN
    static constexpr int64_t greatest = std::numeric_limits<int64_t>::max(); ///< MAX

    int64_t lower = 0;
    int64_t upper = 0;
    bool extensible = false;
};

/// PER-visible constraints of a type.
struct Constraints {
    std::optional<Range> values;         ///< INTEGER (a..b)
    std::optional<Range> size;           ///< SIZE (a..b)
    std::optional<std::string> alphabet; ///< FROM ("...")

    bool any() const { return values || size || alphabet; }

    /// Narrows to what satisfies `further` too, which stands behind: its extension marker counts
    /// and not the former one (X.680 50.8). Throws SourceError when nothing satisfies both.
    void intersect(const Constraints& further, const Position& position);
};

/// An item of an ENUMERATED.
struct EnumerationItem {
    std::string name;
    std::optional<int64_t> number; ///< as written
    Position position;
};

struct ComponentSyntax {
    std::string name;
    Position position;
    TypeSyntaxPtr type;
    bool optional = false;
};

struct TypeSyntax {
    SyntaxKind kind = SyntaxKind::Null;
    Position position;
    std::string name;                     ///< Reference: the name; CharacterString: its keyword
    std::vector<TypeSyntaxPtr> arguments; ///< Reference: actual parameters
    Constraints constraints;
    std::vector<ComponentSyntax> root; ///< Sequence, Choice
    std::vector<ComponentSyntax> additions;
    std::vector<EnumerationItem> items; ///< Enumerated
    std::vector<EnumerationItem> addedItems;
    bool extensible = false;
    bool setOf = false;    ///< List: SET OF instead of SEQUENCE OF
    TypeSyntaxPtr element; ///< List
};

struct AssignmentSyntax {
    std::string name;
    Position position;
    std::vector<std::string> parameters;
    TypeSyntaxPtr type;
};

struct ImportSyntax {
    std::vector<std::string> names;
    std::string module;
    Position position;
};

struct ModuleSyntax {
    std::string name;
    Position position;
    std::vector<ImportSyntax> imports;
    std::vector<AssignmentSyntax> assignments;
};

} // namespace asn1gen
