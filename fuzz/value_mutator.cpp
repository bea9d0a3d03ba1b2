#include "fuzz/value_mutator.h"

#include <cstring>
#include <string_view>

#include "H.323/registry.h"
#include "fuzz/value.h"

namespace fuzzing {

namespace {

constexpr unsigned deepest = 12; // nesting of new values; below it everything is minimal
constexpr unsigned deepestOptional = 3;
constexpr uint32_t longest = 40; // of new strings and lists, unless they must be longer
constexpr uint32_t longestList = 3;

template <typename Value> Value& as(void* value) {
    return *static_cast<Value*>(value);
}

Octets encode(const TypeDescription& type, const void* value) {
    PerContext encoder{};
    Octets octets;
    if (pu_initContext(&encoder, nullptr, 0, 1) == PER_OK &&
        type.encode(&encoder, value) == PER_OK) {
        uint32_t length = 0;
        const uint8_t* start = pe_getMsgPtr(&encoder, &length);
        octets.assign(start, start + length);
    }
    pu_freeContext(&encoder);
    return octets;
}

} // namespace

void* ValueMutator::memory(size_t octets) {
    return memory_.emplace_back(octets / sizeof(uint64_t) + 1).data();
}

void ValueMutator::fillOctets(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        data[i] = static_cast<uint8_t>(random_() >> 8);
    }
}

int64_t ValueMutator::number(const TypeDescription& type) {
    const int64_t lower = type.bounded ? type.lower : INT32_MIN;
    const int64_t upper = type.bounded ? type.upper : INT32_MAX;
    switch (below(4)) {
    case 0:
        return lower;
    case 1:
        return upper;
    default: {
        const uint64_t wide = static_cast<uint64_t>(random_()) << 16 ^ random_();
        return lower + static_cast<int64_t>(wide % static_cast<uint64_t>(upper - lower + 1));
    }
    }
}

uint32_t ValueMutator::length(const TypeDescription& type, unsigned depth) {
    const auto lower = type.bounded ? static_cast<uint32_t>(type.lower) : 0;
    const uint32_t most = type.kind == TypeKind::List ? longestList : longest;
    uint32_t upper = lower + most;
    if (type.bounded && type.upper < upper) {
        upper = static_cast<uint32_t>(type.upper);
    }
    if (depth > deepestOptional || oneIn(4)) {
        return lower;
    }
    return oneIn(4) ? upper : lower + static_cast<uint32_t>(below(upper - lower + 1));
}

void ValueMutator::fillMember(const MemberDescription& member, void* record, unsigned depth) {
    if (member.type->kind == TypeKind::Null) {
        return;
    }
    if (member.pointer) {
        void* value = memory(member.type->size);
        std::memcpy(static_cast<uint8_t*>(record) + member.offset, &value, sizeof value);
    }
    fill(*member.type, memberValue(member, record), depth + 1);
}

void ValueMutator::fillChoice(const TypeDescription& type, void* record, unsigned depth) {
    size_t index = below(type.memberCount);
    // Deep down, the first alternative that holds no further record ends the recursion.
    for (size_t i = 0; depth > deepest && i < type.memberCount; ++i) {
        if (type.members[i].type->kind < TypeKind::Sequence) {
            index = i;
            break;
        }
    }
    const MemberDescription* member = &type.members[index];
    if (member->type->kind == TypeKind::KeptExtension) {
        member = &type.members[0];
    }
    as<uint32_t>(record) = member->alternative;
    fillMember(*member, record, depth);
}

void ValueMutator::fill(const TypeDescription& type, void* value, unsigned depth) {
    std::memset(value, 0, type.size);
    switch (type.kind) {
    case TypeKind::Boolean:
        as<uint8_t>(value) = static_cast<uint8_t>(below(2));
        break;
    case TypeKind::Null:
    case TypeKind::KeptExtension:
        break;
    case TypeKind::Integer:
    case TypeKind::Unsigned:
        as<uint32_t>(value) = static_cast<uint32_t>(number(type));
        break;
    case TypeKind::OctetArray:
    case TypeKind::BitArray: {
        auto& array = as<ArrayHead>(value);
        array.count = length(type, 0);
        const size_t octets =
            type.kind == TypeKind::OctetArray ? array.count : (array.count + 7) / 8;
        fillOctets(array.data, std::min(octets, type.size - sizeof array.count));
        break;
    }
    case TypeKind::OctetString:
    case TypeKind::OpenType:
    case TypeKind::BitString:
    case TypeKind::CharacterString:
    case TypeKind::BmpString:
        changeString({&type, value});
        break;
    case TypeKind::ObjectIdentifier: {
        auto& identifier = as<ObjectIdentifier>(value);
        identifier.numarcs = static_cast<uint32_t>(2 + below(6));
        for (uint32_t i = 0; i < identifier.numarcs; ++i) {
            identifier.arcs[i] = static_cast<uint32_t>(i < 2 ? below(3) : random_());
        }
        break;
    }
    case TypeKind::Sequence:
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            const MemberDescription& member = type.members[i];
            if (member.presence == 0) {
                fillMember(member, value, depth);
            } else if (depth < deepestOptional && oneIn(3)) {
                as<uint32_t>(value) |= member.presence;
                fillMember(member, value, depth);
            }
        }
        break;
    case TypeKind::Choice:
        fillChoice(type, value, depth);
        break;
    case TypeKind::List: {
        auto& list = as<ListHead>(value);
        list.count = length(type, depth);
        list.elements = static_cast<uint8_t*>(memory(size_t{list.count} * type.element->size));
        for (uint32_t i = 0; i < list.count; ++i) {
            fill(*type.element, list.elements + size_t{i} * type.element->size, depth + 1);
        }
        break;
    }
    }
}

