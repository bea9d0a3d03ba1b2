// Content with a length of its own: fragments and open types.
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

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
    const uint8_t letters[] = {'a', 'b', 'c'};
    ASSERT_EQ(pe_OpenType(&out, 3, letters), 0);
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

} // namespace
