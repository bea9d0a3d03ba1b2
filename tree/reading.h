// A message that is being read: what its structure and its values have in common.
#pragma once

#include <cstdint>
#include <span>

#include "asn1per/asn1per.h"
#include "tree/message_tree.h"

namespace tree {

constexpr uint32_t fragmentStep = 16384; // longer strings come in pieces

// How one value of a single character is read: strings are aligned here whatever their size, while
// X.691 30.5.6 does not align strings of fixed size up to 16 bits. The digit of a user-input signal
// is the one such string.
enum class ShortStrings : uint8_t { Aligned, AsInX691 };

struct ReadFailure {
    int32_t status;
};

class Reading {
public:
    Reading(std::span<const uint8_t> message, ShortStrings shortStrings)
        : message(message), shortStrings(shortStrings) {}

    // The cursor in the outermost octets, unless the context reads a copy.
    uint64_t position();

    // Throws ReadFailure when the runtime gave one.
    void check(int32_t status);

    uint8_t bit();

    // SIZE constraint for the next length. The range must live until then.
    void addSize(const MessageType& type, SizeConstraint& range);

    std::span<const uint8_t> message;
    ShortStrings shortStrings;
    PerContext* ctx = nullptr;
    uint64_t lastPosition = 0;
    uint32_t oddities = 0;
    bool shortStringSeen = false;
};

// A value that holds no other: numbers, names, bits and texts.
void readValue(Reading& reading, const MessageType& type, Node& node);

} // namespace tree
