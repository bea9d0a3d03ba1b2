#include <fmt/format.h>

#include <limits>

#include "asn1gen/bit_run.h"
#include "asn1gen/emit_codec.h"
#include "asn1gen/layout.h"

namespace asn1gen {
namespace {

/// The arguments behind the context for the primitive that codes a simple type.
std::vector<std::string> primitiveArguments(const Type& type, const ValueRef& value) {
    if (!isSizedString(type)) {
        return valueArguments(type, value);
    }
    return {value.member(countMember(type)), value.member("data")};
}

std::string bound(const Type& type, int64_t value) {
    if (isUnsigned(type)) {
        return fmt::format("{}U", value);
    }
    // The literal of the smallest value would be the negation of one that does not fit.
    return value == std::numeric_limits<int32_t>::min() ? "INT32_MIN" : std::to_string(value);
}

/// The conditions under which a value lies outside its range; none when it never does.
std::vector<std::string> outside(const Type& type, const std::string& value) {
    const Range& range = *type.values;
    std::vector<std::string> conditions;
    const int64_t least = isUnsigned(type) ? 0 : std::numeric_limits<int32_t>::min();
    const int64_t greatest = isUnsigned(type) ? std::numeric_limits<uint32_t>::max()
                                              : std::numeric_limits<int32_t>::max();
    if (range.lower > least) {
        conditions.push_back(value + " < " + bound(type, range.lower));
    }
    if (range.upper < greatest) {
        conditions.push_back(value + " > " + bound(type, range.upper));
    }
    return conditions;
}

void encodeInteger(CodeWriter& writer, const Type& type, const std::string& value) {
    if (!type.values) {
        emitCall(writer, "pe_UnconsInteger", {value});
        return;
    }
    const std::string function = isUnsigned(type) ? "pe_ConsUnsigned" : "pe_ConsInteger";
    const std::vector<std::string> arguments = {value, bound(type, type.values->lower),
                                                bound(type, type.values->upper)};
    const std::vector<std::string> conditions = outside(type, value);
    if (!type.values->extensible) {
        if (!conditions.empty()) {
            writer.openIf(conditions, " [[unlikely]]");
            writer.line("FAIL(PER_CONSTRAINT);");
            writer.close();
        }
        emitCall(writer, function, arguments);
        return;
    }
    // X.691 12.1: a value outside the extensible range is coded without bounds.
    writer.openIf(conditions, "");
    emitCall(writer, "pe_bit", {"1"});
    emitCall(writer, "pe_UnconsInteger", {value});
    writer.close(" else {");
    writer.indent();
    emitCall(writer, "pe_bit", {"0"});
    emitCall(writer, function, arguments);
    writer.close();
}

void encodeEnumerated(CodeWriter& writer, const Type& type, const std::string& value) {
    const int64_t last = type.values->upper;
    writer.open(fmt::format("if ({} > {})", value, last));
    if (!type.extensible) {
        writer.line("FAIL(PER_CONSTRAINT);");
        writer.close();
        emitCall(writer, "pe_ConsUnsigned", {value, "0", std::to_string(last)});
        return;
    }
    emitCall(writer, "pe_bit", {"1"});
    emitCall(writer, "pe_SmallNonNegWholeNumber", {fmt::format("{} - {}", value, last + 1)});
    writer.close(" else {");
    writer.indent();
    emitCall(writer, "pe_choiceHead", {value + " + 1", std::to_string(last)});
    writer.close();
}

/// arguments as primitiveArguments gives them.
void encodeSimple(CodeWriter& writer, const Type& type, std::vector<std::string> arguments) {
    if (type.kind == Kind::Integer) {
        encodeInteger(writer, type, arguments[0]);
        return;
    }
    if (type.kind == Kind::Enumerated) {
        encodeEnumerated(writer, type, arguments[0]);
        return;
    }
    if (type.kind == Kind::Boolean) {
        arguments[0] += " != 0";
    }
    emitPrimitive(writer, "pe_", type, std::move(arguments));
}

void encodeValue(CodeWriter& writer, const Type& type, const ValueRef& value) {
    if (isNull(type)) {
        return;
    }
    const std::vector<std::string> arguments = valueArguments(type, value);
    if (type.name.empty()) {
        encodeSimple(writer, type, arguments);
        return;
    }
    const std::string function = (type.hasFunctions ? "asn1PE_" : "encode") + type.name;
    if (isCodedInPlace(type)) {
        // As the type's own function receives it, with the members of its record.
        openInPlace(writer, type, function, arguments);
        encodeSimple(writer, type.definition(), primitiveArguments(type.definition(), value));
        closeInPlace(writer, type);
    } else {
        emitCall(writer, function, arguments);
    }
}

// SEQUENCE.

uint32_t additionsMask(const Type& type, bool mandatoryOnly) {
    uint32_t mask = 0;
    for (const Component& addition : type.additions) {
        if (!mandatoryOnly || !addition.optional) {
            mask |= uint32_t{1} << addition.presenceBit;
        }
    }
    return mask;
}

void encodeExtensionBit(CodeWriter& writer, const Type& type) {
    if (keepsExtension(type)) {
        writer.line("const bool extended = value->extension.numocts != 0;");
    } else {
        writer.line(fmt::format("const bool extended = (value->presence & {:#x}) != 0;",
                                additionsMask(type, false)));
    }
}

void encodeBitRun(CodeWriter& writer, const std::vector<std::string>& terms, int count) {
    if (terms.empty()) {
        return;
    }
    if (count == 1) {
        emitCall(writer, "pe_bit", {terms[0]});
        return;
    }
    writer.open("");
    writer.line("uint32_t bits = " + terms[0] + ";");
    for (size_t i = 1; i < terms.size(); ++i) {
        writer.line("bits |= " + terms[i] + ";");
    }
    emitCall(writer, "pe_bitRun", {"bits", std::to_string(count)});
    writer.close();
}

std::string booleanTerm(const Component& component, int at) {
    return at == 0 ? fmt::format("value->{} != 0", component.member)
                   : fmt::format("uint32_t{{value->{} != 0}} << {}", component.member, at);
}

void encodeLeadingBits(CodeWriter& writer, const LeadingBits& bits) {
    std::vector<std::string> terms;
    if (bits.extension) {
        terms.emplace_back("extended");
    }
    if (bits.presence > 0) {
        const uint32_t mask = (uint32_t{1} << bits.presence) - 1;
        const std::string presence = fmt::format("value->presence & {:#x}", mask);
        terms.push_back(bits.extension ? "(" + presence + ") << 1" : presence);
    }
    for (size_t i = 0; i < bits.booleans.size(); ++i) {
        terms.push_back(booleanTerm(*bits.booleans[i], bits.booleansAt() + static_cast<int>(i)));
    }
    encodeBitRun(writer, terms, bits.count());
}

void encodeRun(CodeWriter& writer, const std::vector<const Component*>& run) {
    std::vector<std::string> terms;
    for (size_t bit = 0; bit < run.size(); ++bit) {
        terms.push_back(booleanTerm(*run[bit], static_cast<int>(bit)));
    }
    encodeBitRun(writer, terms, static_cast<int>(run.size()));
}

void encodeAdditions(CodeWriter& writer, const Type& type) {
    const size_t known = type.additions.size();
    const int first = type.additions.front().presenceBit;
    const uint32_t mandatory = additionsMask(type, true);
    writer.open("if (extended)");
    std::string map = fmt::format("(value->presence & {:#x})", additionsMask(type, false));
    if (mandatory != 0) {
        map = fmt::format("({} | {:#x})", map, mandatory);
    }
    writer.line(fmt::format("const uint32_t map = {}{};", map,
                            first > 0 ? fmt::format(" >> {}", first) : ""));
    writer.line("PerOpenType open;");
    emitCall(writer, "pe_beginAdditions", {std::to_string(known), "map"});
    for (const Component& addition : type.additions) {
        const bool conditional = addition.optional;
        if (conditional) {
            writer.open("if ((value->presence & " + presenceName(type, addition) + ") != 0)");
        }
        emitCall(writer, "pe_beginOpenType", {"&open"});
        encodeValue(writer, *addition.type, memberRef(addition));
        emitCall(writer, "pe_endOpenType", {"&open", "0"});
        if (conditional) {
            writer.close();
        }
    }
    writer.close();
}

void encodeSequence(CodeWriter& writer, const Type& type) {
    if (type.extensible) {
        encodeExtensionBit(writer, type);
    }
    const LeadingBits bits = leadingBits(type);
    encodeLeadingBits(writer, bits);
    emitRoot(writer, type, bits.booleans.size(), encodeRun, encodeValue);
    if (!type.additions.empty()) {
        encodeAdditions(writer, type);
    } else if (type.extensible) {
        writer.open("if (extended)");
        emitCall(writer, "pe_OpenTypeExt", {"&value->extension"});
        writer.close();
    }
    if (type.root.empty() && !type.extensible) {
        writer.line("(void)value;");
    }
}

// CHOICE.

void encodeAlternative(CodeWriter& writer, const Component& alternative) {
    const Type& type = *alternative.type;
    const std::string member = "value->value." + alternative.member;
    encodeValue(writer, type,
                heldByPointer(type) ? ValueRef::pointer(member) : ValueRef::object(member));
}

void encodeExtensionAlternative(CodeWriter& writer, const Type& type) {
    const size_t roots = type.root.size();
    const size_t known = roots + type.additions.size();
    writer.open(fmt::format("if (value->alternative > {})", known));
    writer.line("FAIL(PER_BAD_CHOICE);");
    writer.close();
    writer.line("PerOpenType open;");
    emitCall(writer, "pe_bit", {"1"});
    emitCall(writer, "pe_SmallNonNegWholeNumber",
             {fmt::format("value->alternative - {}", roots + 1)});
    emitCall(writer, "pe_beginOpenType", {"&open"});
    emitAlternatives(writer, type, type.additions, encodeAlternative);
    emitCall(writer, "pe_endOpenType", {"&open", "1"});
}

void encodeChoice(CodeWriter& writer, const Type& type) {
    const size_t roots = type.root.size();
    if (type.extensible) {
        writer.open(fmt::format("if (value->alternative > {})", roots));
        if (keepsExtension(type)) {
            emitCall(writer, "pe_bit", {"1"});
            emitCall(writer, "pe_OpenTypeExt", {"value->value.extension"});
        } else {
            encodeExtensionAlternative(writer, type);
        }
        writer.close(" else {");
        writer.indent();
        emitCall(writer, "pe_choiceHead", {"value->alternative", std::to_string(roots - 1)});
    } else if (roots == 1) { // an index of no bits, which no primitive checks
        writer.open("if (value->alternative != 1) [[unlikely]]");
        writer.line("FAIL(PER_RANGE);");
        writer.close();
    } else {
        emitCall(writer, "pe_ConsUnsigned",
                 {"value->alternative - 1", "0", std::to_string(roots - 1)});
    }
    emitAlternatives(writer, type, type.root, encodeAlternative);
    if (type.extensible) {
        writer.close();
    }
}

// SEQUENCE OF, SET OF.

void encodeList(CodeWriter& writer, const Type& type) {
    std::string function = "pe_Length";
    std::vector<std::string> arguments = {"ctx", "value->count"};
    addSize(function, arguments, type);
    writer.list("const int32_t written = " + function, arguments, ");");
    // A bounded count stands in one piece, as X.691 10.9 has it; any other needs fragments.
    const bool inOnePiece = type.size && type.size->upper < 65536;
    writer.line(fmt::format("CHECK(countWritten(written, {}));", inOnePiece ? 65535 : 16383));
    writer.open("for (uint32_t i = 0; i < value->count; ++i)");
    encodeValue(writer, *type.element, ValueRef::object("value->elements[i]"));
    writer.close();
}

void encodeBody(CodeWriter& writer, const Type& type) {
    if (type.alias != nullptr) {
        emitCall(writer, "asn1PE_" + type.alias->name, encoderSignature(type).names());
        return;
    }
    switch (type.kind) {
    case Kind::Sequence:
        encodeSequence(writer, type);
        break;
    case Kind::Choice:
        encodeChoice(writer, type);
        break;
    case Kind::List:
        encodeList(writer, type);
        break;
    default:
        encodeSimple(writer, type,
                     isSizedString(type) ? primitiveArguments(type, ValueRef::object("value"))
                                         : encoderSignature(type).names());
    }
}

} // namespace

void emitEncoder(CodeWriter& writer, const Type& type) {
    emitFunction(writer, type, encoderSignature(type), "pe_", encodeBody);
}

} // namespace asn1gen
