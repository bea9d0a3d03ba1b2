// Encodings worked out by hand from X.691, written and read back in both variants.
#include <cstring>
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

struct WholeNumberCase {
    uint32_t value;
    uint32_t range;
    const char* aligned; // after one 1 bit
    const char* unaligned;
};

// Boundaries of X.691 10.5.7: bit field, one octet, two octets, counted octets.
const WholeNumberCase WHOLE_NUMBERS[] = {
    {0, 1, "80", "80"},
    {1, 2, "c0", "c0"},
    {254, 255, "ff00", "ff00"},
    {255, 256, "80ff", "ff80"},
    {0, 257, "800000", "8000"},
    {65535, 65536, "80ffff", "ffff80"},
    {255, 65537, "80ff", "803fc0"},
    {256, 65537, "a00100", "804000"},
    {65536, 65537, "c0010000", "c00000"},
    {0, 0xFFFFFFFF, "8000", "8000000000"},
    {0xFFFFFFFF, 0xFFFFFFFF, "e0ffffffff", "ffffffff80"},
};

TEST(WholeNumber, BoundariesOfTheRanges) {
    for (const WholeNumberCase& c : WHOLE_NUMBERS) {
        for (const uint8_t aligned : VARIANTS) {
            SCOPED_TRACE(std::to_string(c.value) + " of " + std::to_string(c.range));
            Writer out(aligned);
            ASSERT_EQ(pe_bit(&out, 1), 0);
            ASSERT_EQ(pe_ConsWholeNumber(&out, c.value, c.range), 0);
            EXPECT_EQ(out.hex(), aligned != 0 ? c.aligned : c.unaligned);
            Reader in(out.octets(), aligned);
            uint32_t value = 1;
            ASSERT_EQ(pd_bit(&in, nullptr), 0);
            ASSERT_EQ(pd_ConsWholeNumber(&in, &value, c.range), 0);
            EXPECT_EQ(value, c.value);
            EXPECT_EQ(pu_bitPosition(&in), pu_bitPosition(&out));
        }
    }
}

TEST(WholeNumber, SmallNumbers) {
    const std::pair<uint32_t, const char*> cases[] = {
        {0, "00"},
        {63, "7e"},
        {64, "800140"},
        {255, "8001ff"},
        {256, "80020100"},
        {65536, "8003010000"},
        {UINT32_MAX, "8004ffffffff"},
    };
    for (const auto& [value, hex] : cases) {
        Writer out;
        ASSERT_EQ(pe_SmallNonNegWholeNumber(&out, value), 0);
        EXPECT_EQ(out.hex(), hex);
        Reader in(out.octets());
        uint32_t read = 1;
        ASSERT_EQ(pd_SmallNonNegWholeNumber(&in, &read), 0);
        EXPECT_EQ(read, value);
    }
    Reader tooLong("8005 0000000001");
    uint32_t value = 0;
    EXPECT_EQ(pd_SmallNonNegWholeNumber(&tooLong, &value), PER_DOES_NOT_FIT);
}

TEST(Integer, Unconstrained) {
    const std::pair<int32_t, const char*> cases[] = {
        {0, "0100"},
        {127, "017f"},
        {128, "020080"},
        {-1, "01ff"},
        {-128, "0180"},
        {-129, "02ff7f"},
        {32768, "03008000"},
        {-32769, "03ff7fff"},
        {8388608, "0400800000"},
        {INT32_MAX, "047fffffff"},
        {INT32_MIN, "0480000000"},
    };
    for (const auto& [value, hex] : cases) {
        for (const uint8_t aligned : VARIANTS) {
            Writer out(aligned);
            ASSERT_EQ(pe_UnconsInteger(&out, value), 0);
            EXPECT_EQ(out.hex(), hex);
            EXPECT_EQ(pe_GetIntLen(value), static_cast<int32_t>(std::strlen(hex) / 2 - 1));
            Reader in(out.octets(), aligned);
            int32_t read = 1;
            ASSERT_EQ(pd_UnconsInteger(&in, &read), 0);
            EXPECT_EQ(read, value);
        }
    }
    // Octets before the last four are lost; a length of 0 leaves the destination.
    Reader in("05 0900000001 00");
    int32_t read = 7;
    ASSERT_EQ(pd_UnconsInteger(&in, &read), 0);
    EXPECT_EQ(read, 1);
    Reader empty("00 00");
    ASSERT_EQ(pd_UnconsInteger(&empty, &read), 0);
    EXPECT_EQ(read, 1);
}

