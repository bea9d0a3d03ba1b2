// The locator against the decoders: the tree reader, which knows today's modules, and the codecs of
// the module's own versions, which tell where the octets of a decoded field came from.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "cli/located_addresses.h"
#include "fuzz/value.h"
#include "tests/vectors/vector_set.h"
#include "tree/message_tree.h"

namespace {

using Octets = std::vector<uint8_t>;
using Offsets = std::set<size_t>;

Offsets offsetsOf(const cli::LocatedAddresses& located) {
    Offsets offsets;
    for (const cli::LocatedAddress& place : located.places) {
        offsets.insert(place.offset);
    }
    return offsets;
}

// ---- what the tree reader finds ------------------------------------------------------------

using Numbers = std::set<std::pair<size_t, std::string>>; // with the octet where they stand

struct TreePlaces {
    Offsets offsets;
    Offsets callIdentifiers;
    Numbers channelNumbers;   // more than are told
    bool inFragments = false; // some that have no place
    size_t unread = 0;        // messages in octet strings that do not read
};

bool holdsMessage(const std::string& list) {
    return list == "fastStart" || list == "h245Control" || list == "parallelH245Control";
}

void collect(const tree::Node& node, TreePlaces& places) {
    const bool isAddress = node.name == "ipAddress" || node.name == "ipSourceRoute" ||
                           node.name == "iPAddress" || node.name == "iPSourceRouteAddress";
    if (node.name == "multicastAddress") {
        return;
    }
    for (const tree::Node& child : node.children) {
        if (holdsMessage(node.name) && child.children.empty()) {
            ++places.unread;
        }
        if (isAddress && (child.name == "ip" || child.name == "network")) {
            if (child.bitOffset == tree::unknownOffset) {
                places.inFragments = true;
            } else {
                places.offsets.insert(static_cast<size_t>(child.bitOffset / 8));
            }
        }
        const auto octet = static_cast<size_t>(child.bitOffset / 8);
        if (child.name == "guid") {
            places.callIdentifiers.insert(octet);
        } else if (child.name.ends_with("LogicalChannelNumber")) {
            places.channelNumbers.emplace(octet, child.value);
        }
        collect(child, places);
    }
}

// ---- what the codecs find ------------------------------------------------------------------

class CodecPlaces {
public:
    explicit CodecPlaces(const Octets& message) : message(message) {}

    /// False when the message does not decode.
    bool read(const TypeDescription& type, std::span<const uint8_t> octets,
              const PerContext* outer = nullptr) {
        MessageValue value(type);
        PerContext* ctx = value.context();
        if (octets.empty() ||
            pu_initContext(ctx, octets.data(), static_cast<uint32_t>(octets.size()), 1) != PER_OK) {
            return false;
        }
        pu_setLenient(ctx, 1);
        pu_recordSpans(ctx, outer);
        if (value.decode(octets) != PER_OK) {
            return false;
        }
        collect(type, value.record(), *ctx);
        return true;
    }

    Offsets offsets;

private:
    void collect(const TypeDescription& type, const void* value, const PerContext& ctx) {
        const std::string_view name = type.name;
        if (type.kind == TypeKind::Sequence) {
            const bool isAddress = name == "H225TransportAddress_ipAddress" ||
                                   name == "H225TransportAddress_ipSourceRoute" ||
                                   name == "H245UnicastAddress_iPAddress" ||
                                   name == "H245UnicastAddress_iPSourceRouteAddress";
            for (uint32_t i = 0; i < type.memberCount; ++i) {
                const MemberDescription& member = type.members[i];
                if (!fuzzing::isPresent(member, value)) {
                    continue;
                }
                const void* held = fuzzing::memberValue(member, value);
                const std::string_view memberName = member.name;
                if (isAddress && (memberName == "ip" || memberName == "network")) {
                    addPlace(held, ctx);
                } else if (memberName == "fastStart") {
                    messagesIn("H245OpenLogicalChannel", held, ctx);
                } else if (holdsMessage(member.name)) {
                    messagesIn("H245MultimediaSystemControlMessage", held, ctx);
                } else {
                    collect(*member.type, held, ctx);
                }
            }
        } else if (type.kind == TypeKind::Choice) {
            const MemberDescription* member = fuzzing::chosenMember(type, value);
            if (member != nullptr) {
                const void* held = fuzzing::memberValue(*member, value);
                if (held != nullptr) {
                    collect(*member->type, held, ctx);
                }
            }
        } else if (type.kind == TypeKind::List) {
            const auto& list = *static_cast<const fuzzing::ListHead*>(value);
            for (uint32_t i = 0; i < list.count; ++i) {
                collect(*type.element, list.elements + size_t{i} * type.element->size, ctx);
            }
        }
    }

