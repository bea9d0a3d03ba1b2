// Changes messages by their fields: decode, change one field of the value, encode.
#pragma once

#include <deque>
#include <random>
#include <vector>

#include "asn1per/type_description.h"
#include "fuzz/input.h"

namespace fuzzing {

using Random = std::minstd_rand;

class ValueMutator {
public:
    explicit ValueMutator(Random& random) : random_(random) {}

    /// Changes one to four fields of a message, in octet strings that hold a fast-start element
    /// too. A message that does not decode becomes a new one of its type. Empty when the result
    /// does not encode.
    Octets mutate(const TypeDescription& type, const Octets& message);

    /// A new message with random fields.
    Octets make(const TypeDescription& type);

private:
    struct Node {
        const TypeDescription* type;
        void* value;
    };

    size_t below(size_t bound) { return bound == 0 ? 0 : random_() % bound; }
    bool oneIn(size_t count) { return below(count) == 0; }
    void* memory(size_t octets);

    void fill(const TypeDescription& type, void* value, unsigned depth);
    void fillMember(const MemberDescription& member, void* record, unsigned depth);
    void fillChoice(const TypeDescription& type, void* record, unsigned depth);
    void fillOctets(uint8_t* data, size_t count);
    int64_t number(const TypeDescription& type);
    uint32_t length(const TypeDescription& type, unsigned depth);

    void collect(const TypeDescription& type, void* value, std::vector<Node>& nodes);
    void change(const Node& node);
    void changeSequence(const Node& node);
    void changeList(const Node& node);
    void changeString(const Node& node);

    Random& random_;
    std::deque<std::vector<uint64_t>> memory_; // of the values being built
};

} // namespace fuzzing
