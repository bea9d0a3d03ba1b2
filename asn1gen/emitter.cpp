#include "asn1gen/emitter.h"

#include <fmt/format.h>

#include <iterator>

#include "asn1gen/layout.h"
#include "asn1gen/naming.h"

namespace asn1gen {
namespace {

// A list that its parent codes has functions that only its own source file sees.
std::string functionHead(const Type& type, const char* generated, const char* local) {
    return type.hasFunctions ? "int32_t " + std::string(generated) + type.name
                             : "static int32_t " + std::string(local) + type.name;
}

std::string rangeText(const Range& range) {
    return range.lower == range.upper       ? fmt::format("{}", range.lower)
           : range.upper == Range::greatest ? fmt::format("{}..MAX", range.lower)
                                            : fmt::format("{}..{}", range.lower, range.upper);
}

std::string kindText(const Type& type) {
    switch (type.kind) {
    case Kind::Boolean:
        return "BOOLEAN";
    case Kind::Null:
        return "NULL";
    case Kind::Integer:
        return "INTEGER";
    case Kind::Enumerated:
        return "ENUMERATED";
    case Kind::OctetString:
        return "OCTET STRING";
    case Kind::BitString:
        return "BIT STRING";
    case Kind::CharacterString:
        return type.stringName;
    case Kind::BmpString:
        return "BMPString";
    case Kind::ObjectIdentifier:
        return "OBJECT IDENTIFIER";
    case Kind::OpenType:
        return "open type, the octets of the encoding inside";
    case Kind::Sequence:
        return "SEQUENCE";
    case Kind::Choice:
        return "CHOICE";
    case Kind::List:
        return type.setOf ? "SET OF" : "SEQUENCE OF";
    }
    return "";
}

} // namespace

std::string typeNotation(const Type& type) {
    std::string text = kindText(type);
    if (type.values) {
        text +=
            fmt::format(" ({}{})", rangeText(*type.values), type.values->extensible ? ", ..." : "");
    }
    if (type.size) {
        text += fmt::format(" (SIZE ({}))", rangeText(*type.size));
    }
    if (type.alphabet) {
        text += fmt::format(" (FROM ({}))", quote(*type.alphabet));
    }
    return text;
}

const char* kindName(Kind kind) {
    constexpr const char* names[] = {"Boolean",
                                     "Null",
                                     "Integer",
                                     "Enumerated",
                                     "OctetString",
                                     "BitString",
                                     "CharacterString",
                                     "BmpString",
                                     "ObjectIdentifier",
                                     "OpenType",
                                     "Sequence",
                                     "Choice",
                                     "List"};
    static_assert(std::size(names) == static_cast<size_t>(Kind::List) + 1);
    return names[static_cast<size_t>(kind)];
}

bool isNull(const Type& type) {
    return type.definition().kind == Kind::Null;
}

namespace {

/// How an encoder takes a value.
enum class Passing {
    Value,
    Run,   ///< a count and a pointer to the items
    Array, ///< a reference to a record with a count and the octets
    Record,
};

Passing passing(const Type& type) {
    switch (type.definition().kind) {
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Enumerated:
    case Kind::CharacterString:
        return Passing::Value;
    case Kind::BmpString:
    case Kind::OpenType:
        return Passing::Run;
    case Kind::OctetString:
    case Kind::BitString:
        return isSizedString(type) ? Passing::Array : Passing::Run;
    default:
        return Passing::Record;
    }
}

std::string lastWord(const std::string& text) {
    return text.substr(text.find_last_of(" *&") + 1);
}

} // namespace

const char* countMember(const Type& string) {
    switch (string.definition().kind) {
    case Kind::BmpString:
        return "nchars";
    case Kind::BitString:
        return "numbits";
    default:
        return "numocts";
    }
}

Signature encoderSignature(const Type& type) {
    Signature result{functionHead(type, "asn1PE_", "encode"), {"PerContext* ctx"}};
    auto& arguments = result.arguments;
    switch (passing(type)) {
    case Passing::Value:
        arguments.push_back(type.name + " value");
        break;
    case Passing::Run: {
        const bool wide = type.definition().kind == Kind::BmpString;
        arguments.push_back(fmt::format("uint32_t {}", countMember(type)));
        arguments.emplace_back(wide ? "const uint16_t* data" : "const uint8_t* data");
        break;
    }
    case Passing::Array:
        arguments.push_back("const " + type.name + "& value");
        break;
    case Passing::Record:
        arguments.push_back("const " + type.name + "* value");
        break;
    }
    return result;
}

Signature decoderSignature(const Type& type) {
    return {functionHead(type, "asn1PD_", "decode"), {"PerContext* ctx", type.name + "* value"}};
}

std::vector<std::string> Signature::names() const {
    std::vector<std::string> result;
    for (size_t i = 1; i < arguments.size(); ++i) {
        result.push_back(lastWord(arguments[i]));
    }
    return result;
}

std::string Signature::callAgain() const {
    std::string call = lastWord(head) + "(ctx";
    for (const std::string& name : names()) {
        call += ", " + name;
    }
    return call + ")";
}

std::vector<std::string> valueArguments(const Type& type, const ValueRef& value) {
    switch (passing(type)) {
    case Passing::Value:
    case Passing::Array:
        return {value.get()};
    case Passing::Run:
        return {value.member(countMember(type)), value.member("data")};
    default:
        return {value.address()};
    }
}

std::string presenceName(const Type& sequence, const Component& component) {
    return sequence.name + "_" + cName(component.identifier) + "Present";
}

std::string alternativeName(const Type& choice, const Component& component) {
    return choice.name + "_" + cName(component.identifier) + "Chosen";
}

std::string quote(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto octet = static_cast<unsigned char>(c);
        // A backslash at the end of a comment would go on in the next line.
        if (c == '"') {
            result += "\\\"";
        } else if (octet < ' ' || octet > '~' || c == '\\' || c == '?') {
            result += fmt::format("\\{:03o}", octet);
        } else {
            result += c;
        }
    }
    return result + "\"";
}

std::string boolean(bool value) {
    return value ? "true" : "false";
}

std::string itemName(const Type& enumerated, const std::string& item) {
    return enumerated.name + "_" + cName(item) + "Item";
}

} // namespace asn1gen
