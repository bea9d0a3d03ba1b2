// The reader of messages as trees on any octets: nodes inside them, a number of nodes that the
// octets bound, the same answer twice, and output that programs can read.
//
// Input: type (two octets), the message.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "asn1per/status.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "tree/message_tree.h"

namespace fuzzing {
namespace {

void requireInside(const tree::Node& node, size_t bits, size_t& nodes) {
    ++nodes;
    if (node.bitOffset != tree::unknownOffset) {
        require(node.bitOffset <= bits && node.bitLength <= bits - node.bitOffset,
                "a node is inside the octets");
    }
    for (const tree::Node& child : node.children) {
        requireInside(child, bits, nodes);
    }
}

} // namespace
} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    Input input(data, size);
    const tree::MessageType& type = *tree::messageTypes[input.number16() % tree::messageTypeCount];
    const Octets message = input.remainder();
    const auto octets = std::make_unique<uint8_t[]>(message.size());
    std::copy(message.begin(), message.end(), octets.get());
    const std::span<const uint8_t> encoding(octets.get(), message.size());

    const tree::DecodedMessage decoded = tree::decodeMessage(type, encoding);
    size_t nodes = 0;
    requireInside(decoded.root, message.size() * 8, nodes);
    // An element of a list may take no bit at all; their number is limited.
    require(nodes <= tree::mostNodes + 1, "nodes are bounded");
    require(decoded.octetsRead <= message.size() && decoded.failedAt <= message.size(),
            "reading ends inside the octets");
    require(decoded.status == PER_OK || decoded.status < 0, "a failure has a status");

    const std::string json = tree::treeJson(decoded.root);
    require(nlohmann::json::accept(json), "programs can read the tree");
    const std::string text = tree::treeText(decoded.root);
    require(std::ranges::all_of(text, [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }),
            "a tree is printable lines");
    require(tree::treeJson(tree::decodeMessage(type, encoding).root) == json,
            "the same octets give the same tree");
    return 0;
}
