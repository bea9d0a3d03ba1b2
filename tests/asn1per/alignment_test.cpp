// Strings and the alignment of their contents: encodings worked out by hand from X.691, written and
// read back in both variants.
#include <cstring>
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

struct StringCase {
    uint32_t lower;
    uint32_t upper;
    uint32_t octets;
    const char* hex; // after one 1 bit, contents 61 62 63 ...
};

// X.691 16.6 to 16.8: fixed sizes up to two octets are packed, everything else is aligned.
const StringCase STRINGS[] = {
    {0, 0, 0, "80"},
    {1, 1, 1, "b080"},
    {2, 2, 2, "b0b100"},
    {3, 3, 3, "80616263"},
    {0, 7, 0, "80"},
    {0, 7, 2, "a06162"},
    {0, 7, 3, "b0616263"},
    {8, 263, 8, "80006162636465666768"},
    {0, UINT32_MAX, 3, "8003616263"},
};

TEST(OctetString, AlignmentFollowsTheSizeConstraint) {
    const uint8_t data[] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    for (const StringCase& c : STRINGS) {
        SCOPED_TRACE(c.hex);
        Writer sized;
        Writer chained;
        const SizeConstraint range = {0, c.lower, c.upper, nullptr};
        ASSERT_EQ(pe_bit(&sized, 1), 0);
        ASSERT_EQ(pe_bit(&chained, 1), 0);
        ASSERT_EQ(pe_OctetStringSized(&sized, c.octets, data, c.lower, c.upper), 0);
        ASSERT_EQ(pu_addSizeConstraint(&chained, &range), 0);
        ASSERT_EQ(pe_OctetString(&chained, c.octets, data), 0);
        EXPECT_EQ(sized.hex(), c.hex);
        EXPECT_EQ(chained.hex(), c.hex);

        Reader in(sized.octets());
        uint32_t count = 99;
        uint8_t read[8] = {};
        ASSERT_EQ(pd_bit(&in, nullptr), 0);
        ASSERT_EQ(pd_OctetStringSized(&in, &count, read, 8, c.lower, c.upper), 0);
        ASSERT_EQ(count, c.octets);
        EXPECT_EQ(std::memcmp(read, data, count), 0);
        EXPECT_EQ(pu_bitPosition(&in), pu_bitPosition(&sized));
    }
}

TEST(BitString, PackedUpToSixteenBits) {
    const uint8_t data[] = {0xAB, 0xCD, 0xE0};
    for (const auto& [bits, hex] : {std::pair{16U, "d5e680"}, std::pair{17U, "80abcd80"}}) {
        Writer out;
        ASSERT_EQ(pe_bit(&out, 1), 0);
        ASSERT_EQ(pe_BitStringSized(&out, bits, data, bits, bits), 0);
        EXPECT_EQ(out.hex(), hex);
        Reader in(out.octets());
        uint32_t count = 0;
        uint8_t read[3] = {};
        ASSERT_EQ(pd_bit(&in, nullptr), 0);
        ASSERT_EQ(pd_BitStringSized(&in, &count, read, 3, bits, bits), 0);
        EXPECT_EQ(count, bits);
        EXPECT_EQ(toHex(read, 3), bits == 16 ? "abcd00" : "abcd80"); // the rest is cleared
    }
}

// Ranges, count of items, and whether their contents are aligned, or a status.
struct AlignmentCase {
    std::vector<SizeConstraint> ranges;
    uint32_t count;
    uint8_t isBitString;
    int32_t expected;
};

TEST(Alignment, UnderChainsOfSeveralRanges) {
    const std::vector<SizeConstraint> twoOrMore = {{0, 2, 2, nullptr}, {0, 4, 8, nullptr}};
    const std::vector<SizeConstraint> upToTwo = {{0, 0, 1, nullptr}, {0, 2, 2, nullptr}};
    const std::vector<SizeConstraint> beyond = {{0, 0, 1, nullptr}, {1, 2, 2, nullptr}};
    const std::vector<SizeConstraint> beyondFirst = {{1, 2, 2, nullptr}, {0, 0, 1, nullptr}};
    const std::vector<SizeConstraint> wide = {{0, 9, 9, nullptr}, {0, 16, 16, nullptr}};
    const AlignmentCase cases[] = {
        {twoOrMore, 2, 0, 0},
        {twoOrMore, 4, 0, 1},
        {twoOrMore, 1, 0, PER_DOES_NOT_FIT},
        {twoOrMore, 4, 1, 1},
        {upToTwo, 2, 0, 0},
        {upToTwo, 1, 0, 1},
        {beyond, 2, 0, 1},
        {beyondFirst, 2, 0, 1},
        {beyondFirst, 1, 0, 1},
        {wide, 9, 1, 0},
        {wide, 16, 1, 0},
        {wide, 17, 1, 1},
        {wide, 9, 0, 1},
        {wide, 8, 1, PER_DOES_NOT_FIT},
    };
    for (const AlignmentCase& c : cases) {
        std::vector<SizeConstraint> chain = c.ranges;
        for (size_t i = 0; i + 1 < chain.size(); ++i) {
            chain[i].next = &chain[i + 1];
        }
        uint8_t needed = 9;
        const int32_t status =
            pu_stringNeedsAlignment(chain.data(), c.count, c.isBitString, &needed);
        EXPECT_EQ(status != PER_OK ? status : needed, c.expected)
            << c.count << " under " << c.ranges[0].lower << ".." << c.ranges[0].upper;
    }
}

