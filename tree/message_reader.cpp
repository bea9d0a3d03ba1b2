#include <algorithm>

#include "asn1per/asn1per.h"
#include "tree/message_tree.h"
#include "tree/reading.h"
#include "tree/value_text.h"

namespace tree {
namespace {

constexpr size_t deepest = 256; // nodes above a node; today's modules need less than 100

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

// The structure of a message; its values are read elsewhere.
class Reader : private Reading {
public:
    Reader(std::span<const uint8_t> message, ShortStrings shortStrings)
        : Reading(message, shortStrings) {}

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
            readValue(*this, type, node);
        }
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

    size_t depth = 0;
    size_t nodes = 0;
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
