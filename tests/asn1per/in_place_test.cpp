// Kept extension content: decoded and encoded over one buffer, where the writer clears or
// overwrites the octets that the content came from.
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

// A value: `lead` bits of a field, kept content, 13 bits behind it, and a second kept content.
struct Value {
    uint32_t lead;
    uint32_t field;
    OpenTypeValue first;
    uint32_t between;
    OpenTypeValue second;
};

int32_t encodeValue(PerContext* ctx, const Value& value) {
    int32_t status = pe_bits(ctx, value.field, value.lead);
    status = status != 0 ? status : pe_OpenTypeExt(ctx, &value.first);
    status = status != 0 ? status : pe_bits(ctx, value.between, 13);
    return status != 0 ? status : pe_OpenTypeExt(ctx, &value.second);
}

int32_t decodeValue(PerContext* ctx, uint32_t lead, Value* value) {
    value->lead = lead;
    int32_t status = pd_bits(ctx, &value->field, lead);
    status = status != 0 ? status : pd_OpenTypeExt(ctx, &value->first);
    status = status != 0 ? status : pd_bits(ctx, &value->between, 13);
    return status != 0 ? status : pd_ChoiceOpenTypeExt(ctx, &value->second);
}

enum class Content { OneOfThree, NoneOfFive, ManyBits };

void writeSequenceContent(PerContext* ctx, Content content) {
    const uint8_t octets[5] = {0xFF, 0xA5, 0x00, 0x5A, 0xFF};
    if (content == Content::OneOfThree) {
        ASSERT_EQ(pe_beginAdditions(ctx, 3, 2), 0);
        ASSERT_EQ(pe_OpenType(ctx, 5, octets), 0);
    } else if (content == Content::NoneOfFive) { // ends inside an octet
        ASSERT_EQ(pe_beginAdditions(ctx, 5, 0), 0);
    } else {
        ASSERT_EQ(pe_SmallNonNegWholeNumber(ctx, 79), 0); // aligns behind its first bit
        for (int i = 0; i < 80; ++i) {
            ASSERT_EQ(pe_bit(ctx, i == 3 || i == 79 ? 1 : 0), 0);
        }
        ASSERT_EQ(pe_OpenType(ctx, 5, octets), 0);
        ASSERT_EQ(pe_OpenType(ctx, 2, octets), 0);
    }
}

Octets encodedValue(uint8_t aligned, uint32_t lead, uint32_t field, Content content) {
    const uint8_t octets[3] = {0xC3, 0x3C, 0xFF};
    Writer out(aligned);
    EXPECT_EQ(pe_bits(&out, field, lead), 0);
    writeSequenceContent(&out, content);
    EXPECT_EQ(pe_bits(&out, 0x1ABC, 13), 0);
    EXPECT_EQ(pe_SmallNonNegWholeNumber(&out, 9), 0);
    EXPECT_EQ(pe_OpenType(&out, 3, octets), 0);
    return out.octets();
}

// The value decoded from `before` and encoded over it with a field of `lead` bits is what a fresh
// encoding gives, whether the field got shorter, longer, or kept its length.
void expectReencoded(uint8_t aligned, uint32_t oldLead, uint32_t lead, Content content) {
    SCOPED_TRACE(std::to_string(oldLead) + " to " + std::to_string(lead) + " bits, aligned " +
                 std::to_string(aligned) + " content " + std::to_string(static_cast<int>(content)));
    const Octets expected = encodedValue(aligned, lead, 0x2A, content);
    Octets room = encodedValue(aligned, oldLead, 0x15, content);
    const size_t octets = room.size();
    room.resize(octets + 8, 0xEE);

    PerContext in = {};
    ASSERT_EQ(pu_initContext(&in, room.data(), static_cast<uint32_t>(octets), aligned), 0);
    Value value;
    ASSERT_EQ(decodeValue(&in, oldLead, &value), 0);
    EXPECT_EQ(value.first.data, room.data() + oldLead / 8); // points into the decoded buffer
    value.lead = lead;
    value.field = 0x2A;
    {
        Writer out(&room, aligned);
        ASSERT_EQ(encodeValue(&out, value), 0);
        EXPECT_EQ(out.octets(), expected);
    }
    pu_freeContext(&in);
}

TEST(InPlace, UnchangedLengthAtEachBitPosition) {
    for (const uint8_t aligned : VARIANTS) {
        for (const Content content :
             {Content::OneOfThree, Content::NoneOfFive, Content::ManyBits}) {
            for (uint32_t lead = 6; lead < 22; ++lead) {
                expectReencoded(aligned, lead, lead, content);
            }
        }
    }
}

TEST(InPlace, AnEarlierFieldGotShorterOrLonger) {
    for (const uint8_t aligned : VARIANTS) {
        for (const Content content :
             {Content::OneOfThree, Content::NoneOfFive, Content::ManyBits}) {
            for (uint32_t lead = 6; lead < 30; lead += 3) {
                for (uint32_t other = 6; other < 30; ++other) {
                    expectReencoded(aligned, lead, other, content);
                }
            }
        }
    }
}

TEST(InPlace, PaddingBitsOfTheOriginalStay) {
    // The alignment bits in the content are ones, which no canonical encoder writes.
    Octets room = fromHex("2a 04bf 01aa");
    const Octets original = room;
    Reader in(room);
    OpenTypeValue kept = {};
    uint32_t field = 0;
    ASSERT_EQ(pd_bits(&in, &field, 8), 0);
    ASSERT_EQ(pd_OpenTypeExt(&in, &kept), 0);
    Writer out(&room, 1);
    ASSERT_EQ(pe_bits(&out, field, 8), 0);
    ASSERT_EQ(pe_OpenTypeExt(&out, &kept), 0);
    EXPECT_EQ(room, original);
}

TEST(InPlace, ARecordBuiltByHandIsWrittenFromTheCursorsBit) {
    const Octets content = fromHex("42 01aa");
    OpenTypeValue byHand = {3, content.data(), nullptr};
    Writer out;
    ASSERT_EQ(pe_bits(&out, 7, 3), 0);
    ASSERT_EQ(pe_OpenTypeExt(&out, &byHand), 0);
    EXPECT_EQ(out.hex(), "e201aa"); // 3 bits, then the low 5 of the first octet
    byHand.numocts = 0;
    ASSERT_EQ(pe_OpenTypeExt(&out, &byHand), 0);
    EXPECT_EQ(out.hex(), "e201aa");
}

TEST(InPlace, ContentEditedAfterDecodingIsNotTakenFromTheCopy) {
    Reader in("00c0 01aa"); // one addition, present
    OpenTypeValue kept = {};
    ASSERT_EQ(pd_OpenTypeExt(&in, &kept), 0);
    const Octets other = fromHex("00c0 0155");
    kept.data = other.data();
    Writer out;
    ASSERT_EQ(pe_OpenTypeExt(&out, &kept), 0);
    EXPECT_EQ(toHex(out.octets().data(), kept.numocts), toHex(other.data(), kept.numocts));
}

} // namespace
