#include <fmt/format.h>

#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"
#include "asn1gen/memory_bound.h"

namespace asn1gen {
namespace {

// What a reader of the record cannot see from the member's C++ type.
std::string memberComment(const Component& component) {
    std::string text;
    const Type& type = *component.type;
    if (type.name.empty()) {
        text = typeNotation(type);
    }
    if (component.optional) {
        text += text.empty() ? "OPTIONAL" : " OPTIONAL";
    }
    if (component.addition) {
        text += text.empty() ? "addition" : ", addition";
    }
    return text;
}

void emitSequence(CodeWriter& writer, const Type& type) {
    writer.open("struct " + type.name);
    if (presenceBits(type) > 0) {
        writer.line("uint32_t presence;");
    }
    for (const auto* list : {&type.root, &type.additions}) {
        for (const Component& component : *list) {
            if (!isNull(*component.type)) {
                writer.member(valueType(*component.type) + " " + component.member + ";",
                              memberComment(component));
            }
        }
    }
    if (keepsExtension(type)) {
        writer.line("OpenTypeValue extension;");
    }
    writer.close(";");
    for (const auto* list : {&type.root, &type.additions}) {
        for (const Component& component : *list) {
            if (component.presenceBit >= 0) {
                writer.assignment("constexpr uint32_t " + presenceName(type, component),
                                  fmt::format("{:#x}", uint32_t{1} << component.presenceBit));
            }
        }
    }
}

void emitEnumerated(CodeWriter& writer, const Type& type) {
    writer.line(fmt::format("using {} = uint32_t;", type.name));
    for (size_t i = 0; i < type.items.size(); ++i) {
        writer.assignment("constexpr uint32_t " + itemName(type, type.items[i]), std::to_string(i));
    }
}

bool hasMembers(const Type& choice) {
    for (const auto* list : {&choice.root, &choice.additions}) {
        for (const Component& component : *list) {
            if (!isNull(*component.type)) {
                return true;
            }
        }
    }
    return keepsExtension(choice);
}

void emitChoice(CodeWriter& writer, const Type& type) {
    writer.open("struct " + type.name);
    writer.line("uint32_t alternative;");
    if (hasMembers(type)) {
        writer.open("union");
        for (const auto* list : {&type.root, &type.additions}) {
            for (const Component& component : *list) {
                if (!isNull(*component.type)) {
                    writer.member(valueType(*component.type) +
                                      (heldByPointer(*component.type) ? "* " : " ") +
                                      component.member + ";",
                                  memberComment(component));
                }
            }
        }
        if (keepsExtension(type)) {
            writer.line("OpenTypeValue* extension;");
        }
        writer.close(" value;");
    }
    writer.close(";");
    for (const auto* list : {&type.root, &type.additions}) {
        for (const Component& component : *list) {
            writer.assignment("constexpr uint32_t " + alternativeName(type, component),
                              std::to_string(component.alternative));
        }
    }
    if (type.extensible) {
        writer.assignment("constexpr uint32_t " + type.name + "_UnknownChosen",
                          std::to_string(type.root.size() + type.additions.size() + 1));
    }
}

void emitRecord(CodeWriter& writer, const Type& type) {
    if (type.alias != nullptr) {
        writer.line(fmt::format("using {} = {};", type.name, type.alias->name));
        return;
    }
    if (type.kind == Kind::Sequence) {
        emitSequence(writer, type);
    } else if (type.kind == Kind::Choice) {
        emitChoice(writer, type);
    } else if (type.kind == Kind::Enumerated) {
        emitEnumerated(writer, type);
    } else if (type.kind == Kind::List) {
        writer.open("struct " + type.name);
        writer.line("uint32_t count;");
        writer.line(valueType(*type.element) + "* elements;");
        writer.close(";");
    } else if (isSizedString(type)) {
        writer.open("struct " + type.name);
        writer.line(fmt::format("uint32_t {};", countMember(type)));
        writer.line(fmt::format("uint8_t data[{}];", arrayOctets(type)));
        writer.close(";");
    } else {
        Type unnamed = type;
        unnamed.name.clear();
        writer.line(fmt::format("using {} = {};", type.name, valueType(unnamed)));
    }
}

void emitDeclarations(CodeWriter& writer, const Type& type) {
    writer.comment("/// ", typeNotation(type.definition()) +
                               (type.definition().extensible ? ", extensible" : ""));
    emitRecord(writer, type);
    if (type.hasFunctions) {
        const Signature encoder = encoderSignature(type);
        const Signature decoder = decoderSignature(type);
        writer.list(encoder.head, encoder.arguments, ");");
        writer.list(decoder.head, decoder.arguments, ");");
    }
    writer.line();
}

constexpr std::string_view explanation =
    R"(// Every type has a record and two functions. asn1PE_ appends the encoding of a value at the
// context's cursor, asn1PD_ decodes one from there into a record of the caller's. Both return 0 or
// the first status that failed (asn1per/status.h); then the message is to be given up and the
// context released. What a record points to lives in the context that decoded it until
// pu_freeContext; kept extension content needs the decoded buffer as well. A decoder sets every
// member of a record but those that are absent and the other members of a union.
//
// SEQUENCE: `presence` has a bit for every OPTIONAL field and every addition, named
// RECORD_fieldPresent. `extension` holds unknown additions of a type that knows none.
// CHOICE: `alternative` counts from 1, root alternatives first, named RECORD_nameChosen; one past
// the last is an alternative that is not known (RECORD_UnknownChosen).
// ENUMERATED: items count from 0 in the order of their numbers, then additions, named TYPE_nameItem;
// an unknown addition has a number past the last.
)";

} // namespace

std::string emitHeader(const Module& module, const EmitOptions& options) {
    CodeWriter writer;
    writer.line(fmt::format(
        "// The types of the ASN.1 module {}. Generated by asn1gen, not edited.", module.name));
    writer.line("//");
    std::string text = writer.text() + std::string(explanation);

    CodeWriter body;
    body.line("#pragma once");
    body.line();
    body.line("#include <cstdint>");
    body.line();
    body.line("#include \"asn1per/asn1per.h\"");
    for (const Module* import : module.imports) {
        body.line(fmt::format("#include \"{}{}.h\"", options.includeDirectory, import->name));
    }
    body.line();
    body.comment("// ",
                 "Decoding a value of this module takes at most so many octets of heap for each "
                 "octet of the encoding, besides the unused rest of heap blocks.");
    body.assignment(fmt::format("constexpr uint32_t {}MemoryPerOctet", module.options.prefix),
                    std::to_string(memoryPerOctet(module)));
    body.line();
    bool declared = false;
    for (const Type* type : module.types) {
        if (type->recursive && type->alias == nullptr) {
            body.line("struct " + type->name + ";");
            declared = true;
        }
    }
    if (declared) {
        body.line();
    }
    for (const Type* type : module.types) {
        emitDeclarations(body, *type);
    }
    text += body.text();
    text.pop_back(); // the empty line behind the last type
    return text;
}

} // namespace asn1gen
