#include "asn1gen/emitter.h"

#include <fmt/format.h>

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

bool isNull(const Type& type) {
    return type.definition().kind == Kind::Null;
}

Signature encoderSignature(const Type& type) {
    Signature result{functionHead(type, "asn1PE_", "encode"), {"PerContext* ctx"}};
    auto& arguments = result.arguments;
    const Type& definition = type.definition();
    switch (definition.kind) {
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Enumerated:
    case Kind::CharacterString:
        arguments.push_back(type.name + " value");
        break;
    case Kind::BmpString:
        arguments.insert(arguments.end(), {"uint32_t nchars", "const uint16_t* data"});
        break;
    case Kind::OpenType:
        arguments.insert(arguments.end(), {"uint32_t numocts", "const uint8_t* data"});
        break;
    case Kind::OctetString:
    case Kind::BitString:
        if (isSizedString(definition)) {
            arguments.push_back("const " + type.name + "& value");
        } else {
            const char* count =
                definition.kind == Kind::BitString ? "uint32_t numbits" : "uint32_t numocts";
            arguments.insert(arguments.end(), {count, "const uint8_t* data"});
        }
        break;
    default:
        arguments.push_back("const " + type.name + "* value");
    }
    return result;
}

Signature decoderSignature(const Type& type) {
    return {functionHead(type, "asn1PD_", "decode"), {"PerContext* ctx", type.name + "* value"}};
}

std::string Signature::callAgain() const {
    const auto lastWord = [](const std::string& text) {
        return text.substr(text.find_last_of(" *&") + 1);
    };
    std::string call = lastWord(head) + "(";
    for (size_t i = 0; i < arguments.size(); ++i) {
        call += (i == 0 ? "" : ", ") + lastWord(arguments[i]);
    }
    return call + ")";
}

void emitCall(CodeWriter& writer, const std::string& function, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "ctx");
    writer.list("CHECK(" + function, arguments, "));");
}

void addSize(std::string& function, std::vector<std::string>& arguments, const Type& type) {
    if (type.size) {
        function += "Sized";
        arguments.push_back(std::to_string(type.size->lower));
        arguments.push_back(std::to_string(type.size->upper));
    }
}

void emitFunction(CodeWriter& writer, const Type& type, const Signature& signature,
                  const std::string& nesting, void (*body)(CodeWriter& writer, const Type& type)) {
    writer.list(signature.head, signature.arguments, ") {");
    writer.indent();
    if (type.hasFunctions && type.module->options.trace) {
        const std::string call = signature.callAgain();
        const std::string name = "\"" + call.substr(0, call.find('(')) + "\"";
        writer.open("if (rtTraceOn != 0 && pu_beginTrace(ctx, " + name + "))");
        writer.list("return pu_endTrace", {name, call}, ");");
        writer.close();
    }
    if (type.recursive) {
        emitCall(writer, nesting + "enter", {});
    }
    body(writer, type);
    if (type.recursive) {
        writer.line(nesting + "leave(ctx);");
    }
    writer.line("return PER_OK;");
    writer.close();
}

bool isCodedInPlace(const Type& type) {
    switch (type.definition().kind) {
    case Kind::Null:
    case Kind::Sequence:
    case Kind::Choice:
    case Kind::List:
        return false;
    default:
        return true;
    }
}

void openInPlace(CodeWriter& writer, const Type& type, const std::string& function,
                 const std::vector<std::string>& arguments) {
    if (type.module->options.trace) {
        writer.open("if (rtTraceOn != 0) [[unlikely]]");
        emitCall(writer, function, arguments);
        writer.close(" else {");
        writer.indent();
    }
}

void closeInPlace(CodeWriter& writer, const Type& type) {
    if (type.module->options.trace) {
        writer.close();
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

std::string itemName(const Type& enumerated, const std::string& item) {
    return enumerated.name + "_" + cName(item) + "Item";
}

} // namespace asn1gen
