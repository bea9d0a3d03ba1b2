// Any H.323 message of today as a tree of its fields, each with its value as text and its place in
// the octets. Driven by tables of today's modules (H.323/current/), which also read what older
// versions send. For tools and reports; the module decodes with codecs of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tree/message_type.h"

namespace tree {

enum class NodeKind : uint8_t {
    Sequence,         // children: the fields that are present, in the order of the module
    Choice,           // value: name of the alternative; one child, the alternative
    List,             // children: the elements, named [0], [1], ...
    Boolean,          // true or false
    Null,             // no value
    Integer,          // decimal; hexadecimal octets behind 0x when it has more than 64 bits
    Enumerated,       // name of the item, or its number when it is not known
    Text,             // characters; all but printable ASCII, the quote and the backslash as \uXXXX
    ObjectIdentifier, // 1.2.3
    Octets,           // hexadecimal; one child when they hold a message: that message
    Bits,             // hexadecimal, unused bits zero; bitLength tells how many
    Unknown,          // addition or alternative of a later version: the octets of its open type
};

// Of a node inside a string or open type that was sent in fragments.
constexpr uint64_t unknownOffset = UINT64_MAX;

struct Node {
    std::string name; // member as in the module; of the outermost and of messages inside: the type
    NodeKind kind = NodeKind::Null;
    std::string value; // as the kind says; of Text safe between the quotes of a JSON string

    // Where it stands, counted from the first bit of the octets given: strings of octets and bits
    // without their length, everything else with all that codes it.
    uint64_t bitOffset = unknownOffset;
    uint64_t bitLength = 0;

    std::vector<Node> children;
};

struct DecodedMessage {
    Node root;          // after a failure what was read before it
    int32_t status = 0; // of PerStatus, 0 when all of the message was read
    size_t octetsRead = 0;
    size_t failedAt = 0;    // octet near which reading failed, from the start of the octets given
    std::string failedPath; // the field, as h323-uu-pdu.h323-message-body.setup
    // How much of the octets nothing asked for: contents of open types behind what is known,
    // padding that is not zero, messages of a later version. 0 for most; many for the wrong type.
    uint32_t oddities = 0;
    std::vector<std::string> warnings; // whole sentences
};

// Reads one value of `type` from the start of `octets`, in the aligned variant. Messages inside
// octet strings (fastStart, h245Control, parallelH245Control) become children where they can be
// read. Needs memory in proportion to the octets, and at most that of `mostNodes` nodes.
DecodedMessage decodeMessage(const MessageType& type, std::span<const uint8_t> octets);

// Reading ends with PER_NO_MEMORY when a message has more nodes.
constexpr size_t mostNodes = 200000;

// By the name in the tables, or the name in the module ("Setup-UUIE", the last one where modules
// share a name); null when there is none.
const MessageType* findMessageType(std::string_view name);

// One line a node, two blanks deeper for each level:
//
//     H225TransportAddress: ipAddress
//       ip: c0a80102 (192.168.1.2)
//       port: 1720
//
// The fields of an alternative stand right below the CHOICE.
std::string treeText(const Node& root);

// {"name":…,"kind":…,"value":…,"bitOffset":…,"bitLength":…,"children":[…]}; members that a node has
// not are left out. Booleans and integers up to 64 bits are values of their own kind. ASCII.
std::string treeJson(const Node& root);

// The value of one node as treeText shows it, as a JSON string in ASCII; of Text the characters.
std::string valueJson(const Node& node);

} // namespace tree
