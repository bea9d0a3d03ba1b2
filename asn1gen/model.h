#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "asn1gen/syntax.h"

/// The types that code is generated for: references resolved, parameters filled in, names given.
namespace asn1gen {

enum class Kind {
    Boolean,
    Null,
    Integer,
    Enumerated,
    OctetString,
    BitString,
    CharacterString, ///< 8-bit characters
    BmpString,
    ObjectIdentifier,
    OpenType,
    Sequence,
    Choice,
    List,
};

struct Type;
struct Module;

/// A field of a SEQUENCE or an alternative of a CHOICE.
struct Component {
    std::string identifier; ///< as in the ASN.1
    std::string member;     ///< as in the record
    Type* type = nullptr;
    bool optional = false;
    bool addition = false;    ///< stands behind the extension marker
    int presenceBit = -1;     ///< SEQUENCE: bit of the presence word, -1 when always present
    uint32_t alternative = 0; ///< CHOICE: its number, from 1
};

struct Type {
    Kind kind = Kind::Null;
    Position position;
    Module* module = nullptr;
    std::string name; ///< empty for a type that its parent codes in place

    /// False for a type coded in place, and for a recursive list, which is coded by its parent.
    bool hasFunctions = false;

    /// Values of this type can contain values of this type: its functions count their depth.
    bool recursive = false;

    /// Set when this type is another named type under a new name.
    Type* alias = nullptr;

    std::optional<Range> values; ///< Enumerated: numbers of the root items, from 0
    std::optional<Range> size;
    std::optional<std::string> alphabet;
    std::string stringName; ///< CharacterString: IA5String, NumericString, ...

    /// Enumerated: names in the order in which they are coded, root items first.
    std::vector<std::string> items;

    std::vector<Component> root;
    std::vector<Component> additions;
    bool extensible = false;

    bool setOf = false;
    Type* element = nullptr; ///< List

    /// The type that the record and the encoding are of: the last one of a chain of aliases.
    const Type& definition() const {
        const Type* type = this;
        while (type->alias != nullptr) {
            type = type->alias;
        }
        return *type;
    }
};

/// How the code of a module is to be made; the generator's user chooses these.
struct ModuleOptions {
    std::string prefix;     ///< before every type name
    bool trace = true;      ///< functions trace their start and end
    std::string sourcePath; ///< what failing calls hand to rtLogError
};

struct Module {
    std::string name;
    Position position;
    ModuleOptions options;
    std::vector<Module*> imports;

    /// Named types, every type behind the types that it uses (but for recursion).
    std::vector<Type*> types;
};

struct Model {
    std::vector<std::unique_ptr<Module>> modules; ///< every module behind those it imports from
    std::vector<std::unique_ptr<Type>> types;     ///< all types, also those coded in place
};

} // namespace asn1gen
