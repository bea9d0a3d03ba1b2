#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

#include "asn1per/asn1per.h"
#include "tree/message_tree.h"
#include "tree/value_text.h"

namespace tree {
namespace {

constexpr size_t deepest = 256; // nodes above a node; today's modules need less than 100
constexpr uint32_t fragmentStep = 16384;

// How one value of a single character is read: strings are aligned here whatever their size, while
// X.691 30.5.6 does not align strings of fixed size up to 16 bits. The digit of a user-input signal
// is the one such string.
enum class ShortStrings : uint8_t { Aligned, AsInX691 };

struct ReadFailure {
    int32_t status;
};

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

class ContextOwner {
public:
    explicit ContextOwner(std::span<const uint8_t> octets) {
        static const uint8_t nothing = 0;
        const uint8_t* start = octets.empty() ? &nothing : octets.data();
        const auto size = static_cast<uint32_t>(std::min<size_t>(octets.size(), UINT32_MAX));
        const int32_t status = pu_initContext(&context, start, size, 1);
        if (status != PER_OK) {
            throw ReadFailure{status};
        }
    }
    ~ContextOwner() { pu_freeContext(&context); }
    ContextOwner(const ContextOwner&) = delete;
    ContextOwner& operator=(const ContextOwner&) = delete;

    PerContext* get() { return &context; }

private:
    PerContext context{};
};

class Reader {
public:
    Reader(std::span<const uint8_t> message, ShortStrings shortStrings)
        : message(message), shortStrings(shortStrings) {}

    DecodedMessage run(const MessageType& type) {
        DecodedMessage result;
        result.root.name = type.name;
        ContextOwner owner(message);
        ctx = owner.get();
        try {
            value(type, nullptr, result.root);
        } catch (const ReadFailure& failure) {
            result.status = failure.status;
            result.failedAt = static_cast<size_t>(lastPosition / 8);
            result.failedPath = failedPath(result.root);
        }
        result.octetsRead = result.status == PER_OK
                                ? static_cast<size_t>((pu_bitPosition(ctx) + 7) / 8)
                                : result.failedAt;
        noteRest();
        result.oddities = oddities;
        return result;
    }

    bool sawShortString() const { return shortStringSeen; }

private:
    // Failure leaves the path of the last children, which are the ones being read.
    static std::string failedPath(const Node& root) {
        std::string path;
        for (const Node* node = &root; !node->children.empty();) {
            node = &node->children.back();
            path += (path.empty() || node->name[0] == '[' ? "" : ".") + node->name;
        }
        return path;
    }