void ValueMutator::collect(const TypeDescription& type, void* value, std::vector<Node>& nodes) {
    if (type.kind == TypeKind::Null || type.kind == TypeKind::KeptExtension) {
        return;
    }
    nodes.push_back({&type, value});
    if (type.kind == TypeKind::Sequence) {
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            if (isPresent(type.members[i], value)) {
                collect(*type.members[i].type, memberValue(type.members[i], value), nodes);
            }
        }
    } else if (type.kind == TypeKind::Choice) {
        const MemberDescription* member = chosenMember(type, value);
        if (member != nullptr) {
            collect(*member->type, memberValue(*member, value), nodes);
        }
    } else if (type.kind == TypeKind::List) {
        auto& list = as<ListHead>(value);
        for (uint32_t i = 0; i < list.count; ++i) {
            collect(*type.element, list.elements + size_t{i} * type.element->size, nodes);
        }
    }
}

// Drops an OPTIONAL member or adds one.
void ValueMutator::changeSequence(const Node& node) {
    if (node.type->memberCount == 0) {
        return;
    }
    const MemberDescription& member = node.type->members[below(node.type->memberCount)];
    if (member.presence == 0) {
        return;
    }
    as<uint32_t>(node.value) ^= member.presence;
    if (isPresent(member, node.value)) {
        fillMember(member, node.value, 1);
    }
    // With any addition the encoder writes those that are not OPTIONAL.
    for (uint32_t i = 0; i < node.type->memberCount; ++i) {
        const MemberDescription& other = node.type->members[i];
        if (other.addition && !other.optional && !isPresent(other, node.value)) {
            as<uint32_t>(node.value) |= other.presence;
            fillMember(other, node.value, 1);
        }
    }
}

// Drops the last element or adds a new or a copied one.
void ValueMutator::changeList(const Node& node) {
    auto& list = as<ListHead>(node.value);
    if (list.count > 0 && oneIn(2)) {
        --list.count;
        return;
    }
    const size_t size = node.type->element->size;
    auto* elements = static_cast<uint8_t*>(memory((size_t{list.count} + 1) * size));
    if (list.count > 0) {
        std::memcpy(elements, list.elements, list.count * size);
    }
    uint8_t* added = elements + list.count * size;
    if (list.count > 0 && oneIn(2)) {
        std::memcpy(added, elements + below(list.count) * size, size);
    } else {
        fill(*node.type->element, added, 1);
    }
    list.elements = elements;
    ++list.count;
}

void ValueMutator::changeString(const Node& node) {
    static const TypeDescription* const element = findType("H245OpenLogicalChannel");
    const uint32_t count = length(*node.type, 0);
    switch (node.type->kind) {
    case TypeKind::OctetString: {
        auto& string = as<DynOctetString>(node.value);
        if (string.numocts > 0 && !oneIn(4)) {
            const Octets inner =
                ValueMutator(random_).mutate(*element, {string.data, string.data + string.numocts});
            if (!inner.empty()) {
                string.numocts = static_cast<uint32_t>(inner.size());
                string.data = static_cast<uint8_t*>(memory(inner.size()));
                std::copy(inner.begin(), inner.end(), string.data);
                return;
            }
        }
        [[fallthrough]];
    }
    case TypeKind::OpenType: {
        auto& string = as<DynOctetString>(node.value);
        string = {count, static_cast<uint8_t*>(memory(count))};
        fillOctets(string.data, count);
        break;
    }
    case TypeKind::BitString:
        as<DynBitString>(node.value) = {count, static_cast<uint8_t*>(memory(count / 8 + 1))};
        fillOctets(as<DynBitString>(node.value).data, count / 8 + 1);
        break;
    case TypeKind::BmpString: {
        const size_t octets = size_t{count} * 2;
        as<BMPStringValue>(node.value) = {count, static_cast<uint16_t*>(memory(octets))};
        fillOctets(reinterpret_cast<uint8_t*>(as<BMPStringValue>(node.value).data), octets);
        break;
    }
    case TypeKind::CharacterString: {
        const std::string_view alphabet =
            node.type->alphabet != nullptr ? node.type->alphabet : "0123456789";
        auto* text = static_cast<char*>(memory(count + 1));
        for (uint32_t i = 0; i < count; ++i) {
            text[i] = alphabet[below(alphabet.size())];
        }
        as<const char*>(node.value) = text;
        break;
    }
    default:
        break;
    }
}

void ValueMutator::change(const Node& node) {
    switch (node.type->kind) {
    case TypeKind::Sequence:
        changeSequence(node);
        break;
    case TypeKind::List:
        changeList(node);
        break;
    case TypeKind::Choice:
        fillChoice(*node.type, node.value, 1);
        break;
    default:
        fill(*node.type, node.value, 1);
        break;
    }
}

Octets ValueMutator::mutate(const TypeDescription& type, const Octets& message) {
    PerContext decoder{};
    void* value = memory(type.size);
    Octets mutated;
    if (!message.empty() &&
        pu_initContext(&decoder, message.data(), static_cast<uint32_t>(message.size()), 1) ==
            PER_OK &&
        type.decode(&decoder, value) == PER_OK) {
        for (size_t changes = 1 + below(4); changes > 0; --changes) {
            std::vector<Node> nodes;
            collect(type, value, nodes);
            change(nodes[below(nodes.size())]);
        }
        mutated = encode(type, value);
    } else {
        mutated = make(type);
    }
    pu_freeContext(&decoder);
    return mutated;
}

Octets ValueMutator::make(const TypeDescription& type) {
    void* value = memory(type.size);
    fill(type, value, 0);
    return encode(type, value);
}

} // namespace fuzzing
