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

TEST(Fragments, ReadBackInBothVariants) {
    for (const uint32_t octets : {16383U, 16384U, 20000U, 32768U, 49152U}) {
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
    const Octets zeros(16384);
    Writer out;
    ASSERT_EQ(pe_OpenType(&out, 16384, zeros.data()), 0);
    EXPECT_EQ(out.octets().size(), 16386U); // c1, contents, 00
    EXPECT_EQ(out.octets().front(), 0xC1);
    EXPECT_EQ(out.octets().back(), 0x00);
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

} // namespace
