// Extension additions and alternatives as generated functions drive them.
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

// Decodes additions 0 .. known - 1, each an INTEGER (0..255); the others are skipped.
int32_t readAdditions(PerContext* ctx, uint32_t known,
                      std::vector<std::pair<uint32_t, uint32_t>>* read) {
    PerAdditions additions;
    int32_t status = pd_beginAdditions(ctx, &additions);
    if (status != 0) {
        return status;
    }
    while ((status = pd_nextAddition(ctx, &additions, known)) > 0) {
        uint32_t value = 0;
        status = pd_ConsUnsigned(ctx, &value, 0, 255);
        if (status != 0) {
            return status;
        }
        read->push_back({additions.index, value});
    }
    return status;
}

TEST(Additions, KnownOnesAreDecodedOthersSkipped) {
    for (const uint8_t aligned : VARIANTS) {
        Writer out(aligned);
        const uint8_t longer[3] = {7, 8, 9}; // an open type longer than its content
        ASSERT_EQ(pe_bits(&out, 1, 3), 0);
        ASSERT_EQ(pe_beginAdditions(&out, 6, 0x2D), 0); // 0, 2, 3 and 5
        for (const uint32_t octets : {1U, 3U, 200U, 2U}) {
            const Octets content(octets, static_cast<uint8_t>(octets));
            ASSERT_EQ(pe_OpenType(&out, octets, octets == 3 ? longer : content.data()), 0);
        }
        ASSERT_EQ(pe_bits(&out, 0x5A, 8), 0);
        Reader in(out.octets(), aligned);
        std::vector<std::pair<uint32_t, uint32_t>> read;
        uint32_t behind = 0;
        ASSERT_EQ(pd_bits(&in, &behind, 3), 0);
        ASSERT_EQ(readAdditions(&in, 3, &read), 0);
        const std::vector<std::pair<uint32_t, uint32_t>> expected = {{0, 1}, {2, 7}};
        EXPECT_EQ(read, expected);
        ASSERT_EQ(pd_bits(&in, &behind, 8), 0);
        EXPECT_EQ(behind, 0x5AU);
    }
}

TEST(Additions, WideBitmapsAndTheirTruncations) {
    // 150 additions, the first, one in the middle and the last present.
    Writer out;
    ASSERT_EQ(pe_bit(&out, 0), 0);
    ASSERT_EQ(pe_SmallNonNegWholeNumber(&out, 149), 0);
    for (int i = 0; i < 150; ++i) {
        ASSERT_EQ(pe_bit(&out, i == 0 || i == 77 || i == 149 ? 1 : 0), 0);
    }
    for (const auto value : {uint8_t{11}, uint8_t{22}, uint8_t{33}}) {
        ASSERT_EQ(pe_OpenType(&out, 1, &value), 0);
    }
    const Octets whole = out.octets();
    for (size_t kept = 1; kept <= whole.size(); ++kept) {
        Reader in(Octets(whole.begin(), whole.begin() + static_cast<long>(kept)));
        ASSERT_EQ(pd_bit(&in, nullptr), 0);
        std::vector<std::pair<uint32_t, uint32_t>> read;
        const int32_t status = readAdditions(&in, 100, &read);
        if (kept == whole.size()) {
            ASSERT_EQ(status, 0);
            const std::vector<std::pair<uint32_t, uint32_t>> expected = {{0, 11}, {77, 22}};
            EXPECT_EQ(read, expected);
            EXPECT_EQ(pu_bitPosition(&in), whole.size() * 8);
        } else {
            EXPECT_TRUE(status == PER_OVERFLOW || status == PER_END_OF_DATA) << status;
        }
    }
    PerAdditions additions;
    EXPECT_EQ(pd_beginAdditions(Reader("8004ffffffff").self(), &additions), PER_OVERFLOW);
    EXPECT_EQ(pd_beginAdditions(Reader("8004fffffffe").self(), &additions), PER_OVERFLOW);
}

// As many as presence bits fit a word, and more, at each bit of an octet: the last one is found.
TEST(Additions, NumbersAroundThoseOfAWord) {
    for (const uint32_t count : {49U, 50U, 51U, 56U, 57U, 63U, 64U, 65U, 128U, 129U}) {
        for (uint32_t lead = 0; lead < 8; ++lead) {
            Writer out;
            ASSERT_EQ(pe_bits(&out, 0, lead), 0);
            ASSERT_EQ(pe_SmallNonNegWholeNumber(&out, count - 1), 0);
            for (uint32_t i = 0; i < count; ++i) {
                ASSERT_EQ(pe_bit(&out, i == 0 || i == count - 1 ? 1 : 0), 0);
            }
            for (const auto value : {uint8_t{11}, uint8_t{22}}) {
                ASSERT_EQ(pe_OpenType(&out, 1, &value), 0);
            }
            ASSERT_EQ(pe_bits(&out, 0, 32), 0);
            Reader in(out.octets());
            pu_setBitPosition(&in, lead);
            std::vector<std::pair<uint32_t, uint32_t>> read;
            ASSERT_EQ(readAdditions(&in, 200, &read), 0);
            const std::vector<std::pair<uint32_t, uint32_t>> expected = {{0, 11}, {count - 1, 22}};
            EXPECT_EQ(read, expected) << count << " behind " << lead;
        }
    }
}

