#pragma once

#include "report/call_record.h"
#include "tree/message_tree.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

namespace report {

// Writes what page.js needs to show single messages: {"messages":[...],"strings":[...]}. A message
// has
//   title, octets (hexadecimal), tree, error (where reading failed), changed and left.
// A node of the tree is [name, value, bitOffset, bitLength, children...], name and value being
// numbers of strings, bitOffset -1 when it is not known. An entry of `changed` is
// [offset, old, new, path, short path], of `left` [offset, address, cause, path, short path].
class MessageData {
public:
    // Trees are left out when the page has so many octets of them already.
    explicit MessageData(size_t mostTreeOctets = size_t{64} << 20) : mostTrees_(mostTreeOctets) {}

    // Gives the message's number in the data.
    size_t add(const LadderMessage& message, const std::string& title);
    void write(std::ostream& out) const;

private:
    size_t stringNumber(const std::string& json);
    void appendTree(std::string& json, const tree::Node& node);

    size_t mostTrees_;
    size_t treeOctets_ = 0;
    std::vector<std::string> messages_; // as JSON
    std::vector<std::string> strings_;  // as JSON
    std::unordered_map<std::string, size_t> numbers_;
};

} // namespace report