// A range that is pending stays in force, whatever the call brings along: 1..300, so that the
// length takes two octets.
struct PendingCase {
    const char* hex;
    int32_t (*write)(PerContext*);
    int32_t (*read)(PerContext*, uint32_t* count);
};

const uint8_t LETTERS[] = {'a', 'b', 'c'};
const uint16_t WIDE_LETTERS[] = {'a', 'b', 'c'};
uint8_t received[8];

const PendingCase PENDING[] = {
    {"0002", [](PerContext* c) { return pe_LengthSized(c, 3, 0, 255) == 3 ? 0 : -99; },
     [](PerContext* c, uint32_t* count) { return pd_LengthSized(c, count, 0, 255); }},
    {"0002616263", [](PerContext* c) { return pe_OctetStringSized(c, 3, LETTERS, 3, 3); },
     [](PerContext* c, uint32_t* count) {
         return pd_OctetStringSized(c, count, received, 8, 3, 3);
     }},
    {"0002616263", [](PerContext* c) { return pe_OctetStringSized(c, 3, LETTERS, 0, 255); },
     [](PerContext* c, uint32_t* count) {
         return pd_OctetStringSized(c, count, received, 8, 0, 255);
     }},
    {"0002616263", [](PerContext* c) { return pe_OctetStringSized(c, 3, LETTERS, 3, 9); },
     [](PerContext* c, uint32_t* count) {
         return pd_OctetStringSized(c, count, received, 8, 3, 9);
     }},
    {"0002616263", [](PerContext* c) { return pe_OctetString(c, 3, LETTERS); },
     [](PerContext* c, uint32_t* count) {
         DynOctetString value = {};
         const int32_t status = pd_DynOctetString(c, &value);
         *count = value.numocts;
         return status;
     }},
    {"000260", [](PerContext* c) { return pe_BitStringSized(c, 3, LETTERS, 3, 3); },
     [](PerContext* c, uint32_t* count) { return pd_BitStringSized(c, count, received, 8, 3, 3); }},
    {"0002616263", [](PerContext* c) { return pe_IA5StringSized(c, "abc", nullptr, 1, 256); },
     [](PerContext* c, uint32_t* count) {
         const char* text = "";
         const int32_t status = pd_IA5StringSized(c, &text, nullptr, 1, 256);
         *count = static_cast<uint32_t>(std::strlen(text));
         return status;
     }},
    {"0002006100620063",
     [](PerContext* c) { return pe_BMPStringSized(c, 3, WIDE_LETTERS, nullptr, 1, 256); },
     [](PerContext* c, uint32_t* count) {
         BMPStringValue value = {};
         const int32_t status = pd_BMPStringSized(c, &value, nullptr, 1, 256);
         *count = value.nchars;
         return status;
     }},
};

TEST(SizedCalls, LeaveAPendingRangeInForce) {
    const SizeConstraint pending = {0, 1, 300, nullptr};
    const SizeConstraint narrow = {0, 3, 3, nullptr};
    size_t row = 0;
    for (const PendingCase& c : PENDING) {
        SCOPED_TRACE(row++);
        Writer out;
        ASSERT_EQ(pu_addSizeConstraint(&out, &pending), 0);
        ASSERT_EQ(c.write(&out), 0);
        EXPECT_EQ(out.sizeConstraint, nullptr);
        EXPECT_EQ(out.hex(), c.hex);
        Reader in(out.octets());
        uint32_t count = 0;
        ASSERT_EQ(pu_addSizeConstraint(&in, &pending), 0);
        ASSERT_EQ(c.read(&in, &count), 0);
        EXPECT_EQ(count, 3U);
        EXPECT_EQ(pu_bitPosition(&in), pu_bitPosition(&out));
    }
    Writer out;
    ASSERT_EQ(pu_addSizeConstraint(&out, &narrow), 0);
    EXPECT_EQ(pe_OctetStringSized(&out, 3, LETTERS, 0, 255), PER_CONSTRAINT);
}

TEST(SizedCalls, AlignAsThePendingRangeSays) {
    const SizeConstraint two = {0, 2, 2, nullptr};
    Writer out;
    ASSERT_EQ(pe_bit(&out, 1), 0);
    ASSERT_EQ(pu_addSizeConstraint(&out, &two), 0);
    ASSERT_EQ(pe_OctetStringSized(&out, 2, LETTERS, 3, 9), 0);
    EXPECT_EQ(out.hex(), "b0b100");
    Reader in(out.octets());
    uint32_t count = 0;
    ASSERT_EQ(pd_bit(&in, nullptr), 0);
    ASSERT_EQ(pu_addSizeConstraint(&in, &two), 0);
    ASSERT_EQ(pd_OctetStringSized(&in, &count, received, 8, 3, 9), 0);
    EXPECT_EQ(pu_bitPosition(&in), 17U);

    const SizeConstraint fromOne = {0, 1, 256, nullptr};
    DynOctetString value = {};
    Reader three("02616263");
    ASSERT_EQ(pu_addSizeConstraint(&three, &fromOne), 0);
    ASSERT_EQ(pd_DynOctetString(&three, &value), 0);
    EXPECT_EQ(value.numocts, 3U);
}

} // namespace