// Number and presence bits that end with the data, or a bit later.
TEST(Additions, ANumberCutByTheEndOfTheData) {
    const Octets octets(12, 0); // one addition, not present
    for (const uint8_t tracking : {uint8_t{0}, uint8_t{1}}) {
        for (uint32_t left = 0; left <= 9; ++left) {
            Reader in(octets);
            PerAdditions additions;
            pu_setFieldTracking(&in, tracking);
            pu_setBitPosition(&in, 96 - left);
            const int32_t expected = left >= 8                ? int32_t{PER_OK}
                                     : left == 0 || left == 7 ? int32_t{PER_OVERFLOW}
                                                              : int32_t{PER_END_OF_DATA};
            EXPECT_EQ(pd_beginAdditions(&in, &additions), expected) << left << " bits left";
        }
    }
}

TEST(Additions, AnEmptyOpenTypeIsAnEmptyBuffer) {
    Reader in(
        "01 0001 aa"); // one addition, present, of 0 octets; behind it octets that are not its
    PerAdditions additions;
    ASSERT_EQ(pd_beginAdditions(&in, &additions), 0);
    ASSERT_EQ(pd_nextAddition(&in, &additions, 1), 1);
    EXPECT_EQ(in.size, 0U);
    uint32_t value = 0;
    EXPECT_EQ(pd_ConsUnsigned(&in, &value, 0, 1), PER_END_OF_DATA);
    uint8_t bit = 0;
    EXPECT_EQ(pd_bit(&in, &bit), PER_OVERFLOW);
    ASSERT_EQ(pd_nextAddition(&in, &additions, 1), 0);
    EXPECT_EQ(pu_bitPosition(&in), 16U);
}

TEST(Alternative, EncodedAndDecoded) {
    for (const uint8_t aligned : VARIANTS) {
        Writer out(aligned);
        PerOpenType outer;
        PerOpenType inner;
        ASSERT_EQ(pe_bit(&out, 1), 0);
        ASSERT_EQ(pe_SmallNonNegWholeNumber(&out, 2), 0);
        ASSERT_EQ(pe_beginOpenType(&out, &outer), 0);
        ASSERT_EQ(pe_bits(&out, 0x15, 5), 0);
        ASSERT_EQ(pe_beginOpenType(&out, &inner), 0); // pairs nest
        ASSERT_EQ(pe_bits(&out, 0x33, 8), 0);
        ASSERT_EQ(pe_endOpenType(&out, &inner, 0), 0);
        ASSERT_EQ(pe_endOpenType(&out, &outer, 1), 0);
        if (aligned != 0) {
            EXPECT_EQ(out.hex(), "8203a80133");
        }
        Reader in(out.octets(), aligned);
        PerOpenType open;
        uint32_t index = 0;
        uint32_t value = 0;
        uint8_t* data = nullptr;
        ASSERT_EQ(pd_bit(&in, nullptr), 0);
        ASSERT_EQ(pd_beginAlternative(&in, &open, &index), 0);
        EXPECT_EQ(index, 2U);
        ASSERT_EQ(pd_bits(&in, &value, 5), 0);
        EXPECT_EQ(value, 0x15U);
        ASSERT_EQ(pd_OpenType(&in, &data, &value), 0);
        EXPECT_EQ(data[0], 0x33);
        pd_endOpenType(&in, &open);
        EXPECT_EQ(pu_bitPosition(&in), pu_bitPosition(&out));
    }
}

// An index that ends with the data, in one octet and in two: nothing behind is read.
TEST(Alternative, AnIndexAtTheEndOfTheData) {
    for (const char* hex : {"00", "0000"}) {
        for (uint32_t position = 0; position < 17; ++position) {
            Reader in(hex);
            const uint64_t bits = in.size * 8;
            if (position > bits) {
                continue;
            }
            PerOpenType open;
            uint32_t index = 0;
            pu_setBitPosition(&in, position);
            // A cut index, or no octet behind it to align to, or a length of 0 in the second octet.
            const int32_t status = pd_beginAlternative(&in, &open, &index);
            EXPECT_EQ(status, position == bits || bits - position >= 7
                                  ? (bits - position >= 15 ? PER_OK : PER_OVERFLOW)
                                  : PER_END_OF_DATA)
                << hex << " at " << position;
        }
    }
}

TEST(OpenTypes, AnAdditionThatDoesNotFitFailsAsAWhole) {
    Octets room(6);
    Writer out(&room, 1);
    PerOpenType open;
    ASSERT_EQ(pe_beginOpenType(&out, &open), 0);
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(pe_bits(&out, 0xAB, 8), 0);
    }
    EXPECT_EQ(pe_endOpenType(&out, &open, 0), PER_OVERFLOW);
    EXPECT_EQ(toHex(room.data(), 6), "060000000000"); // the length, and nothing of the contents
}

TEST(Depth, IsLimited) {
    PerContext ctx = {};
    const uint8_t message[1] = {0};
    ASSERT_EQ(pu_initContext(&ctx, message, 1, 1), 0);
    for (uint32_t i = 0; i < PER_MAX_DEPTH; ++i) {
        ASSERT_EQ(pd_enter(&ctx), 0);
    }
    EXPECT_EQ(pd_enter(&ctx), PER_TOO_DEEP);
    ASSERT_EQ(pu_initContext(&ctx, message, 1, 1), 0); // starts again
    EXPECT_EQ(pe_enter(&ctx), 0);
    pe_leave(&ctx);
    pu_freeContext(&ctx);
}

} // namespace