TEST(Integer, Bounded) {
    Writer out;
    ASSERT_EQ(pe_ConsInteger(&out, -3, -5, 2), 0);        // 3 bits: 010
    ASSERT_EQ(pe_ConsInteger(&out, 9, 9, 9), 0);          // nothing
    ASSERT_EQ(pe_ConsUnsigned(&out, 65535, 0, 65535), 0); // aligned
    ASSERT_EQ(pe_ConsUnsigned(&out, UINT32_MAX, 1, UINT32_MAX), 0);
    EXPECT_EQ(out.hex(), "40ffffc0fffffffe");
    Reader in(out.octets());
    int32_t number = 0;
    uint32_t unsignedNumber = 0;
    ASSERT_EQ(pd_ConsInteger(&in, &number, -5, 2), 0);
    EXPECT_EQ(number, -3);
    ASSERT_EQ(pd_ConsInteger(&in, &number, 9, 9), 0);
    EXPECT_EQ(number, 9);
    ASSERT_EQ(pd_ConsUnsigned(&in, &unsignedNumber, 0, 65535), 0);
    EXPECT_EQ(unsignedNumber, 65535U);
    ASSERT_EQ(pd_ConsUnsigned(&in, &unsignedNumber, 1, UINT32_MAX), 0);
    EXPECT_EQ(unsignedNumber, UINT32_MAX);
    Reader above("e0"); // 7 in the 3 bits of 0..4
    ASSERT_EQ(pd_ConsUnsigned(&above, &unsignedNumber, 0, 4), 0);
    EXPECT_EQ(unsignedNumber, 7U);
}

TEST(Length, DeterminantsAtTheirBoundaries) {
    const std::pair<uint32_t, const char*> cases[] = {
        {0, "00"}, {127, "7f"}, {128, "8080"}, {16383, "bfff"}};
    for (const auto& [length, hex] : cases) {
        Writer out;
        ASSERT_EQ(pe_Length(&out, length), static_cast<int32_t>(length));
        EXPECT_EQ(out.hex(), hex);
        Reader in(out.octets());
        uint32_t read = 1;
        ASSERT_EQ(pd_Length(&in, &read), 0);
        EXPECT_EQ(read, length);
    }
    const std::pair<uint32_t, int32_t> fragments[] = {
        {16384, 16384}, {49151, 32768}, {65535, 49152}, {65536, 65536}, {UINT32_MAX, 65536}};
    for (const auto& [length, covered] : fragments) {
        Writer out;
        EXPECT_EQ(pe_UnconsLength(&out, length), covered);
    }
    Reader in("c4");
    uint32_t read = 0;
    EXPECT_EQ(pd_Length(&in, &read), PER_FRAGMENT);
    EXPECT_EQ(read, 65536U);
}

TEST(Length, ExtensibleSizeConstraint) {
    const SizeConstraint beyond = {1, 9, 300, nullptr};
    const SizeConstraint root = {0, 1, 8, &beyond};
    for (const uint32_t length : {5U, 200U}) {
        Writer out;
        ASSERT_EQ(pu_addSizeConstraint(&out, &root), 0);
        ASSERT_EQ(pe_Length(&out, length), static_cast<int32_t>(length));
        EXPECT_EQ(out.hex(), length == 5 ? "40" : "8000bf");
        Reader in(out.octets());
        ASSERT_EQ(pu_addSizeConstraint(&in, &root), 0);
        uint32_t read = 0;
        ASSERT_EQ(pd_Length(&in, &read), 0);
        EXPECT_EQ(read, length);
    }
}

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

TEST(Fragments, ReadBackInBothVariants) {
    for (const uint32_t octets : {16383U, 16384U, 20000U, 32767U, 32768U, 49152U}) {
        for (const uint8_t aligned : VARIANTS) {
            Octets value(octets);
            for (uint32_t i = 0; i < octets; ++i) {
                value[i] = static_cast<uint8_t>(i * 7 + i / 251);
            }
            Writer out(aligned);
            ASSERT_EQ(pe_bits(&out, 5, 3), 0);
            ASSERT_EQ(pe_OctetString(&out, octets, value.data()), 0);
            const Octets encoded = out.octets();
            Reader in(encoded, aligned);
            uint32_t bits = 0;
            DynOctetString read = {};
            ASSERT_EQ(pd_bits(&in, &bits, 3), 0);
            ASSERT_EQ(pd_totalLength(&in, 8), static_cast<int32_t>(octets));
            ASSERT_EQ(pd_DynOctetString(&in, &read), 0);
            EXPECT_EQ(Octets(read.data, read.data + read.numocts), value);
            EXPECT_EQ(pu_bitPosition(&in), pu_bitPosition(&out));
        }
    }
}

