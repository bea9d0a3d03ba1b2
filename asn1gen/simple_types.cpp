#include "asn1gen/simple_types.h"

#include <cctype>
#include <limits>
#include <map>
#include <set>
#include <string_view>

namespace asn1gen {
namespace {

Kind simpleKind(const TypeSyntax& type) {
    switch (type.kind) {
    case SyntaxKind::Boolean:
        return Kind::Boolean;
    case SyntaxKind::Integer:
        return Kind::Integer;
    case SyntaxKind::Enumerated:
        return Kind::Enumerated;
    case SyntaxKind::OctetString:
        return Kind::OctetString;
    case SyntaxKind::BitString:
        return Kind::BitString;
    case SyntaxKind::CharacterString:
        return type.name == "BMPString" ? Kind::BmpString : Kind::CharacterString;
    case SyntaxKind::ObjectIdentifier:
        return Kind::ObjectIdentifier;
    case SyntaxKind::OpenType:
        return Kind::OpenType;
    default:
        return Kind::Null;
    }
}

// Ranges that PER codes as if they were not there keep no trace: MIN..b is coded as without bounds.
void checkRange(const Position& position, const Range& range) {
    constexpr int64_t max = std::numeric_limits<uint32_t>::max();
    constexpr int64_t min = std::numeric_limits<int32_t>::min();
    const bool wide = range.upper > std::numeric_limits<int32_t>::max();
    const bool open = range.upper == Range::greatest;
    if ((range.upper > max && !open) || range.lower < min || (wide && !open && range.lower < 0)) {
        throw SourceError(position, "the range needs more than 32 bits, which is not supported");
    }
}

bool ownsCharacter(const std::string& stringName, char character) {
    const auto octet = static_cast<unsigned char>(character);
    constexpr unsigned char lastOfIa5 = 127;
    if (stringName == "NumericString") {
        return character == ' ' || (character >= '0' && character <= '9');
    }
    if (stringName == "PrintableString") {
        return octet <= lastOfIa5 &&
               (std::isalnum(octet) != 0 ||
                std::string_view(" '()+,-./:=?").find(character) != std::string_view::npos);
    }
    return stringName != "IA5String" || octet <= lastOfIa5;
}

/// The permitted characters that a string of this kind can have at all.
std::string effectiveAlphabet(const TypeSyntax& type) {
    std::string result;
    for (const char character : *type.constraints.alphabet) {
        if (ownsCharacter(type.name, character) && result.find(character) == std::string::npos) {
            result += character;
        }
    }
    if (result.empty()) {
        throw SourceError(type.position, "FROM leaves no character that " + type.name + " has");
    }
    return result;
}

/// Items are coded by their place among the numbers of the root, additions by their order
/// (X.691 13). An item without a number takes the least that no numbered one has (X.680 19.3).
void enumerate(Type& type, const TypeSyntax& syntax) {
    std::set<std::string> names;
    std::set<int64_t> taken;
    for (const auto* list : {&syntax.items, &syntax.addedItems}) {
        for (const EnumerationItem& item : *list) {
            if (!names.insert(item.name).second) {
                throw SourceError(item.position, item.name + " is defined twice");
            }
            if (item.number && !taken.insert(*item.number).second) {
                throw SourceError(item.position,
                                  "the number of " + item.name + " is taken already");
            }
        }
    }
    if (syntax.items.empty()) {
        throw SourceError(syntax.position, "an ENUMERATED needs an item before \"...\"");
    }
    std::map<int64_t, std::string> root;
    int64_t next = 0;
    for (const EnumerationItem& item : syntax.items) {
        while (!item.number && taken.count(next) != 0) {
            ++next;
        }
        taken.insert(item.number.value_or(next));
        root[item.number.value_or(next)] = item.name;
    }
    for (const auto& [number, name] : root) {
        type.items.push_back(name);
    }
    for (const EnumerationItem& item : syntax.addedItems) {
        type.items.push_back(item.name);
    }
    type.extensible = syntax.extensible;
    type.values = Range{0, static_cast<int64_t>(root.size()) - 1, syntax.extensible};
}

} // namespace

void checkConstraints(const TypeSyntax& type) {
    const Constraints& constraints = type.constraints;
    const bool string = type.kind == SyntaxKind::OctetString ||
                        type.kind == SyntaxKind::BitString ||
                        type.kind == SyntaxKind::CharacterString;
    if (constraints.values && type.kind != SyntaxKind::Integer) {
        throw SourceError(type.position, "a value constraint is supported for INTEGER only");
    }
    if (constraints.size && !string && type.kind != SyntaxKind::List) {
        throw SourceError(type.position,
                          "a SIZE constraint is supported for strings and lists only");
    }
    if (constraints.alphabet &&
        (type.kind != SyntaxKind::CharacterString || type.name == "BMPString")) {
        throw SourceError(type.position,
                          "a FROM constraint is supported for strings of 8-bit characters only");
    }
    for (const auto& range : {constraints.values, constraints.size}) {
        if (range && range->lower != Range::least) {
            checkRange(type.position, *range);
        }
    }
}

void describeSimple(const TypeSyntax& syntax, Type& type) {
    type.kind = simpleKind(syntax);
    type.values = syntax.constraints.values;
    if (type.values && type.values->lower == Range::least) {
        type.values.reset(); // coded as without bounds (X.691 12.2.4)
    }
    type.stringName = syntax.name;
    if (syntax.name != "GeneralString") { // whose constraints PER does not see (X.691 10.3.11)
        type.size = syntax.constraints.size;
        if (syntax.constraints.alphabet) {
            type.alphabet = effectiveAlphabet(syntax);
        }
    }
    if (type.kind == Kind::Enumerated) {
        enumerate(type, syntax);
    }
}

} // namespace asn1gen
