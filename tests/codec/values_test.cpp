// What decoders make of encodings, against the values that an independent encoder was given: octets
// that come round again say nothing about a number read one too low.
#include <gtest/gtest.h>

#include <string>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "fuzz/value.h"
#include "tests/vectors/vector_set.h"
#include "tree/value_text.h"

namespace {

template <typename Value> const Value& as(const void* value) {
    return *static_cast<const Value*>(value);
}

std::string octetsText(const uint8_t* data, size_t count) {
    return count == 0 ? "" : tree::hexText({data, count});
}

std::string bitsText(const uint8_t* data, uint32_t count) {
    return std::to_string(count) + ":" + octetsText(data, (count + 7) / 8);
}

std::string wideText(const BMPStringValue& value) {
    std::string text = "u";
    for (uint32_t i = 0; i < value.nchars; ++i) {
        const uint8_t octets[2] = {static_cast<uint8_t>(value.data[i] >> 8),
                                   static_cast<uint8_t>(value.data[i])};
        text += octetsText(octets, 2);
    }
    return text;
}

std::string arcsText(const ObjectIdentifier& value) {
    std::string text;
    for (uint32_t i = 0; i < value.numarcs; ++i) {
        text += (i == 0 ? "" : ".") + std::to_string(value.arcs[i]);
    }
    return text;
}

// Of a member that C++ does not allow, the name in the module.
std::string nameOf(const MemberDescription& member) {
    const std::string name = member.name;
    return name.back() == '_' ? name.substr(0, name.size() - 1) : name;
}

// A decoded value in the notation of values.txt.
std::string valueText(const TypeDescription& type, const void* value);

std::string sequenceText(const TypeDescription& type, const void* record) {
    std::string text;
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        const MemberDescription& member = type.members[i];
        if (member.type->kind != TypeKind::KeptExtension && fuzzing::isPresent(member, record)) {
            text += (text.empty() ? "" : ",") + nameOf(member) + ":" +
                    valueText(*member.type, fuzzing::memberValue(member, record));
        }
    }
    return "{" + text + "}";
}

std::string choiceText(const TypeDescription& type, const void* record) {
    const MemberDescription* member = fuzzing::chosenMember(type, record);
    return member == nullptr
               ? "no alternative"
               : nameOf(*member) + "(" +
                     valueText(*member->type, fuzzing::memberValue(*member, record)) + ")";
}

std::string listText(const TypeDescription& type, const fuzzing::ListHead& list) {
    std::string text;
    for (uint32_t i = 0; i < list.count; ++i) {
        text += (i == 0 ? "" : ",") +
                valueText(*type.element, list.elements + size_t{i} * type.element->size);
    }
    return "[" + text + "]";
}

std::string valueText(const TypeDescription& type, const void* value) {
    switch (type.kind) {
    case TypeKind::Boolean:
        return as<uint8_t>(value) == 1 ? "T" : as<uint8_t>(value) == 0 ? "F" : "neither";
    case TypeKind::Null:
        return "-";
    case TypeKind::Integer:
        return std::to_string(as<int32_t>(value));
    case TypeKind::Unsigned:
        return std::to_string(as<uint32_t>(value));
    case TypeKind::OctetArray: {
        const auto& array = as<fuzzing::ArrayHead>(value);
        return octetsText(array.data, array.count);
    }
    case TypeKind::OctetString:
        return octetsText(as<DynOctetString>(value).data, as<DynOctetString>(value).numocts);
    case TypeKind::BitArray:
        return bitsText(as<fuzzing::ArrayHead>(value).data, as<fuzzing::ArrayHead>(value).count);
    case TypeKind::BitString:
        return bitsText(as<DynBitString>(value).data, as<DynBitString>(value).numbits);
    case TypeKind::CharacterString: {
        const std::string text = as<const char*>(value);
        return "s" + octetsText(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    case TypeKind::BmpString:
        return wideText(as<BMPStringValue>(value));
    case TypeKind::ObjectIdentifier:
        return arcsText(as<ObjectIdentifier>(value));
    case TypeKind::OpenType: // the encoder was given a value of a type that is not written down
        return "OPEN";
    case TypeKind::KeptExtension:
        return "kept";
    case TypeKind::Sequence:
        return sequenceText(type, value);
    case TypeKind::Choice:
        return choiceText(type, value);
    case TypeKind::List:
        return listText(type, as<fuzzing::ListHead>(value));
    }
    return "";
}

TEST(DecodedValues, AreThoseThatTheEncoderWasGiven) {
    for (const cli::VectorLine& line : readVectors("values.txt")) {
        const TypeDescription* type = findType(line.type);
        ASSERT_NE(type, nullptr) << line.type;
        MessageValue value(*type);
        ASSERT_EQ(value.decode(line.encoding), PER_OK) << line.number << " " << line.type;
        ASSERT_EQ(valueText(*type, value.record()), line.third)
            << "line " << line.number << " " << line.type;
    }
}

} // namespace
