#include "asn1gen/emit_codec.h"

#include <algorithm>

#include "asn1gen/bit_run.h"

namespace asn1gen {
namespace {

std::string primitiveName(const Type& type) {
    switch (type.kind) {
    case Kind::Boolean:
        return "bit";
    case Kind::CharacterString:
        return type.stringName;
    case Kind::BmpString:
        return "BMPString";
    default:
        return kindName(type.kind);
    }
}

} // namespace

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

void emitCall(CodeWriter& writer, const std::string& function, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "ctx");
    writer.list("CHECK(" + function, arguments, "));");
}

void emitPrimitive(CodeWriter& writer, const std::string& prefix, const Type& type,
                   std::vector<std::string> arguments) {
    std::string function = prefix + primitiveName(type);
    if (type.kind == Kind::CharacterString) {
        arguments.push_back(type.alphabet ? quote(*type.alphabet) : "nullptr");
    } else if (type.kind == Kind::BmpString) {
        arguments.emplace_back("nullptr");
    }
    addSize(function, arguments, type);
    emitCall(writer, function, arguments);
}

void addSize(std::string& function, std::vector<std::string>& arguments, const Type& type) {
    if (type.size) {
        function += "Sized";
        arguments.push_back(std::to_string(type.size->lower));
        arguments.push_back(std::to_string(type.size->upper));
    }
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

ValueRef memberRef(const Component& component) {
    return ValueRef::object("value->" + component.member);
}

static void emitField(CodeWriter& writer, const Type& type, const Component& component,
                      ValueCode value) {
    if (isNull(*component.type)) {
        return;
    }
    if (component.presenceBit < 0) {
        value(writer, *component.type, memberRef(component));
        return;
    }
    writer.open("if ((value->presence & " + presenceName(type, component) + ") != 0)");
    value(writer, *component.type, memberRef(component));
    writer.close();
}

void emitRoot(CodeWriter& writer, const Type& sequence, size_t first, RunCode run,
              ValueCode value) {
    constexpr size_t longestRun = 32;
    for (size_t i = first; i < sequence.root.size();) {
        const auto booleans = booleanRun(sequence.root, i, longestRun);
        if (booleans.size() > 1) {
            run(writer, booleans);
            i += booleans.size();
        } else {
            emitField(writer, sequence, sequence.root[i], value);
            ++i;
        }
    }
}

void emitAlternatives(CodeWriter& writer, const Type& choice,
                      const std::vector<Component>& alternatives, AlternativeCode code) {
    const auto hasMember = [](const Component& c) { return !isNull(*c.type); };
    if (std::none_of(alternatives.begin(), alternatives.end(), hasMember)) {
        return;
    }
    writer.open("switch (value->alternative)");
    for (const Component& alternative : alternatives) {
        if (hasMember(alternative)) {
            writer.label("case " + alternativeName(choice, alternative) + ":");
            code(writer, alternative);
            writer.line("break;");
        }
    }
    writer.label("default:");
    writer.line("break;");
    writer.close();
}

} // namespace asn1gen