    // The cursor in the outermost octets, unless the context reads a copy.
    uint64_t position() {
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

    void check(int32_t status) {
        if (status < 0) {
            position();
            throw ReadFailure{status};
        }
    }

    Node& addChild(Node& parent, std::string name) {
        if (++nodes > mostNodes) {
            check(PER_NO_MEMORY);
        }
        parent.children.emplace_back();
        parent.children.back().name = std::move(name);
        return parent.children.back();
    }

    void value(const MessageType& type, const MessageType* contents, Node& node) {
        if (++depth > deepest) {
            check(PER_TOO_DEEP);
        }
        const uint64_t start = position();
        node.bitOffset = start;
        typed(type, contents, node);
        const uint64_t end = position();
        if (start == unknownOffset || end == unknownOffset) {
            node.bitOffset = unknownOffset;
        } else if (node.kind != NodeKind::Octets && node.kind != NodeKind::Bits) {
            node.bitOffset = start + paddingBefore(type, start);
            node.bitLength = end - node.bitOffset;
        }
        --depth;
    }

    /// A bounded INTEGER of 256 to 65536 values takes whole octets (X.691 10.5.7).
    static uint64_t paddingBefore(const MessageType& type, uint64_t position) {
        constexpr int64_t oneOctet = 0xFF;
        constexpr int64_t twoOctets = 0xFFFF;
        const bool whole = type.kind == TypeKind::Integer && type.bounded && !type.extensible &&
                           type.upper - type.lower >= oneOctet &&
                           type.upper - type.lower <= twoOctets;
        return whole ? (8 - position % 8) % 8 : 0;
    }

    void typed(const MessageType& type, const MessageType* contents, Node& node) {
        switch (type.kind) {
        case TypeKind::Sequence:
            sequence(type, node);
            break;
        case TypeKind::Choice:
            choice(type, node);
            break;
        case TypeKind::List:
            list(type, contents, node);
            break;
        case TypeKind::OctetString:
        case TypeKind::OpenType:
            octets(type, contents, node);
            break;
        default:
            simple(type, node);
        }
    }

    // SIZE constraint for the next length. The range must live until then.
    void addSize(const MessageType& type, SizeConstraint& range) {
        if (type.bounded && type.upper <= UINT32_MAX) {
            range = {0, static_cast<uint32_t>(type.lower), static_cast<uint32_t>(type.upper),
                     nullptr};
            check(pu_addSizeConstraint(ctx, &range));
        }
    }

    uint8_t bit() {
        uint8_t result = 0;
        check(pd_bit(ctx, &result));
        return result;
    }

    // Records.

    void sequence(const MessageType& type, Node& node) {
        node.kind = NodeKind::Sequence;
        const bool extended = type.extensible && bit() != 0;
        std::vector<bool> present(type.rootCount, true);
        for (uint32_t i = 0; i < type.rootCount; ++i) {
            if (type.members[i].optional) {
                present[i] = bit() != 0;
            }
        }
        for (uint32_t i = 0; i < type.rootCount; ++i) {
            if (present[i]) {
                member(type.members[i], node);
            }
        }
        if (extended) {
            additions(type, node);
        }
    }

    void member(const MessageMember& member, Node& parent) {
        value(*member.type, member.contents, addChild(parent, member.name));
    }

    void additions(const MessageType& type, Node& node) {
        PerAdditions additions;
        check(pd_beginAdditions(ctx, &additions));
        int32_t next = 0;
        while ((next = pd_nextAddition(ctx, &additions, UINT32_MAX)) > 0) {
            if (additions.index < type.additionCount) {
                member(type.members[type.rootCount + additions.index], node);
                noteRest();
            } else {
                unknown(node, "unknown addition " + std::to_string(additions.index + 1));
            }
        }
        check(next);
    }

    /// The whole of the open type that the context points at.
    void unknown(Node& parent, std::string name) {
        Node& node = addChild(parent, std::move(name));
        node.kind = NodeKind::Unknown;
        node.bitOffset = position();
        node.bitLength = uint64_t{ctx->size} * 8;
        node.value = hexText({ctx->buffer, ctx->size});
        ++oddities;
    }

    /// Bits that were not asked for, less the padding of the last octet.
    void noteRest() {
        const uint64_t end = uint64_t{ctx->size} * 8;
        const uint64_t at = pu_bitPosition(ctx);
        if (at + 8 <= end) {
            ++oddities;
        } else if (at < end && (ctx->buffer[ctx->size - 1] & ((1U << (end - at)) - 1U)) != 0) {
            ++oddities;
        }
    }

    void choice(const MessageType& type, Node& node) {
        node.kind = NodeKind::Choice;
        uint32_t index = 0;
        if (!type.extensible) {
            check(pd_ConsUnsigned(ctx, &index, 0, type.rootCount - 1));
        } else {
            check(pd_choiceHead(ctx, &index, type.rootCount - 1));
            if (index == PER_EXTENDED) {
                extensionAlternative(type, node);
                return;
            }
        }
        if (index >= type.rootCount) {
            check(PER_BAD_CHOICE);
        }
        node.value = type.members[index].name;
        member(type.members[index], node);
    }

    void extensionAlternative(const MessageType& type, Node& node) {
        PerOpenType open;
        uint32_t index = 0;
        check(pd_beginAlternative(ctx, &open, &index));
        if (index < type.additionCount) {
            const MessageMember& chosen = type.members[type.rootCount + index];
            node.value = chosen.name;
            member(chosen, node);
            noteRest();
        } else {
            node.value = "unknown alternative " + std::to_string(uint64_t{index} + 1);
            unknown(node, node.value);
        }
        pd_endOpenType(ctx, &open);
    }

    void list(const MessageType& type, const MessageType* contents, Node& node) {
        node.kind = NodeKind::List;
        int32_t status = PER_FRAGMENT;
        while (status == PER_FRAGMENT) {
            SizeConstraint range{};
            addSize(type, range);
            uint32_t count = 0;
            status = pd_Length(ctx, &count);
            check(status);
            for (uint32_t i = 0; i < count; ++i) {
                Node& element = addChild(node, "[" + std::to_string(node.children.size()) + "]");
                value(*type.element, contents, element);
            }
        }
    }

    // Strings of octets, with messages inside.

    void octets(const MessageType& type, const MessageType* contents, Node& node) {
        node.kind = NodeKind::Octets;
        DynOctetString string{};
        if (type.kind == TypeKind::OpenType) {
            check(pd_OpenType(ctx, &string.data, &string.numocts));
        } else {
            SizeConstraint range{};
            addSize(type, range);
            check(pd_DynOctetString(ctx, &string));
        }
        std::span<const uint8_t> found(string.data, string.numocts);
        node.value = hexText(found);
        node.bitLength = uint64_t{string.numocts} * 8;
        const uint64_t end = position();
        if (string.numocts >= fragmentStep || end == unknownOffset) {
            node.bitOffset = unknownOffset;
        } else {
            node.bitOffset = end - node.bitLength;
            if (node.bitOffset % 8 == 0) {
                found = message.subspan(static_cast<size_t>(node.bitOffset / 8), found.size());
            }
        }
        if (contents != nullptr && !found.empty()) {
            inside(*contents, found, node);
        }
    }

    /// A message that cannot be read stays octets.
    void inside(const MessageType& type, std::span<const uint8_t> octets, Node& node) {
        PerContext* outer = ctx;
        const uint64_t outerPosition = lastPosition;
        const size_t outerDepth = depth;
        const size_t outerNodes = nodes;
        ContextOwner owner(octets);
        ctx = owner.get();
        try {
            value(type, nullptr, addChild(node, type.name));
            noteRest();
        } catch (const ReadFailure&) {
            node.children.clear();
            depth = outerDepth;
            nodes = std::min(nodes, outerNodes);
            lastPosition = outerPosition;
            ++oddities;
        }
        ctx = outer;
    }

    // Values.

    void simple(const MessageType& type, Node& node) {
        switch (type.kind) {
        case TypeKind::Boolean:
            node.kind = NodeKind::Boolean;
            node.value = bit() != 0 ? "true" : "false";
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
            check(pd_ObjectIdentifier(ctx, &identifier));
            node.value = identifierText(identifier);
            break;
        }
        default:
            node.kind = NodeKind::Text;
            text(type, node);
        }
    }

