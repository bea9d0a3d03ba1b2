#include "nat/q931.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/octets.h"

using test_support::fromHex;
using test_support::Octets;

namespace {

// Header of nine octets, then the elements.
struct Walked {
    std::vector<std::pair<size_t, size_t>> found; // offset and octets
    Q931Element end = Q931Element::End;
};

// Walks octets that end where the message does, so that a sanitizer sees every read beyond.
Walked walk(const std::string& elements) {
    const Octets octets = fromHex("030000000802000105" + elements);
    const auto message = std::make_unique<uint8_t[]>(octets.size());
    std::copy(octets.begin(), octets.end(), message.get());
    Walked walked;
    Q931Walk steps = walkQ931(message.get(), octets.size());
    OctetRange range = {};
    walked.end = nextUserInformation(steps, range);
    while (walked.end == Q931Element::UserInformation) {
        walked.found.emplace_back(range.offset, range.octets);
        EXPECT_LE(range.offset + range.octets, octets.size());
        walked.end = nextUserInformation(steps, range);
    }
    return walked;
}

struct WalkCase {
    std::string elements;
    std::vector<std::pair<size_t, size_t>> found;
    Q931Element end;
};

using enum Q931Element;

const WalkCase walkCases[] = {
    {"", {}, End},
    // Single octet, ordinary, User-user up to the last octet.
    {"a1 0403808082 7e0003 05aabb", {{19, 2}}, End},
    // Single octets of any kind, one of which has the User-user element's low bits.
    {"80 fe ff 7e0002 05aa", {{16, 1}}, End},
    // Both of two User-user elements.
    {"7e0002 05aa a1 7e0003 05bbcc", {{13, 1}, {19, 2}}, End},
    // The discriminator alone: an encoding of no octets.
    {"7e0001 05", {{13, 0}}, End},
    // Length 0 does not even cover the discriminator; one octet too many.
    {"7e0000", {}, BeyondMessage},
    {"7e0003 05aa", {}, BeyondMessage},
    {"7e0002 05aa 7effff 05", {{13, 1}}, BeyondMessage},
    // Cut in the header of an element, or in an ordinary element's content.
    {"7e", {}, End},
    {"7e00", {}, End},
    {"04", {}, End},
    {"0405 8080", {}, End},
};

TEST(Q931, FindsEveryUserInformation) {
    for (const WalkCase& test : walkCases) {
        const Walked walked = walk(test.elements);
        EXPECT_EQ(walked.found, test.found) << test.elements;
        EXPECT_EQ(walked.end, test.end) << test.elements;
    }
}

TEST(Q931, ShortMessagesHaveNoElements) {
    const uint8_t octets[9] = {};
    for (size_t length = 0; length <= sizeof octets; ++length) {
        Q931Walk steps = walkQ931(octets, length);
        OctetRange range = {};
        EXPECT_EQ(nextUserInformation(steps, range), Q931Element::End) << length;
    }
}

} // namespace
