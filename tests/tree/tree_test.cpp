// Trees of messages against what independent encoders were given, and against the places where
// independent decoders find addresses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "asn1per/status.h"
#include "cli/hex.h"
#include "tests/vectors/vector_set.h"
#include "tree/message_tree.h"

namespace {

using tree::DecodedMessage;
using tree::Node;
using tree::NodeKind;

DecodedMessage decode(const std::string& type, const std::vector<uint8_t>& octets) {
    // Types that have another name in the versions that the module knows.
    static const std::map<std::string, std::string> renamed = {
        {"H235H235NonStandardParameter", "H235NonStandardParameter"},
        {"H245ModeElement_type", "H245ModeElementType"}};
    const auto other = renamed.find(type);
    const tree::MessageType* found =
        tree::findMessageType(other == renamed.end() ? type : other->second);
    if (found == nullptr) {
        throw std::runtime_error("no type " + type);
    }
    return tree::decodeMessage(*found, octets);
}

// ---- places --------------------------------------------------------------------------------

void collect(const Node& node, const std::string& path, std::string& places) {
    if (node.name == "multicastAddress") {
        return;
    }
    const bool address = node.name == "ipAddress" || node.name == "ipSourceRoute" ||
                         node.name == "iPAddress" || node.name == "iPSourceRouteAddress";
    for (const Node& child : node.children) {
        if (address && (child.name == "ip" || child.name == "network") &&
            child.bitOffset != tree::unknownOffset) {
            places +=
                (places.empty() ? "" : ",") + path + "=" + std::to_string(child.bitOffset / 8);
        }
        // A message inside octets has no name of its own in a path.
        const bool inside = node.kind == NodeKind::Octets;
        const bool dotted = !inside && !path.empty() && child.name[0] != '[';
        collect(child, path + (dotted ? "." : "") + (inside ? "" : child.name), places);
    }
}

class Places : public testing::TestWithParam<const char*> {};

TEST_P(Places, AreThoseOfIndependentDecoders) {
    size_t found = 0;
    for (const cli::VectorLine& line : readVectors(GetParam())) {
        const DecodedMessage message = decode(line.type, line.encoding);
        std::string places;
        collect(message.root, "", places);
        if (line.remark == "#fragmented") {
            EXPECT_EQ(message.status, PER_OK) << line.number;
            continue;
        }
        EXPECT_EQ(places.empty() ? "-" : places, line.third)
            << GetParam() << ":" << line.number << " status " << message.status << " at "
            << message.failedAt << " in " << message.failedPath;
        ++found;
    }
    EXPECT_GT(found, 50U);
}

INSTANTIATE_TEST_SUITE_P(Files, Places, testing::Values("addresses.txt", "addresses-captured.txt"),
                         [](const auto& info) { return "File" + std::to_string(info.index); });

// ---- messages that are wrong ---------------------------------------------------------------

void checkPlaces(const Node& node, size_t octets, size_t& nodes) {
    ++nodes;
    if (node.bitOffset != tree::unknownOffset) {
        ASSERT_LE(node.bitOffset + node.bitLength, octets * 8) << node.name;
    }
    for (const Node& child : node.children) {
        checkPlaces(child, octets, nodes);
    }
}

// Nothing is read or told outside the octets, and no message costs more nodes than it has bits.
void checkAnswer(const std::string& type, const std::vector<uint8_t>& octets) {
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[octets.size()]);
    std::copy(octets.begin(), octets.end(), exact.get());
    const DecodedMessage message =
        tree::decodeMessage(*tree::findMessageType(type), {exact.get(), octets.size()});
    size_t nodes = 0;
    checkPlaces(message.root, octets.size(), nodes);
    EXPECT_LE(nodes, octets.size() * 8 + 16);
    EXPECT_LE(message.failedAt, octets.size());
    EXPECT_FALSE(tree::treeText(message.root).empty());
}

TEST(WrongMessages, AreReadAsFarAsTheyGo) {
    for (const cli::VectorLine& line : readVectors("addresses-captured.txt")) {
        for (size_t cut = 0; cut < line.encoding.size(); ++cut) {
            checkAnswer(line.type, {line.encoding.begin(),
                                    line.encoding.begin() + static_cast<std::ptrdiff_t>(cut)});
        }
        for (size_t bit = 0; bit < line.encoding.size() * 8; bit += 7) {
            std::vector<uint8_t> flipped = line.encoding;
            flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1U << bit % 8));
            checkAnswer(line.type, flipped);
        }
    }
}

// Nested generic data and lists of elements that cost a bit: depth, nodes and time stay bounded.
TEST(WrongMessages, OfOnesAndZeroesAreBounded) {
    for (const int octet : {0x00, 0x01, 0x40, 0x7F, 0x80, 0xAA, 0xFF}) {
        const std::vector<uint8_t> octets(20000, static_cast<uint8_t>(octet));
        for (size_t i = 0; i < tree::messageTypeCount; i += 7) {
            const DecodedMessage message = tree::decodeMessage(*tree::messageTypes[i], octets);
            size_t nodes = 0;
            checkPlaces(message.root, octets.size(), nodes);
            EXPECT_LE(nodes, tree::mostNodes + 1) << tree::messageTypes[i]->name;
        }
    }
}