    void integer(const MessageType& type, Node& node) {
        const bool outside = type.extensible && bit() != 0;
        if (!type.bounded || outside || type.upper == INT64_MAX) {
            // A length and octets, as an OCTET STRING without bounds has them.
            DynOctetString octets{};
            check(pd_DynOctetString(ctx, &octets));
            const std::span<const uint8_t> number(octets.data, octets.numocts);
            node.value =
                type.bounded && !outside ? offsetText(type.lower, number) : signedText(number);
            return;
        }
        if (type.lower < 0) {
            int32_t number = 0;
            check(pd_ConsInteger(ctx, &number, static_cast<int32_t>(type.lower),
                                 static_cast<int32_t>(type.upper)));
            node.value = std::to_string(number);
            return;
        }
        uint32_t number = 0;
        check(pd_ConsUnsigned(ctx, &number, static_cast<uint32_t>(type.lower),
                              static_cast<uint32_t>(type.upper)));
        node.value = std::to_string(number);
    }

    void enumerated(const MessageType& type, Node& node) {
        const auto roots = static_cast<uint32_t>(type.upper + 1);
        uint32_t item = 0;
        if (!type.extensible) {
            check(pd_ConsUnsigned(ctx, &item, 0, roots - 1));
        } else {
            check(pd_choiceHead(ctx, &item, roots - 1));
        }
        uint64_t number = item;
        if (type.extensible && item == PER_EXTENDED) {
            check(pd_SmallNonNegWholeNumber(ctx, &item));
            number = uint64_t{item} + roots;
        } else if (item >= roots) {
            check(PER_CONSTRAINT);
        }
        if (number < type.itemCount) {
            node.value = type.items[number];
        } else {
            node.value = std::to_string(number);
            ++oddities;
        }
    }