    void addPlace(const void* address, const PerContext& ctx) {
        constexpr uint32_t octets = 6;
        const uint8_t* source =
            pu_sourceOf(&ctx, static_cast<const fuzzing::ArrayHead*>(address)->data, octets);
        if (source != nullptr) {
            offsets.insert(static_cast<size_t>(source - message.data()));
        }
    }

    void messagesIn(const char* type, const void* strings, const PerContext& ctx) {
        const auto& list = *static_cast<const fuzzing::ListHead*>(strings);
        for (uint32_t i = 0; i < list.count; ++i) {
            const auto& string = reinterpret_cast<const DynOctetString*>(list.elements)[i];
            read(*findType(type), {string.data, string.numocts}, &ctx);
        }
    }

    const Octets& message;
};

// ---- comparing -----------------------------------------------------------------------------

// What the locator tells besides addresses.
void compareFacts(LocatedType type, const Octets& octets, const TreePlaces& inTree) {
    LocatorWalk walk;
    LocatedPlace place;
    Offsets callIdentifiers;
    startLocating(walk, type, octets.data(), octets.size(), allPlaceKinds);
    while (nextPlace(walk, place)) {
        if (place.kind == PlaceKind::callIdentifier) {
            EXPECT_EQ(place.length, 16U);
            callIdentifiers.insert(place.offset);
        } else if (place.kind == PlaceKind::channelNumber) {
            EXPECT_TRUE(inTree.channelNumbers.contains({place.offset, std::to_string(place.value)}))
                << place.offset << " " << place.value;
        }
    }
    EXPECT_EQ(callIdentifiers, inTree.callIdentifiers);
}

struct Tally {
    size_t lines = 0;
    size_t asToday = 0; // read to their end by the tree reader
    size_t decoded = 0; // by the codecs as well
};

// What does not read as a message of today, be it for one octet string in it, is no measure: the
// additions of made-up later versions stand where those of today do.
void compare(const std::string& type, const Octets& octets, const std::string& what, Tally& tally) {
    ++tally.lines;
    const Offsets found = offsetsOf(cli::locateAddresses(cli::requireLocatedType(type), octets));
    const tree::DecodedMessage message = tree::decodeMessage(*tree::findMessageType(type), octets);
    TreePlaces inTree;
    collect(message.root, inTree);
    if (message.status != 0 || inTree.inFragments || inTree.unread != 0) {
        return;
    }
    ++tally.asToday;
    EXPECT_EQ(found, inTree.offsets) << what;
    {
        SCOPED_TRACE(what);
        compareFacts(cli::requireLocatedType(type), octets, inTree);
    }
    CodecPlaces inCodec(octets);
    if (inCodec.read(*findType(type), octets)) {
        ++tally.decoded;
        EXPECT_TRUE(std::includes(found.begin(), found.end(), inCodec.offsets.begin(),
                                  inCodec.offsets.end()))
            << what << " " << testing::PrintToString(found) << " and "
            << testing::PrintToString(inCodec.offsets);
    }
}

struct VectorFile {
    const char* name;
    size_t asToday; // so many of a hundred lines at least
};

class Decoders : public testing::TestWithParam<VectorFile> {};

TEST_P(Decoders, FindTheSamePlaces) {
    const VectorFile& file = GetParam();
    std::mt19937 random(1);
    Tally whole;
    Tally changed;
    for (const cli::VectorLine& line : readVectors(file.name)) {
        if (!cli::locatedTypeNamed(line.type)) {
            continue;
        }
        const std::string what = std::string(file.name) + ":" + std::to_string(line.number);
        compare(line.type, line.encoding, what, whole);
        constexpr int mutations = 4;
        constexpr size_t longest = 2000;
        for (int i = 0; i < mutations && line.encoding.size() < longest; ++i) {
            Octets octets = line.encoding;
            const size_t at = random() % octets.size();
            const auto octet = static_cast<uint8_t>(random());
            octets[at] = i == 0 ? octet : static_cast<uint8_t>(octets[at] ^ 1U << octet % 8);
            compare(line.type, octets,
                    what + " with octet " + std::to_string(at) + " as " +
                        std::to_string(octets[at]),
                    changed);
        }
    }
    EXPECT_GE(whole.asToday * 100, whole.lines * file.asToday);
    EXPECT_GT(whole.decoded, 0U);
    EXPECT_GT(changed.decoded, 0U);
}

constexpr VectorFile files[] = {{"addresses.txt", 95},      {"addresses-captured.txt", 95},
                                {"later-versions.txt", 40}, {"valid.txt", 95},
                                {"known.txt", 95},          {"kept.txt", 80},
                                {"dropped.txt", 20},        {"rejected.txt", 1},
                                {"values.txt", 95}};

INSTANTIATE_TEST_SUITE_P(Files, Decoders, testing::ValuesIn(files), [](const auto& info) {
    std::string name = info.param.name;
    name.resize(name.find('.'));
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

} // namespace