// ---- values --------------------------------------------------------------------------------

/// Compares a tree with its value in the notation of values.txt.
class Matcher {
public:
    explicit Matcher(const std::string& text) : text(text) {}

    bool matches(const Node& node) { return value(node) && cursor == text.size(); }
    std::string rest() const { return text.substr(cursor, 60); }

private:
    bool accept(const std::string& part) {
        const bool found = text.compare(cursor, part.size(), part) == 0;
        cursor += found ? part.size() : 0;
        return found;
    }

    // Names changed their spelling from one version to the next.
    bool name(const std::string& asn1Name) {
        static const std::map<std::string, std::string> earlier = {
            {"dialledDigits", "e164"},
            {"e164Number", "publicNumber"},
            {"h245Tunnelling", "h245Tunneling"},
            {"callSignalling", "callSignaling"}};
        const auto found = earlier.find(asn1Name);
        std::string wanted = found == earlier.end() ? asn1Name : found->second;
        std::replace(wanted.begin(), wanted.end(), '-', '_');
        return accept(wanted);
    }

    bool children(const Node& node, bool named) {
        for (size_t i = 0; i < node.children.size(); ++i) {
            if ((i > 0 && !accept(",")) ||
                (named && !(name(node.children[i].name) && accept(":"))) ||
                !value(node.children[i])) {
                return false;
            }
        }
        return true;
    }

    bool characters(const std::string& escaped) {
        const bool wide = accept("u");
        if (!wide && !accept("s")) {
            return false;
        }
        for (size_t i = 0; i < escaped.size();) {
            const bool isEscape = escaped[i] == '\\';
            const unsigned long code = isEscape ? std::stoul(escaped.substr(i + 2, 4), nullptr, 16)
                                                : static_cast<unsigned char>(escaped[i]);
            char digits[8];
            (void)std::snprintf(digits, sizeof digits, wide ? "%04lx" : "%02lx", code);
            if (!accept(digits)) {
                return false;
            }
            i += isEscape ? 6 : 1;
        }
        return true;
    }

    bool value(const Node& node) {
        switch (node.kind) {
        case NodeKind::Sequence:
            return accept("{") && children(node, true) && accept("}");
        case NodeKind::Choice:
            return name(node.value) && accept("(") && value(node.children.at(0)) && accept(")");
        case NodeKind::List:
            return accept("[") && children(node, false) && accept("]");
        case NodeKind::Boolean:
            return accept(node.value == "true" ? "T" : "F");
        case NodeKind::Null:
            return accept("-");
        case NodeKind::Bits:
            return accept(std::to_string(node.bitLength) + ":" + node.value);
        case NodeKind::Octets:
            return accept("OPEN") || accept(node.value);
        case NodeKind::Text:
            return characters(node.value);
        default:
            return accept(node.value);
        }
    }

    const std::string& text;
    size_t cursor = 0;
};

// A text without characters takes its length alone, also where nothing follows and between octets.
TEST(Values, OfTextsMayBeEmpty) {
    const std::pair<const char*, const char*> cases[] = {
        {"H225Content", "0800"}, {"H245DialingInformation", "2000010000200004"}};
    for (const auto& [type, hex] : cases) {
        const std::vector<uint8_t> octets = cli::fromHex(hex);
        const DecodedMessage message = decode(type, octets);
        EXPECT_EQ(message.status, PER_OK) << message.failedPath;
        EXPECT_EQ(message.octetsRead, octets.size());
        EXPECT_EQ(message.oddities, 0U) << tree::treeText(message.root);
    }
}

// A zero is a character; a fragment of none is none, whatever follows it.
TEST(Values, OfTextsHaveTheLengthThatWasSent) {
    const std::pair<const char*, const char*> cases[] = {{"4003410042", "A\\u0000B"},
                                                         {"40c0054142434445", ""}};
    for (const auto& [hex, text] : cases) {
        const std::vector<uint8_t> octets = cli::fromHex(hex);
        EXPECT_EQ(tree::treeText(decode("H245UserInputIndication", octets).root),
                  std::string("H245UserInputIndication: alphanumeric\n  alphanumeric: \"") + text +
                      "\"\n");
    }
}

TEST(Values, AreThoseThatTheEncoderWasGiven) {
    for (const cli::VectorLine& line : readVectors("values.txt")) {
        // The one type that today's versions code in another way.
        if (line.third.find("profileAndLevel_SPatML") != std::string::npos) {
            continue;
        }
        const DecodedMessage message = decode(line.type, line.encoding);
        ASSERT_EQ(message.status, PER_OK) << line.number << " " << line.type;
        EXPECT_TRUE(nlohmann::json::accept(tree::treeJson(message.root))) << line.number;
        Matcher matcher(line.third);
        EXPECT_TRUE(matcher.matches(message.root))
            << "line " << line.number << " at " << matcher.rest() << "\n"
            << tree::treeText(message.root);
    }
}

} // namespace