    void bits(const MessageType& type, Node& node) {
        SizeConstraint range{};
        addSize(type, range);
        DynBitString string{};
        check(pd_DynBitString(ctx, &string));
        node.value = hexText({string.data, (size_t{string.numbits} + 7) / 8});
        node.bitLength = string.numbits;
        const uint64_t end = position();
        node.bitOffset = string.numbits >= fragmentStep || end == unknownOffset
                             ? unknownOffset
                             : end - string.numbits;
    }

    void text(const MessageType& type, Node& node) {
        if (isShortString(type)) {
            shortStringSeen = true;
            if (shortStrings == ShortStrings::AsInX691) {
                shortText(type, node);
                return;
            }
            notePadding();
        }
        SizeConstraint range{};
        addSize(type, range);
        if (type.kind == TypeKind::BmpString) {
            BMPStringValue characters{};
            check(pd_BMPString(ctx, &characters, nullptr));
            node.value = escapedText(characters);
            return;
        }
        const char* characters = nullptr;
        if (type.kind == TypeKind::IA5String && type.alphabet != nullptr) {
            const PermittedAlphabet alphabet = ia5Alphabet(type.alphabet);
            check(pd_ConstrainedString(ctx, &characters, &alphabet));
        } else {
            check(readText(type, &characters));
        }
        node.value = escapedText(characters);
    }

    int32_t readText(const MessageType& type, const char** characters) {
        switch (type.kind) {
        case TypeKind::NumericString:
            return pd_NumericString(ctx, characters, type.alphabet);
        case TypeKind::PrintableString:
            return pd_PrintableString(ctx, characters, type.alphabet);
        case TypeKind::IA5String:
            return pd_IA5String(ctx, characters, type.alphabet);
        default:
            return pd_GeneralString(ctx, characters, type.alphabet);
        }
    }

    void shortText(const MessageType& type, Node& node) {
        uint32_t character = 0;
        check(pd_bits(ctx, &character, 8));
        if (character == 0 || std::strchr(type.alphabet, static_cast<int>(character)) == nullptr) {
            check(PER_CONSTRAINT);
        }
        const char text[] = {static_cast<char>(character), 0};
        node.value = escapedText(text);
    }

    /// Padding in front of an aligned string that is not zero.
    void notePadding() {
        const uint64_t at = pu_bitPosition(ctx);
        const uint64_t size = uint64_t{ctx->size} * 8;
        if (at % 8 != 0 && at < size && (ctx->buffer[at / 8] & (0xFFU >> (at % 8))) != 0) {
            ++oddities;
        }
    }

    std::span<const uint8_t> message;
    ShortStrings shortStrings;
    PerContext* ctx = nullptr;
    uint64_t lastPosition = 0;
    size_t depth = 0;
    size_t nodes = 0;
    uint32_t oddities = 0;
    bool shortStringSeen = false;
};

bool isBetter(const DecodedMessage& one, const DecodedMessage& other) {
    return one.status == PER_OK && (other.status != PER_OK || one.oddities < other.oddities);
}

} // namespace

DecodedMessage decodeMessage(const MessageType& type, std::span<const uint8_t> octets) {
    Reader reader(octets, ShortStrings::Aligned);
    DecodedMessage result = reader.run(type);
    if (reader.sawShortString()) {
        DecodedMessage other = Reader(octets, ShortStrings::AsInX691).run(type);
        if (isBetter(other, result)) {
            result = std::move(other);
            result.warnings.emplace_back(
                "The character of a user-input signal is not aligned, as X.691 has it. The module "
                "aligns the characters of every string and reads another one here.");
        }
    }
    return result;
}

const MessageType* findMessageType(std::string_view name) {
    constexpr size_t prefix = 4; // H225, H245, H235
    std::string wanted(name);
    std::replace(wanted.begin(), wanted.end(), '-', '_');
    const MessageType* withoutPrefix = nullptr;
    for (size_t i = 0; i < messageTypeCount; ++i) {
        const std::string_view known = messageTypes[i]->name;
        if (known == wanted) {
            return messageTypes[i];
        }
        if (known.substr(std::min(prefix, known.size())) == wanted) {
            withoutPrefix = messageTypes[i];
        }
    }
    return withoutPrefix;
}

} // namespace tree
