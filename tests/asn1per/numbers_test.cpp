// Numbers, lengths and single bits: encodings worked out by hand from X.691, written and read back
// in both variants.
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
