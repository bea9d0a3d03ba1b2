#include "fuzz/value.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

namespace fuzzing {

namespace {

template <typename Value> const Value& as(const void* value) {
    return *static_cast<const Value*>(value);
}

std::span<const MemberDescription> membersOf(const TypeDescription& type) {
    return {type.members, type.memberCount};
}

bool within(const TypeDescription& type, int64_t number) {
    return !type.bounded || (number >= type.lower && number <= type.upper);
}

const void* element(const TypeDescription& list, const ListHead& head, uint32_t index) {
    return head.elements + size_t{index} * list.element->size;
}

// The encoder writes the presence bit of an addition that is not OPTIONAL as 1 as soon as there is
// any addition.
bool hasItsAdditions(const TypeDescription& type, const void* record) {
    bool any = false;
    bool all = true;
    for (const MemberDescription& member : membersOf(type)) {
        if (member.addition && member.presence != 0) {
            any = any || isPresent(member, record);
            all = all && (member.optional || isPresent(member, record));
        }
    }
    return all || !any;
}

bool isEncodableSequence(const TypeDescription& type, const void* record) {
    return hasItsAdditions(type, record) &&
           std::ranges::all_of(membersOf(type), [&](const MemberDescription& member) {
               return !isPresent(member, record) ||
                      isEncodable(*member.type, memberValue(member, record));
           });
}

bool isEncodableChoice(const TypeDescription& type, const void* record) {
    const MemberDescription* member = chosenMember(type, record);
    return member != nullptr && isEncodable(*member->type, memberValue(*member, record));
}

// A decoder aligns before the characters even of an empty text, which fails where the data ends.
bool isEncodableText(const TypeDescription& type, size_t length) {
    return length != 0 && within(type, static_cast<int64_t>(length));
}

// The contents octets have room for 299 octets.
bool isEncodableIdentifier(const ObjectIdentifier& value) {
    constexpr uint32_t arcsThatFit = 299 / 5;
    return value.numarcs >= 2 && value.numarcs <= arcsThatFit;
}

bool sameOctets(const void* left, const void* right, size_t count) {
    return count == 0 || std::memcmp(left, right, count) == 0;
}

template <typename Head, typename Count>
bool sameRun(const void* left, const void* right, Count Head::*count, size_t octetsEach) {
    const auto& a = as<Head>(left);
    const auto& b = as<Head>(right);
    return a.*count == b.*count && sameOctets(a.data, b.data, a.*count * octetsEach);
}

bool sameSequence(const TypeDescription& type, const void* left, const void* right) {
    return std::ranges::all_of(membersOf(type), [&](const MemberDescription& member) {
        const bool present = isPresent(member, left);
        return present == isPresent(member, right) &&
               (!present ||
                sameValue(*member.type, memberValue(member, left), memberValue(member, right)));
    });
}

bool sameChoice(const TypeDescription& type, const void* left, const void* right) {
    const MemberDescription* member = chosenMember(type, left);
    return member == chosenMember(type, right) &&
           (member == nullptr ||
            sameValue(*member->type, memberValue(*member, left), memberValue(*member, right)));
}

bool sameList(const TypeDescription& type, const ListHead& left, const ListHead& right) {
    if (left.count != right.count) {
        return false;
    }
    for (uint32_t i = 0; i < left.count; ++i) {
        if (!sameValue(*type.element, element(type, left, i), element(type, right, i))) {
            return false;
        }
    }
    return true;
}

} // namespace

size_t memoryPerOctet(const TypeDescription& type) {
    const std::string_view name = type.name;
    if (name.starts_with("H235")) {
        return H235MemoryPerOctet;
    }
    return name.starts_with("H245") ? H245MemoryPerOctet : H225MemoryPerOctet;
}

const void* memberValue(const MemberDescription& member, const void* record) {
    const uint8_t* place = static_cast<const uint8_t*>(record) + member.offset;
    if (member.type->kind == TypeKind::Null) {
        return nullptr;
    }
    if (!member.pointer) {
        return place;
    }
    const void* value = nullptr;
    std::memcpy(&value, place, sizeof value);
    return value;
}

void* memberValue(const MemberDescription& member, void* record) {
    return const_cast<void*>(memberValue(member, static_cast<const void*>(record)));
}

bool isPresent(const MemberDescription& member, const void* record) {
    return member.presence == 0 || (as<uint32_t>(record) & member.presence) != 0;
}

const MemberDescription* chosenMember(const TypeDescription& choice, const void* record) {
    const auto members = membersOf(choice);
    const auto found =
        std::ranges::find(members, as<uint32_t>(record), &MemberDescription::alternative);
    return found == members.end() ? nullptr : &*found;
}

bool isEncodable(const TypeDescription& type, const void* value) {
    switch (type.kind) {
    case TypeKind::Boolean:
    case TypeKind::Null:
    case TypeKind::KeptExtension:
        return true;
    case TypeKind::Integer:
        return within(type, as<int32_t>(value));
    case TypeKind::Unsigned:
    case TypeKind::OctetArray:
    case TypeKind::OctetString:
    case TypeKind::BitArray:
    case TypeKind::BitString:
        return within(type, as<uint32_t>(value)); // the value, or the size that stands first
    case TypeKind::BmpString:
        return isEncodableText(type, as<uint32_t>(value));
    case TypeKind::OpenType:
        return true;
    case TypeKind::CharacterString: {
        const std::string_view text = as<const char*>(value);
        return isEncodableText(type, text.size()) &&
               (type.alphabet == nullptr ||
                text.find_first_not_of(type.alphabet) == std::string_view::npos);
    }
    case TypeKind::ObjectIdentifier:
        return isEncodableIdentifier(as<ObjectIdentifier>(value));
    case TypeKind::Sequence:
        return isEncodableSequence(type, value);
    case TypeKind::Choice:
        return isEncodableChoice(type, value);
    case TypeKind::List: {
        const auto& head = as<ListHead>(value);
        for (uint32_t i = 0; i < head.count; ++i) {
            if (!isEncodable(*type.element, element(type, head, i))) {
                return false;
            }
        }
        return within(type, head.count);
    }
    }
    return false;
}

bool sameValue(const TypeDescription& type, const void* left, const void* right) {
    switch (type.kind) {
    case TypeKind::Boolean:
        return as<uint8_t>(left) == as<uint8_t>(right);
    case TypeKind::Null:
    // Compared as octets, when the whole encodings are.
    case TypeKind::KeptExtension:
        return true;
    case TypeKind::Integer:
    case TypeKind::Unsigned:
        return as<uint32_t>(left) == as<uint32_t>(right);
    case TypeKind::OctetArray:
        return sameRun(left, right, &ArrayHead::count, 1);
    case TypeKind::OpenType:
        // An empty one is written as one zero octet (X.691 10.1.3).
        if (as<DynOctetString>(left).numocts == 0) {
            return true;
        }
        [[fallthrough]];
    case TypeKind::OctetString:
        return sameRun(left, right, &DynOctetString::numocts, 1);
    case TypeKind::BitArray: {
        const auto& a = as<ArrayHead>(left);
        const auto& b = as<ArrayHead>(right);
        return a.count == b.count && sameOctets(a.data, b.data, (a.count + 7) / 8);
    }
    case TypeKind::BitString: {
        const auto& a = as<DynBitString>(left);
        const auto& b = as<DynBitString>(right);
        return a.numbits == b.numbits && sameOctets(a.data, b.data, (a.numbits + 7) / 8);
    }
    case TypeKind::CharacterString:
        return std::string_view(as<const char*>(left)) == as<const char*>(right);
    case TypeKind::BmpString:
        return sameRun(left, right, &BMPStringValue::nchars, sizeof(uint16_t));
    case TypeKind::ObjectIdentifier: {
        const auto& a = as<ObjectIdentifier>(left);
        const auto& b = as<ObjectIdentifier>(right);
        return a.numarcs == b.numarcs && sameOctets(a.arcs, b.arcs, a.numarcs * sizeof(uint32_t));
    }
    case TypeKind::Sequence:
        return sameSequence(type, left, right);
    case TypeKind::Choice:
        return sameChoice(type, left, right);
    case TypeKind::List:
        return sameList(type, as<ListHead>(left), as<ListHead>(right));
    }
    return false;
}

} // namespace fuzzing
