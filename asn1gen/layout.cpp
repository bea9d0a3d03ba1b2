#include "asn1gen/layout.h"

#include <algorithm>
#include <limits>
#include <set>

#include "asn1gen/naming.h"

namespace asn1gen {
namespace {

// Members that records have besides their fields.
bool isReserved(const std::string& member) {
    return member == "presence" || member == "extension";
}

void layOutSequence(Type& type) {
    int bits = 0;
    for (auto* list : {&type.root, &type.additions}) {
        for (Component& component : *list) {
            if (component.optional || component.addition) {
                component.presenceBit = bits++;
            }
            if (isReserved(component.member)) {
                component.member += '_';
            }
        }
    }
}

void layOutChoice(Type& type) {
    uint32_t number = 1;
    for (auto* list : {&type.root, &type.additions}) {
        for (Component& component : *list) {
            component.alternative = number++;
            if (isReserved(component.member)) {
                component.member += '_';
            }
        }
    }
}

// Only a SEQUENCE holds records inside its own.
void checkFinite(const Type& type, std::set<const Type*>& outer) {
    const Type& definition = type.definition();
    if (definition.kind != Kind::Sequence) {
        return;
    }
    if (!outer.insert(&definition).second) {
        throw SourceError(definition.position,
                          definition.name + " contains itself other than through a list or CHOICE");
    }
    for (const auto* list : {&definition.root, &definition.additions}) {
        for (const Component& component : *list) {
            checkFinite(*component.type, outer);
        }
    }
    outer.erase(&definition);
}

int bitsFor(uint64_t value) {
    int bits = 0;
    for (; value != 0; value >>= 1) {
        ++bits;
    }
    return bits;
}

uint64_t spread(const Range& range) {
    return static_cast<uint64_t>(range.upper - range.lower);
}

int64_t wholeNumberBits(const Range& range) {
    constexpr uint64_t largestInTwoOctets = 0xFFFF;
    constexpr int64_t countAndOneOctet = 10;
    return spread(range) > largestInTwoOctets ? countAndOneOctet : bitsFor(spread(range));
}

int64_t stringBits(const Type& type, int64_t perItem) {
    return lengthBits(type.size) + (type.size ? type.size->lower * perItem : 0);
}

int64_t characterBits(const Type& type) {
    if (type.alphabet) {
        return bitsFor(type.alphabet->size());
    }
    return type.stringName == "NumericString" ? 4 : 7;
}

class MinimalBits {
public:
    int64_t of(const Type& type) {
        const Type& definition = type.definition();
        switch (definition.kind) {
        case Kind::Boolean:
            return 1;
        case Kind::Null:
            return 0;
        case Kind::Integer:
            return ofInteger(definition);
        case Kind::Enumerated:
            return ofEnumerated(definition);
        case Kind::OctetString:
            return stringBits(definition, 8);
        case Kind::BitString:
            return stringBits(definition, 1);
        case Kind::CharacterString:
            return stringBits(definition, characterBits(definition));
        case Kind::BmpString:
            return stringBits(definition, 16);
        case Kind::ObjectIdentifier:
        case Kind::OpenType:
            return 8;
        default:
            return ofRecord(definition);
        }
    }

private:
    static int64_t ofEnumerated(const Type& type) {
        constexpr int64_t addition = 7; // a small number
        const int64_t item = wholeNumberBits(*type.values);
        return type.extensible ? 1 + std::min(item, addition) : item;
    }

    static int64_t ofInteger(const Type& type) {
        if (!type.values) {
            return 8;
        }
        return (type.values->extensible ? 1 : 0) + wholeNumberBits(*type.values);
    }

    int64_t ofRecord(const Type& type) {
        if (!outer.insert(&type).second) {
            return 0;
        }
        int64_t bits = type.extensible ? 1 : 0;
        if (type.kind == Kind::List) {
            bits = lengthBits(type.size) + (type.size ? type.size->lower * of(*type.element) : 0);
        } else if (type.kind == Kind::Sequence) {
            for (const Component& component : type.root) {
                bits += component.optional ? 1 : of(*component.type);
            }
        } else {
            bits += ofAlternatives(type);
        }
        outer.erase(&type);
        return bits;
    }

    int64_t ofAlternatives(const Type& type) {
        constexpr int64_t unknownAlternative = 15; // index and the length of an empty open type
        int64_t least = std::numeric_limits<int64_t>::max();
        for (const Component& component : type.root) {
            least = std::min(least, of(*component.type));
        }
        least += bitsFor(type.root.size() - 1);
        return type.extensible ? std::min(least, unknownAlternative) : least;
    }

    std::set<const Type*> outer;
};

} // namespace

void layOut(Model& model) {
    for (const auto& type : model.types) {
        if (type->alias == nullptr && type->kind == Kind::Sequence) {
            layOutSequence(*type);
        } else if (type->alias == nullptr && type->kind == Kind::Choice) {
            layOutChoice(*type);
        }
    }
    for (const auto& type : model.types) {
        std::set<const Type*> outer;
        checkFinite(*type, outer);
    }
}

int presenceBits(const Type& sequence) {
    const auto optional = std::count_if(sequence.root.begin(), sequence.root.end(),
                                        [](const Component& c) { return c.optional; });
    return static_cast<int>(optional) + static_cast<int>(sequence.additions.size());
}

bool keepsExtension(const Type& record) {
    return record.extensible && record.additions.empty();
}

bool isUnsigned(const Type& integer) {
    const auto& values = integer.definition().values;
    return values && values->upper > std::numeric_limits<int32_t>::max();
}

bool isSizedString(const Type& type) {
    const Type& definition = type.definition();
    return (definition.kind == Kind::OctetString || definition.kind == Kind::BitString) &&
           definition.size.has_value();
}

bool heldByPointer(const Type& type) {
    switch (type.definition().kind) {
    case Kind::Sequence:
    case Kind::Choice:
    case Kind::List:
    case Kind::ObjectIdentifier:
        return true;
    default:
        return isSizedString(type);
    }
}

int64_t arrayOctets(const Type& sizedString) {
    const Type& definition = sizedString.definition();
    const int64_t upper = definition.size->upper;
    const int64_t octets = definition.kind == Kind::BitString ? (upper + 7) / 8 : upper;
    return std::max<int64_t>(octets, 1);
}

std::string valueType(const Type& type) {
    if (!type.name.empty()) {
        return type.name;
    }
    switch (type.kind) {
    case Kind::Boolean:
        return "uint8_t";
    case Kind::Enumerated:
        return "uint32_t";
    case Kind::Integer:
        return isUnsigned(type) ? "uint32_t" : "int32_t";
    case Kind::OctetString:
    case Kind::OpenType:
        return "DynOctetString";
    case Kind::BitString:
        return "DynBitString";
    case Kind::CharacterString:
        return "const char*";
    case Kind::BmpString:
        return "BMPStringValue";
    case Kind::ObjectIdentifier:
        return "ObjectIdentifier";
    default:
        return "";
    }
}

int bitField(const Range& range) {
    constexpr uint64_t largest = 254; // 256 values take an octet of their own
    return spread(range) > largest ? -1 : bitsFor(spread(range));
}

int64_t lengthBits(const std::optional<Range>& size) {
    constexpr int64_t largestConstrainedLength = 0xFFFF;
    if (!size || size->upper > largestConstrainedLength) {
        return 8;
    }
    return wholeNumberBits(*size);
}

int64_t minimalBits(const Type& type) {
    return MinimalBits().of(type);
}

} // namespace asn1gen
