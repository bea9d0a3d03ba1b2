#include "tree/reading.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

#include "tree/value_text.h"

namespace tree {
namespace {

bool isShortString(const MessageType& type) {
    constexpr size_t mostIndexed =
        16; // more characters than that take 8 bits in the aligned variant
    return type.kind == TypeKind::IA5String && type.bounded && type.lower == 1 && type.upper == 1 &&
           type.alphabet != nullptr && std::strlen(type.alphabet) >= mostIndexed;
}

// The runtime's own alphabet for IA5String ends before the small letters, which some of today's
// types permit.
PermittedAlphabet ia5Alphabet(const char* from) {
    static const std::array<uint8_t, 128> codes = [] {
        std::array<uint8_t, 128> all{};
        std::iota(all.begin(), all.end(), uint8_t{0});
        return all;
    }();
    PermittedAlphabet alphabet = {};
    alphabet.canonicalSet = codes.data();
    alphabet.canonicalSize = codes.size();
    alphabet.canonicalBits = 7;
    pu_setPermittedAlphabet(&alphabet, from);
    return alphabet;
}

class ValueReader {
public:
    explicit ValueReader(Reading& reading) : reading(reading) {}

    void simple(const MessageType& type, Node& node) {
        switch (type.kind) {
        case TypeKind::Boolean:
            node.kind = NodeKind::Boolean;
            node.value = reading.bit() != 0 ? "true" : "false";
            break;
        case TypeKind::Null:
            node.kind = NodeKind::Null;
            break;
        case TypeKind::Integer:
            node.kind = NodeKind::Integer;
            integer(type, node);
            break;
        case TypeKind::Enumerated:
            node.kind = NodeKind::Enumerated;
            enumerated(type, node);
            break;
        case TypeKind::BitString:
            node.kind = NodeKind::Bits;
            bits(type, node);
            break;
        case TypeKind::ObjectIdentifier: {
            node.kind = NodeKind::ObjectIdentifier;
            ObjectIdentifier identifier{};
            reading.check(pd_ObjectIdentifier(reading.ctx, &identifier));
            node.value = identifierText(identifier);
            break;
        }
        default:
            node.kind = NodeKind::Text;
            text(type, node);
        }
    }

private:
    void integer(const MessageType& type, Node& node) {
        const bool outside = type.extensible && reading.bit() != 0;
        if (!type.bounded || outside || type.upper == INT64_MAX) {
            // A length and octets, as an OCTET STRING without bounds has them.
            DynOctetString octets{};
            reading.check(pd_DynOctetString(reading.ctx, &octets));
            const std::span<const uint8_t> number(octets.data, octets.numocts);
            node.value =
                type.bounded && !outside ? offsetText(type.lower, number) : signedText(number);
            return;
        }
        uint32_t above = 0;
        reading.check(pd_ConsUnsigned(reading.ctx, &above, 0,
                                      static_cast<uint32_t>(type.upper - type.lower)));
        node.value = std::to_string(type.lower + above);
    }

    void enumerated(const MessageType& type, Node& node) {
        const auto roots = static_cast<uint32_t>(type.upper + 1);
        uint32_t item = 0;
        if (!type.extensible) {
            reading.check(pd_ConsUnsigned(reading.ctx, &item, 0, roots - 1));
        } else {
            reading.check(pd_choiceHead(reading.ctx, &item, roots - 1));
        }
        uint64_t number = item;
        if (type.extensible && item == PER_EXTENDED) {
            reading.check(pd_SmallNonNegWholeNumber(reading.ctx, &item));
            number = uint64_t{item} + roots;
        } else if (item >= roots) {
            reading.check(PER_CONSTRAINT);
        }
        if (number < type.itemCount) {
            node.value = type.items[number];
        } else {
            node.value = std::to_string(number);
            ++reading.oddities;
        }
    }

    void bits(const MessageType& type, Node& node) {
        SizeConstraint range{};
        reading.addSize(type, range);
        DynBitString string{};
        reading.check(pd_DynBitString(reading.ctx, &string));
        node.value = hexText({string.data, (size_t{string.numbits} + 7) / 8});
        node.bitLength = string.numbits;
        const uint64_t end = reading.position();
        node.bitOffset = string.numbits >= fragmentStep || end == unknownOffset
                             ? unknownOffset
                             : end - string.numbits;
    }

