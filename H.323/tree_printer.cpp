#include "H.323/tree_printer.h"

#include <cstring>
#include <string_view>

namespace {

constexpr size_t indentWidth = 2;
constexpr uint32_t ipv4Octets = 4;
constexpr uint32_t lastAscii = 0x7E;
constexpr char hexDigits[] = "0123456789abcdef";

template <typename Value> const Value& as(const void* memory) {
    return *static_cast<const Value*>(memory);
}

std::string hex(const uint8_t* data, size_t octets) {
    std::string text;
    text.reserve(octets * 2);
    for (size_t i = 0; i < octets; ++i) {
        text += hexDigits[data[i] >> 4];
        text += hexDigits[data[i] & 15];
    }
    return text;
}

void appendCharacter(std::string& text, uint32_t character) {
    if (character >= ' ' && character <= lastAscii && character != '"' && character != '\\') {
        text += static_cast<char>(character);
        return;
    }
    text += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        text += hexDigits[(character >> shift) & 15];
    }
}

template <typename Character> std::string quoted(const Character* characters, size_t count) {
    std::string text = "\"";
    for (size_t i = 0; i < count; ++i) {
        appendCharacter(text, static_cast<std::make_unsigned_t<Character>>(characters[i]));
    }
    return text + "\"";
}

bool isText(const uint8_t* data, size_t octets) {
    constexpr size_t shortest = 3;
    for (size_t i = 0; i < octets; ++i) {
        if (data[i] < ' ' || data[i] > lastAscii) {
            return false;
        }
    }
    return octets >= shortest;
}

std::string octetText(const uint8_t* data, uint32_t octets) {
    if (octets == 0) {
        return "(empty)";
    }
    return hex(data, octets) + (isText(data, octets) ? " " + quoted(data, octets) : "");
}

std::string octetArrayText(const TypeDescription& type, const void* value) {
    const auto* record = static_cast<const uint8_t*>(value);
    uint32_t octets = 0;
    std::memcpy(&octets, record, sizeof octets);
    const uint8_t* data = record + sizeof octets;
    if (type.lower == ipv4Octets && type.upper == ipv4Octets && octets == ipv4Octets) {
        std::string dotted;
        for (uint32_t i = 0; i < ipv4Octets; ++i) {
            dotted += (i == 0 ? "" : ".") + std::to_string(data[i]);
        }
        return hex(data, octets) + " (" + dotted + ")";
    }
    return octetText(data, octets);
}

std::string bitText(uint32_t bits, const uint8_t* data) {
    return std::to_string(bits) + " bits" +
           (bits == 0 ? "" : " " + hex(data, (size_t{bits} + 7) / 8));
}

std::string bitArrayText(const void* value) {
    const auto* record = static_cast<const uint8_t*>(value);
    uint32_t bits = 0;
    std::memcpy(&bits, record, sizeof bits);
    return bitText(bits, record + sizeof bits);
}

std::string objectIdentifierText(const ObjectIdentifier& identifier) {
    std::string text;
    for (uint32_t i = 0; i < identifier.numarcs; ++i) {
        text += (i == 0 ? "" : ".") + std::to_string(identifier.arcs[i]);
    }
    return text.empty() ? "(empty)" : text;
}

std::string simpleText(const TypeDescription& type, const void* value) {
    switch (type.kind) {
    case TypeKind::Boolean:
        return as<uint8_t>(value) != 0 ? "true" : "false";
    case TypeKind::Integer:
        return std::to_string(as<int32_t>(value));
    case TypeKind::Unsigned:
        return std::to_string(as<uint32_t>(value));
    case TypeKind::OctetArray:
        return octetArrayText(type, value);
    case TypeKind::OctetString:
    case TypeKind::OpenType:
        return octetText(as<DynOctetString>(value).data, as<DynOctetString>(value).numocts);
    case TypeKind::BitArray:
        return bitArrayText(value);
    case TypeKind::BitString:
        return bitText(as<DynBitString>(value).numbits, as<DynBitString>(value).data);
    case TypeKind::CharacterString:
        return quoted(as<const char*>(value), std::strlen(as<const char*>(value)));
    case TypeKind::BmpString:
        return quoted(as<BMPStringValue>(value).data, as<BMPStringValue>(value).nchars);
    case TypeKind::ObjectIdentifier:
        return objectIdentifierText(as<ObjectIdentifier>(value));
    case TypeKind::KeptExtension:
        return octetText(as<OpenTypeValue>(value).data, as<OpenTypeValue>(value).numocts);
    default:
        return "";
    }
}

class Printer {
public:
    std::string text;

    void node(const std::string& name, const TypeDescription& type, const void* value,
              size_t depth) {
        text.append(depth * indentWidth, ' ');
        text += name;
        switch (type.kind) {
        case TypeKind::Sequence:
            text += '\n';
            fields(type, value, depth + 1);
            break;
        case TypeKind::Choice:
            choice(type, value, depth);
            break;
        case TypeKind::List:
            list(type, value, depth);
            break;
        case TypeKind::Null:
            text += '\n';
            break;
        default:
            text += ": " + simpleText(type, value) + '\n';
        }
    }

private:
    void fields(const TypeDescription& type, const void* value, size_t depth) {
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            const MemberDescription& member = type.members[i];
            if (isPresent(member, value)) {
                node(member.name, *member.type, at(member, value), depth);
            }
        }
    }

    static const void* at(const MemberDescription& member, const void* record) {
        const void* place = static_cast<const uint8_t*>(record) + member.offset;
        return member.pointer ? as<const void*>(place) : place;
    }

    // The presence word is the first member of a record that has one.
    static bool isPresent(const MemberDescription& member, const void* record) {
        if (member.type->kind == TypeKind::KeptExtension) {
            return as<OpenTypeValue>(at(member, record)).numocts != 0;
        }
        return member.presence == 0 || (as<uint32_t>(record) & member.presence) != 0;
    }

    void choice(const TypeDescription& type, const void* value, size_t depth) {
        const auto alternative = as<uint32_t>(value);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            const MemberDescription& member = type.members[i];
            if (member.alternative == alternative) {
                text += std::string(": ") + member.name + '\n';
                chosen(member, value, depth + 1);
                return;
            }
        }
        text += ": alternative " + std::to_string(alternative) + " (not known)\n";
    }

    // The fields of a record stand right below the name of the alternative.
    void chosen(const MemberDescription& member, const void* value, size_t depth) {
        if (member.type->kind == TypeKind::Sequence) {
            fields(*member.type, at(member, value), depth);
        } else if (member.type->kind != TypeKind::Null) {
            node(member.name, *member.type, at(member, value), depth);
        }
    }

    void list(const TypeDescription& type, const void* value, size_t depth) {
        struct ListRecord {
            uint32_t count;
            const uint8_t* elements;
        };
        const auto& record = as<ListRecord>(value);
        text +=
            ": " + std::to_string(record.count) + (record.count == 1 ? " element" : " elements");
        text += '\n';
        for (uint32_t i = 0; i < record.count; ++i) {
            node("[" + std::to_string(i) + "]", *type.element,
                 record.elements + size_t{i} * type.element->size, depth + 1);
        }
    }
};

} // namespace

std::string printTree(const TypeDescription& type, const void* value, const std::string& name) {
    Printer printer;
    printer.node(name, type, value, 0);
    return printer.text;
}
