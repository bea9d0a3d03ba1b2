#include <fmt/format.h>

#include <algorithm>

#include "asn1gen/bit_run.h"
#include "asn1gen/emit_codec.h"
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
    if (type.kind == Kind::Integer) {
        decodeInteger(writer, type, value);
        return;
    }
    if (type.kind == Kind::Enumerated) {
        decodeEnumerated(writer, type, value);
        return;
    }
    const std::string data = value.member("data");
    std::vector<std::string> arguments = {value.address()};
    std::string prefix = "pd_";
    if (isSizedString(type)) {
        arguments = {"&" + value.member(countMember(type)), data, "sizeof " + data};
    } else if (type.kind == Kind::OpenType) {
        arguments = {"&" + data, "&" + value.member(countMember(type))};
    } else if (type.kind == Kind::OctetString || type.kind == Kind::BitString) {
        prefix = "pd_Dyn";
    }
    emitPrimitive(writer, prefix, type, arguments);
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

void decodeRun(CodeWriter& writer, const std::vector<const Component*>& run) {
    writer.open("");
    writer.line("uint32_t bits;");
    emitCall(writer, "pd_bitRun", {"&bits", std::to_string(run.size())});
    decodeBooleans(writer, run, 0);
    writer.close();
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
    emitRoot(writer, type, bits.booleans.size(), decodeRun, decodeValue);
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
    emitAlternatives(writer, type, type.additions, decodeAlternative);
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
    emitAlternatives(writer, type, type.root, decodeAlternative);
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