    void text(const MessageType& type, Node& node) {
        if (isShortString(type)) {
            reading.shortStringSeen = true;
            if (reading.shortStrings == ShortStrings::AsInX691) {
                shortText(type, node);
                return;
            }
            notePadding();
        }
        SizeConstraint range{};
        reading.addSize(type, range);
        uint32_t count = lengthAhead();
        if (count == 0) {
            // The runtime aligns before no characters too, which X.691 does not, and for which the
            // octets may have no room.
            reading.check(pd_Length(reading.ctx, &count));
            return;
        }
        if (type.kind == TypeKind::BmpString) {
            BMPStringValue characters{};
            reading.check(pd_BMPString(reading.ctx, &characters, nullptr));
            node.value = escapedText(characters);
            return;
        }
        const char* characters = nullptr;
        if (type.kind == TypeKind::IA5String && type.alphabet != nullptr) {
            const PermittedAlphabet alphabet = ia5Alphabet(type.alphabet);
            reading.check(pd_ConstrainedString(reading.ctx, &characters, &alphabet));
        } else {
            reading.check(readText(type, &characters));
        }
        node.value = escapedText({characters, count}); // goes on behind a zero
    }

    // Characters that the runtime is going to read: those of the first fragment, or all.
    uint32_t lengthAhead() {
        PerContext ahead{};
        pu_copyBufferState(&ahead, reading.ctx);
        ahead.sizeConstraint = reading.ctx->sizeConstraint;
        uint32_t count = 0;
        reading.check(pd_Length(&ahead, &count));
        return count;
    }

    int32_t readText(const MessageType& type, const char** characters) {
        switch (type.kind) {
        case TypeKind::NumericString:
            return pd_NumericString(reading.ctx, characters, type.alphabet);
        case TypeKind::PrintableString:
            return pd_PrintableString(reading.ctx, characters, type.alphabet);
        case TypeKind::IA5String:
            return pd_IA5String(reading.ctx, characters, type.alphabet);
        default:
            return pd_GeneralString(reading.ctx, characters, type.alphabet);
        }
    }

    void shortText(const MessageType& type, Node& node) {
        uint32_t character = 0;
        reading.check(pd_bits(reading.ctx, &character, 8));
        if (character == 0 || std::strchr(type.alphabet, static_cast<int>(character)) == nullptr) {
            reading.check(PER_CONSTRAINT);
        }
        const char text = static_cast<char>(character);
        node.value = escapedText({&text, 1});
    }

    // Padding in front of an aligned string that is not zero.
    void notePadding() {
        const uint64_t at = pu_bitPosition(reading.ctx);
        const uint64_t size = uint64_t{reading.ctx->size} * 8;
        if (at % 8 != 0 && at < size && (reading.ctx->buffer[at / 8] & (0xFFU >> (at % 8))) != 0) {
            ++reading.oddities;
        }
    }

    Reading& reading;
};

} // namespace

uint64_t Reading::position() {
    const auto base = reinterpret_cast<uintptr_t>(message.data());
    const auto buffer = reinterpret_cast<uintptr_t>(ctx->buffer);
    if (buffer < base || buffer > base + message.size()) {
        return unknownOffset;
    }
    // A failed read may have moved the cursor behind the octets that there are.
    const uint64_t inside = std::min(pu_bitPosition(ctx), uint64_t{ctx->size} * 8);
    const uint64_t found = (uint64_t{buffer} - base) * 8 + inside;
    lastPosition = found;
    return found;
}

void Reading::check(int32_t status) {
    if (status < 0) {
        position();
        throw ReadFailure{status};
    }
}

void Reading::addSize(const MessageType& type, SizeConstraint& range) {
    if (type.bounded && type.upper <= UINT32_MAX) {
        range = {0, static_cast<uint32_t>(type.lower), static_cast<uint32_t>(type.upper), nullptr};
        check(pu_addSizeConstraint(ctx, &range));
    }
}

uint8_t Reading::bit() {
    uint8_t result = 0;
    check(pd_bit(ctx, &result));
    return result;
}

void readValue(Reading& reading, const MessageType& type, Node& node) {
    ValueReader(reading).simple(type, node);
}

} // namespace tree