// Octets, and the lengths that stand in their encoding with the place of each.
TEST(Fragments, EndWithALengthThatIsNoFragment) {
    const std::vector<std::pair<uint32_t, std::vector<std::pair<size_t, std::string>>>> cases = {
        {16383, {{0, "bfff"}}},
        {16384, {{0, "c1"}, {16385, "00"}}},
        {32767, {{0, "c1"}, {16385, "bfff"}}},
        {32768, {{0, "c2"}, {32769, "00"}}},
        {49151, {{0, "c2"}, {32769, "bfff"}}},
        {81920, {{0, "c4"}, {65537, "c1"}, {81922, "00"}}},
    };
    const Octets zeros(81920);
    for (const auto& [octets, lengths] : cases) {
        size_t size = octets;
        for (const auto& length : lengths) {
            size += length.second.size() / 2;
        }
        for (const auto& write : {pe_OctetString, pe_OpenType}) {
            Octets room(90000); // with room behind, which the fast way wants
            Writer growing;
            Writer fixed(&room, 1);
            for (Writer* out : {&growing, &fixed}) {
                if (size > PER_BUFFER_LIMIT && out == &growing) {
                    continue;
                }
                ASSERT_EQ(write(out, octets, zeros.data()), 0);
                const Octets encoded = out->octets();
                ASSERT_EQ(encoded.size(), size) << octets;
                for (const auto& [place, hex] : lengths) {
                    EXPECT_EQ(toHex(&encoded[place], hex.size() / 2), hex) << octets;
                }
            }
        }
    }
}

TEST(OpenType, IsNotAlignedInTheUnalignedVariant) {
    Writer out(0);
    ASSERT_EQ(pe_bits(&out, 5, 3), 0);
    ASSERT_EQ(pe_OpenType(&out, 3, LETTERS), 0);
    EXPECT_EQ(out.hex(), "a06c2c4c60"); // 101 00000011 01100001 01100010 01100011
    for (const bool skip : {false, true}) {
        Reader in(out.octets(), 0);
        uint32_t count = 0;
        uint8_t* data = nullptr;
        ASSERT_EQ(pd_bits(&in, &count, 3), 0);
        ASSERT_EQ(skip ? pd_skipOpenType(&in) : pd_OpenType(&in, &data, &count), 0);
        EXPECT_EQ(pu_bitPosition(&in), 35U);
        if (!skip) {
            EXPECT_EQ(toHex(data, count), "616263");
        }
    }
}

TEST(OpenType, EmptyIsWrittenAsOneOctetAndReadAsNone) {
    Writer out;
    ASSERT_EQ(pe_OpenType(&out, 0, nullptr), 0);
    EXPECT_EQ(out.hex(), "0100");
    Reader in("00 aa");
    uint8_t* data = out.buffer;
    uint32_t octets = 9;
    ASSERT_EQ(pd_OpenType(&in, &data, &octets), 0);
    EXPECT_EQ(octets, 0U);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(pu_bitPosition(&in), 8U);
}

TEST(Cursor, BothFormsOfABoundaryAreTheSamePlace) {
    Reader full("a5 3c");
    uint8_t bit = 0;
    for (int i = 0; i < 8; ++i) {
        ASSERT_EQ(pd_bit(&full, &bit), 0);
    }
    EXPECT_EQ(full.bitOffset, 0);
    uint32_t value = 0;
    uint32_t count = 0;
    uint8_t octet[1] = {};
    Reader next("a5 3c");
    ASSERT_EQ(pd_bits(&next, &value, 8), 0);
    EXPECT_EQ(value, 0xA5U);
    EXPECT_EQ(next.bitOffset, 8);
    EXPECT_EQ(pu_bitPosition(&full), pu_bitPosition(&next));
    ASSERT_EQ(pd_OctetStringSized(&full, &count, octet, 1, 1, 1), 0);
    EXPECT_EQ(octet[0], 0x3C);
    ASSERT_EQ(pd_bitRun(&next, &value, 8), 0);
    EXPECT_EQ(value, 0x3CU); // 3c reads the same from either end
    ASSERT_EQ(pd_moveBitCursor(&next, -16), 0);
    ASSERT_EQ(pd_bitRun(&next, &value, 4), 0);
    EXPECT_EQ(value, 0x5U); // 1010, first bit lowest
}

