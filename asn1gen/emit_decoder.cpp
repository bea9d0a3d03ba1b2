#include <fmt/format.h>

#include <algorithm>

#include "asn1gen/bit_run.h"
#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"

namespace asn1gen {
namespace {

void decodeInteger(CodeWriter& writer, const Type& type, const ValueRef& value) {
    if (!type.values) {
        // A length of 0 octets leaves the destination as it is.
        writer.line(value.get() + " = 0;");
        emitCall(writer, "pd_UnconsInteger", {value.address()});
        return;
    }
    const bool isWide = isUnsigned(type);
    const std::string function = isWide ? "pd_ConsUnsigned" : "pd_ConsInteger";
    const std::string suffix = isWide ? "U" : "";
    const std::vector<std::string> arguments = {value.address(),
                                                std::to_string(type.values->lower) + suffix,
                                                std::to_string(type.values->upper) + suffix};
    if (!type.values->extensible) {
        emitCall(writer, function, arguments);
        return;
    }
    // X.691 12.1: a value outside the extensible range is coded without bounds.
    writer.open("");
    writer.line("uint8_t outside;");
    emitCall(writer, "pd_bit", {"&outside"});
    writer.open("if (outside != 0)");
    writer.line(value.get() + " = 0;");
    emitCall(writer, "pd_UnconsInteger", {value.address()});
    writer.close(" else {");
    writer.indent();
    emitCall(writer, function, arguments);
    writer.close();
    writer.close();
}

// X.691 13: like the index of a CHOICE without what it chooses.
void decodeEnumerated(CodeWriter& writer, const Type& type, const ValueRef& value) {
    const int64_t last = type.values->upper;
    writer.open("");
    writer.line("uint32_t item;");
    if (type.extensible) {
        emitCall(writer, "pd_choiceHead", {"&item", std::to_string(last)});
        writer.open("if (item == PER_EXTENDED)");
        emitCall(writer, "pd_SmallNonNegWholeNumber", {"&item"});
        writer.open(fmt::format("if (item > UINT32_MAX - {})", last + 1));
        writer.line("FAIL(PER_CONSTRAINT);");
        writer.close();
        writer.line(fmt::format("item += {};", last + 1));
        writer.close(fmt::format(" else if (item > {}) {{", last));
        writer.indent();
    } else {
        emitCall(writer, "pd_ConsUnsigned", {"&item", "0", std::to_string(last)});
        writer.open(fmt::format("if (item > {})", last));
    }
    writer.line("FAIL(PER_CONSTRAINT);");
    writer.close();
    writer.line(value.get() + " = item;");
    writer.close();
}

void decodeSimple(CodeWriter& writer, const Type& type, const ValueRef& value) {
    std::string function;
    std::vector<std::string> arguments = {value.address()};
    switch (type.kind) {
    case Kind::Boolean:
        function = "pd_bit";
        break;
    case Kind::Integer:
        decodeInteger(writer, type, value);
        return;
    case Kind::Enumerated:
        decodeEnumerated(writer, type, value);
        return;
    case Kind::OctetString:
    case Kind::BitString:
        function = type.kind == Kind::BitString ? "pd_DynBitString" : "pd_DynOctetString";
        if (type.size) {
            function = type.kind == Kind::BitString ? "pd_BitString" : "pd_OctetString";
            const char* count = type.kind == Kind::BitString ? "numbits" : "numocts";
            arguments = {"&" + value.member(count), value.member("data"),
                         "sizeof " + value.member("data")};
        }
        break;
    case Kind::CharacterString:
        function = "pd_" + type.stringName;
        arguments.push_back(type.alphabet ? quote(*type.alphabet) : "nullptr");
        break;
    case Kind::BmpString:
        function = "pd_BMPString";
        arguments.push_back("nullptr");
        break;
    case Kind::ObjectIdentifier:
        function = "pd_ObjectIdentifier";
        break;
    case Kind::OpenType:
        function = "pd_OpenType";
        arguments = {"&" + value.member("data"), "&" + value.member("numocts")};
        break;
    default:
        return;
    }
    addSize(function, arguments, type);
    emitCall(writer, function, arguments);
}

void decodeValue(CodeWriter& writer, const Type& type, const ValueRef& value) {
    if (type.name.empty()) {
        decodeSimple(writer, type, value);
        return;
    }
    const std::string function = (type.hasFunctions ? "asn1PD_" : "decode") + type.name;
    if (isCodedInPlace(type)) {
        openInPlace(writer, type, function, {value.address()});
        decodeSimple(writer, type.definition(), value);
        closeInPlace(writer, type);
    } else {
        emitCall(writer, function, {value.address()});
    }
}

ValueRef memberRef(const Component& component) {
    return ValueRef::object("value->" + component.member);
}

// SEQUENCE.

void decodeBooleans(CodeWriter& writer, const std::vector<const Component*>& run, int at) {
    for (const Component* component : run) {
        const std::string bit = at == 0 ? "bits" : fmt::format("(bits >> {})", at);
        writer.line(fmt::format("value->{} = {} & 1;", component->member, bit));
        ++at;
    }
}

void decodeLeadingBits(CodeWriter& writer, const Type& type, const LeadingBits& bits) {
    const bool presenceWord = presenceBits(type) > 0;
    if (bits.count() == 0) {
        if (presenceWord) {
            writer.line("value->presence = 0;");
        }
        return;
    }
    writer.line("uint32_t bits;");
    emitCall(writer, "pd_bitRun", {"&bits", std::to_string(bits.count())});
    if (bits.extension) {
        writer.line("const bool extended = (bits & 1) != 0;");
    }
    if (presenceWord) {
        const uint32_t mask = (uint32_t{1} << bits.presence) - 1;
        writer.line(bits.presence == 0
                        ? "value->presence = 0;"
                        : fmt::format("value->presence = {} & {:#x};",
                                      bits.extension ? "(bits >> 1)" : "bits", mask));
    }
    decodeBooleans(writer, bits.booleans, bits.booleansAt());
}

void decodeField(CodeWriter& writer, const Type& type, const Component& component) {
    if (isNull(*component.type)) {
        return;
    }
    if (component.presenceBit < 0) {
        decodeValue(writer, *component.type, memberRef(component));
        return;
    }
    writer.open("if ((value->presence & " + presenceName(type, component) + ") != 0)");
    decodeValue(writer, *component.type, memberRef(component));
    writer.close();
}

void decodeRoot(CodeWriter& writer, const Type& type, const LeadingBits& leading) {
    constexpr size_t longestRun = 32;
    for (size_t i = leading.booleans.size(); i < type.root.size();) {
        const auto run = booleanRun(type.root, i, longestRun);
        if (run.size() > 1) {
            writer.open("");
            writer.line("uint32_t bits;");
            emitCall(writer, "pd_bitRun", {"&bits", std::to_string(run.size())});
            decodeBooleans(writer, run, 0);
            writer.close();
            i += run.size();
        } else {
            decodeField(writer, type, type.root[i]);
            ++i;
        }
    }
}

/// The encoder writes additions that are not OPTIONAL whenever there is any. A peer may leave one
/// out: what is encoded then must not be whatever the memory held before.
void clearMissingAdditions(CodeWriter& writer, const Type& type) {
    for (const Component& addition : type.additions) {
        if (!addition.optional && !isNull(*addition.type)) {
            writer.open("if ((value->presence & " + presenceName(type, addition) + ") == 0)");
            writer.line("value->" + addition.member + " = {};");
            writer.close();
        }
    }
}

void decodeAdditions(CodeWriter& writer, const Type& type) {
    writer.open("if (extended)");
    writer.line("PerAdditions additions;");
    emitCall(writer, "pd_beginAdditions", {"&additions"});
    writer.line("int32_t next;");
    writer.open(fmt::format("while ((next = pd_nextAddition(ctx, &additions, {})) > 0)",
                            type.additions.size()));
    if (type.module->options.trace) {
        writer.line("pu_setFieldTracking(ctx, 0);");
    }
    writer.open("switch (additions.index)");
    for (size_t i = 0; i < type.additions.size(); ++i) {
        const Component& addition = type.additions[i];
        writer.label(fmt::format("case {}:", i));
        writer.line("value->presence |= " + presenceName(type, addition) + ";");
        if (!isNull(*addition.type)) {
            decodeValue(writer, *addition.type, memberRef(addition));
        }
        writer.line("break;");
    }
    writer.label("default:");
    writer.line("break;");
    writer.close();
    writer.close();
    writer.line("CHECK(next);");
    clearMissingAdditions(writer, type);
    writer.close();
}

void decodeSequence(CodeWriter& writer, const Type& type) {
    const LeadingBits bits = leadingBits(type);
    decodeLeadingBits(writer, type, bits);
    decodeRoot(writer, type, bits);
    if (!type.additions.empty()) {
        decodeAdditions(writer, type);
    } else if (type.extensible) {
        writer.line("value->extension = {};");
        writer.open("if (extended)");
        emitCall(writer, "pd_OpenTypeExt", {"&value->extension"});
        writer.close();
    }
    if (type.root.empty() && !type.extensible) {
        writer.line("(void)value;");
    }
}

// CHOICE.

void decodeAlternative(CodeWriter& writer, const Component& alternative) {
    const Type& type = *alternative.type;
    if (isNull(type)) {
        return;
    }
    const std::string member = "value->value." + alternative.member;
    if (heldByPointer(type)) {
        emitCall(writer, "allocate", {"&" + member});
        decodeValue(writer, type, ValueRef::pointer(member));
    } else {
        decodeValue(writer, type, ValueRef::object(member));
    }
}

/// The switch over an index that was read; alternatives without a member need no case of their own.
void decodeAlternatives(CodeWriter& writer, const Type& type,
                        const std::vector<Component>& alternatives) {
    const bool needed = std::any_of(alternatives.begin(), alternatives.end(),
                                    [](const Component& c) { return !isNull(*c.type); });
    if (!needed) {
        return;
    }
    writer.open("switch (value->alternative)");
    for (const Component& alternative : alternatives) {
        if (!isNull(*alternative.type)) {
            writer.label("case " + alternativeName(type, alternative) + ":");
            decodeAlternative(writer, alternative);
            writer.line("break;");
        }
    }
    writer.label("default:");
    writer.line("break;");
    writer.close();
}

void decodeExtensionAlternative(CodeWriter& writer, const Type& type) {
    const size_t roots = type.root.size();
    const size_t known = type.additions.size();
    writer.line("PerOpenType open;");
    emitCall(writer, "pd_beginAlternative", {"&open", "&index"});
    writer.line("// A lenient decoder steps over an alternative that is not known.");
    writer.open(fmt::format("if (index >= {})", known));
    writer.open("if (ctx->lenient == 0)");
    writer.line("FAIL(PER_BAD_CHOICE);");
    writer.close();
    writer.line(fmt::format("index = {};", known));
    writer.close();
    writer.line(fmt::format("value->alternative = index + {};", roots + 1));
    if (type.module->options.trace) {
        writer.line("pu_setFieldTracking(ctx, 0);");
    }
    decodeAlternatives(writer, type, type.additions);
    writer.line("pd_endOpenType(ctx, &open);");
}

void decodeRootAlternative(CodeWriter& writer, const Type& type) {
    const size_t roots = type.root.size();
    // The bits of an index can hold more than the last one unless their number is a power of two.
    if ((roots & (roots - 1)) != 0) {
        writer.open(fmt::format("if (index >= {}) [[unlikely]]", roots));
        writer.line("FAIL(PER_BAD_CHOICE);");
        writer.close();
    }
    writer.line("value->alternative = index + 1;");
    decodeAlternatives(writer, type, type.root);
}

void decodeChoice(CodeWriter& writer, const Type& type) {
    const std::string last = std::to_string(type.root.size() - 1);
    writer.line("uint32_t index;");
    if (!type.extensible) {
        emitCall(writer, "pd_ConsUnsigned", {"&index", "0", last});
        decodeRootAlternative(writer, type);
        return;
    }
    emitCall(writer, "pd_choiceHead", {"&index", last});
    writer.open("if (index == PER_EXTENDED)");
    if (keepsExtension(type)) {
        writer.line(fmt::format("value->alternative = {};", type.root.size() + 1));
        emitCall(writer, "allocate", {"&value->value.extension"});
        emitCall(writer, "pd_ChoiceOpenTypeExt", {"value->value.extension"});
    } else {
        decodeExtensionAlternative(writer, type);
    }
    writer.close(" else {");
    writer.indent();
    decodeRootAlternative(writer, type);
    writer.close();
}

// SEQUENCE OF, SET OF.

void decodeList(CodeWriter& writer, const Type& type) {
    const int64_t least = std::max<int64_t>(minimalBits(*type.element), 1);
    std::string function = "pd_listCount";
    std::vector<std::string> arguments = {"&value->count", std::to_string(least)};
    addSize(function, arguments, type);
    emitCall(writer, function, arguments);
    emitCall(writer, "allocateArray", {"&value->elements", "value->count"});
    writer.open("for (uint32_t i = 0; i < value->count; ++i)");
    decodeValue(writer, *type.element, ValueRef::object("value->elements[i]"));
    writer.close();
}

void decodeBody(CodeWriter& writer, const Type& type) {
    if (type.alias != nullptr) {
        emitCall(writer, "asn1PD_" + type.alias->name, {"value"});
        return;
    }
    switch (type.kind) {
    case Kind::Sequence:
        decodeSequence(writer, type);
        break;
    case Kind::Choice:
        decodeChoice(writer, type);
        break;
    case Kind::List:
        decodeList(writer, type);
        break;
    default:
        decodeSimple(writer, type, ValueRef::pointer("value"));
    }
}

} // namespace

void emitDecoder(CodeWriter& writer, const Type& type) {
    emitFunction(writer, type, decoderSignature(type), "pd_", decodeBody);
}

} // namespace asn1gen