TEST(Bits, ARunOfThirtyTwoKeepsTheLast) {
    for (const uint8_t aligned : VARIANTS) {
        for (const uint32_t lead : {0U, 1U, 5U}) {
            Writer out(aligned);
            ASSERT_EQ(pe_bits(&out, 0, lead), 0);
            ASSERT_EQ(pe_bitRun(&out, 0x80000005, 32), 0);
            Reader in(out.octets(), aligned);
            uint32_t bits = 0;
            ASSERT_EQ(pd_bits(&in, &bits, lead), 0);
            ASSERT_EQ(pd_bitRun(&in, &bits, 32), 0);
            EXPECT_EQ(bits, 0x80000005U);
        }
    }
}

// The head of a CHOICE is an extension bit and a constrained number, wherever it stands.
TEST(ChoiceHead, IsABitAndANumber) {
    for (const uint8_t aligned : VARIANTS) {
        for (const uint32_t last : {0U, 1U, 2U, 7U, 8U, 63U, 127U, 128U, 254U, 255U, 300U}) {
            for (uint32_t lead = 0; lead < 8; ++lead) {
                for (const uint32_t index : {0U, last / 2, last}) {
                    SCOPED_TRACE(std::to_string(index) + " of " + std::to_string(last) +
                                 " behind " + std::to_string(lead));
                    Writer head(aligned);
                    Writer parts(aligned);
                    ASSERT_EQ(pe_bits(&head, 0, lead), 0);
                    ASSERT_EQ(pe_choiceHead(&head, index + 1, last), 0);
                    ASSERT_EQ(pe_bits(&parts, 0, lead + 1), 0);
                    ASSERT_EQ(pe_ConsUnsigned(&parts, index, 0, last), 0);
                    ASSERT_EQ(head.hex(), parts.hex());
                    ASSERT_EQ(pu_bitPosition(&head), pu_bitPosition(&parts));

                    // Ending with the data, and with more behind.
                    Octets octets = head.octets();
                    for (const size_t behind : {0U, 9U}) {
                        octets.resize(octets.size() + behind, 0xFF);
                        Reader in(octets, aligned);
                        uint32_t read = 99;
                        pu_setBitPosition(&in, lead);
                        ASSERT_EQ(pd_choiceHead(&in, &read, last), 0);
                        ASSERT_EQ(read, index);
                        ASSERT_EQ(pu_bitPosition(&in), pu_bitPosition(&head));
                    }
                    octets[lead / 8] = static_cast<uint8_t>(octets[lead / 8] | 0x80U >> lead);
                    Reader extended(octets, aligned);
                    uint32_t read = 0;
                    pu_setBitPosition(&extended, lead);
                    ASSERT_EQ(pd_choiceHead(&extended, &read, last), 0);
                    ASSERT_EQ(read, PER_EXTENDED);
                    ASSERT_EQ(pu_bitPosition(&extended), lead + 1);
                }
            }
            for (const uint32_t alternative : {0U, last + 2, UINT32_MAX}) {
                EXPECT_EQ(pe_choiceHead(Writer(aligned).self(), alternative, last), PER_RANGE);
            }
        }
    }
    uint32_t read = 0;
    Reader cut("7f");
    pu_setBitPosition(&cut, 7);
    EXPECT_EQ(pd_choiceHead(&cut, &read, 0), PER_OK); // 1: extended
    EXPECT_EQ(read, PER_EXTENDED);
    pu_setBitPosition(&cut, 8);
    EXPECT_EQ(pd_choiceHead(&cut, &read, 0), PER_OVERFLOW);
    Reader cutNumber("fe");
    pu_setBitPosition(&cutNumber, 7);
    EXPECT_EQ(pd_choiceHead(&cutNumber, &read, 3), PER_END_OF_DATA);
}

} // namespace
