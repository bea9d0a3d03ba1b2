// Every failing status once; truncation at every bit; buffers that fit exactly or lack an octet.
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"
#include "tests/support/failing_allocator.h"

namespace {

TEST(Truncation, SingleBitsAndAlignmentOverflow) {
    uint8_t bit = 0;
    uint32_t value = 0;
    Reader none("");
    EXPECT_EQ(pd_bit(&none, &bit), PER_OVERFLOW);
    EXPECT_EQ(pd_byteAlign(&none), PER_OVERFLOW);
    EXPECT_EQ(pd_bitRun(&none, &value, 1), PER_OVERFLOW);

    Reader one("ff");
    ASSERT_EQ(pd_bits(&one, &value, 5), 0);
    EXPECT_EQ(pd_bits(&one, &value, 4), PER_END_OF_DATA);
    EXPECT_EQ(pu_bitPosition(&one), 5U); // unchanged
    EXPECT_EQ(pd_byteAlign(&one), PER_OVERFLOW);
    EXPECT_EQ(pd_IncrBitIdx(&one), PER_OVERFLOW);
    for (int i = 0; i < 100; ++i) { // no cursor comes round to the start again
        EXPECT_EQ(pd_bit(&one, &bit), PER_OVERFLOW);
    }
    Reader three("ffffff");
    ASSERT_EQ(pd_bits(&three, &value, 21), 0);
    EXPECT_EQ(pd_bits(&three, &value, 8), PER_END_OF_DATA);
    EXPECT_EQ(pd_bits(&three, &value, 3), 0);
}

TEST(Truncation, CursorMovesStayWithinReason) {
    Reader in("a1b2");
    EXPECT_EQ(pd_moveBitCursor(&in, 16), 0);
    EXPECT_EQ(pd_moveBitCursor(&in, -17), PER_OVERFLOW);
    EXPECT_EQ(pu_bitPosition(&in), 16U);
    EXPECT_EQ(pd_moveBitCursor(&in, INT32_MIN), PER_OVERFLOW);
    EXPECT_EQ(pd_moveBitCursor(&in, INT32_MAX), PER_OVERFLOW);
    pu_setBitPosition(&in, UINT64_MAX);
    uint32_t value = 0;
    uint8_t bit = 0;
    uint8_t octets[4];
    EXPECT_EQ(pd_bits(&in, &value, 32), PER_END_OF_DATA);
    EXPECT_EQ(pd_bit(&in, &bit), PER_OVERFLOW);
    EXPECT_EQ(pd_octets(&in, octets, 4, 8), PER_END_OF_DATA);
    EXPECT_EQ(pd_ConsUnsigned(&in, &value, 0, 65535), PER_OVERFLOW);
    EXPECT_EQ(pe_bits(&in, 0, 8), PER_OVERFLOW);
    EXPECT_EQ(pe_byteAlign(&in), 0);
}

TEST(Failures, DecodingStatuses) {
    uint32_t count = 0;
    int32_t number = 0;
    uint8_t octets[2];
    EXPECT_EQ(pd_ConsInteger(Reader("00").self(), &number, 2, 1), PER_RANGE);
    // SIZE (0..3) with room for 2.
    EXPECT_EQ(pd_OctetStringSized(Reader("c0aabbcc").self(), &count, octets, 2, 0, 3),
              PER_DOES_NOT_FIT);
    // A length that is no size of (1..5) and short enough for alignment to depend on it.
    EXPECT_EQ(pd_BitStringSized(Reader("e0ff").self(), &count, octets, 2, 1, 5), PER_DOES_NOT_FIT);
    EXPECT_EQ(pd_OctetStringSized(Reader("0101").self(), &count, octets, 2, 0, 255),
              PER_OK); // the last octet is the one that the length announces
    EXPECT_EQ(pd_OctetStringSized(Reader("01").self(), &count, octets, 2, 0, 255), PER_OVERFLOW);
    EXPECT_EQ(pd_OctetStringSized(Reader("02aa").self(), &count, octets, 2, 0, 255),
              PER_END_OF_DATA);
    EXPECT_EQ(pd_UnconsInteger(Reader("02ff").self(), &number), PER_END_OF_DATA);
    EXPECT_EQ(pd_listCount(Reader("c1").self(), &count, 1), PER_FRAGMENT);
    EXPECT_EQ(pd_listCount(Reader("0901").self(), &count, 1), PER_END_OF_DATA);
    EXPECT_EQ(pd_listCount(Reader("0801").self(), &count, 1), PER_OK);
    EXPECT_EQ(pd_listCountSized(Reader("ff01").self(), &count, 1, 1, 256), PER_END_OF_DATA);
}

TEST(Failures, EncodingStatuses) {
    Writer out;
    const uint8_t octets[4] = {};
    EXPECT_EQ(pe_ConsInteger(&out, 5, 0, 4), PER_RANGE);
    EXPECT_EQ(pe_ConsInteger(&out, -1, 0, 4), PER_RANGE);
    EXPECT_EQ(pe_ConsInteger(&out, 0, INT32_MIN, INT32_MAX), PER_RANGE); // range of 2^32
    EXPECT_EQ(pe_ConsUnsigned(&out, 1, 2, 300), PER_RANGE);
    EXPECT_EQ(pe_ConsWholeNumber(&out, 70000, 70000), PER_RANGE);
    EXPECT_EQ(pe_OctetStringSized(&out, 4, octets, 1, 3), PER_CONSTRAINT);
    EXPECT_EQ(out.sizeConstraint, nullptr); // the caller's frame is gone after the failure
    uint8_t needed = 0;
    const SizeConstraint range = {0, 5, 9, nullptr};
    EXPECT_EQ(pu_stringNeedsAlignment(&range, 2, 0, &needed), PER_DOES_NOT_FIT);
    const SizeConstraint extension = {1, 2, 2, nullptr};
    EXPECT_EQ(pu_stringNeedsAlignment(&extension, 2, 0, &needed), 0);
    EXPECT_EQ(needed, 0);
}

TEST(Failures, LengthsThatTheDataCannotHoldTakeNoMemory) {
    const FailingAllocator allocator;
    uint8_t* data = nullptr;
    uint32_t count = 0;
    const char* text = nullptr;
    BMPStringValue wide = {};
    DynBitString bits = {};
    {
        EXPECT_EQ(pd_OpenType(Reader("bfff 01").self(), &data, &count), PER_END_OF_DATA);
        EXPECT_EQ(pd_OpenType(Reader("bfff").self(), &data, &count), PER_OVERFLOW);
        EXPECT_EQ(pd_OpenType(Reader("ff 01").self(), &data, &count), PER_OVERFLOW);
        EXPECT_EQ(pd_skipOpenType(Reader("bfff 01").self()), PER_END_OF_DATA);
        EXPECT_EQ(pd_DynBitString(Reader("bfff 01").self(), &bits), PER_END_OF_DATA);
        EXPECT_EQ(pd_IA5String(Reader("bfff 41").self(), &text, nullptr), PER_END_OF_DATA);
        EXPECT_EQ(pd_BMPString(Reader("bfff 0041").self(), &wide, nullptr), PER_END_OF_DATA);
    }
    EXPECT_EQ(allocator.served(), 0U);
}

TEST(Failures, ExhaustedHeap) {
    const FailingAllocator allocator(0);
    uint8_t* data = nullptr;
    uint32_t count = 0;
    const char* text = nullptr;
    BMPStringValue wide = {};
    OpenTypeValue kept = {};
    EXPECT_EQ(pd_OpenType(Reader("02aabb").self(), &data, &count), PER_NO_MEMORY);
    EXPECT_EQ(pd_IA5String(Reader("0141").self(), &text, nullptr), PER_NO_MEMORY);
    EXPECT_EQ(pd_BMPString(Reader("010041").self(), &wide, nullptr), PER_NO_MEMORY);
    EXPECT_EQ(pd_OpenTypeExt(Reader("01 01aa 00").self(), &kept), PER_NO_MEMORY);
    Octets room(8);
    Writer out(&room, 1);
    PerOpenType open;
    EXPECT_EQ(pe_beginOpenType(&out, &open), PER_NO_MEMORY);
}

TEST(Room, OwnedBufferGrowsToItsLimit) {
    FailingAllocator allocator;
    {
        Writer out;
        const Octets chunk(16384, 0x5A);
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(pe_bitData(&out, chunk.data(), 16384 * 8), 0);
        }
        EXPECT_EQ(out.size, PER_BUFFER_LIMIT);
        EXPECT_EQ(out.octets(), Octets(65536, 0x5A));
        EXPECT_EQ(pe_bit(&out, 1), PER_OVERFLOW); // and lets the buffer go
        EXPECT_EQ(out.buffer, nullptr);
        EXPECT_EQ(allocator.liveBlocks(), 0U);
        EXPECT_EQ(pe_bits(&out, 1, 32), PER_OVERFLOW);
        EXPECT_TRUE(out.octets().empty());
    }
    allocator.succeedFor(1);
    Writer out;
    const Octets chunk(16384);
    ASSERT_EQ(pe_bitData(&out, chunk.data(), 16384 * 8), 0);
    EXPECT_EQ(pe_bit(&out, 1), PER_NO_MEMORY);
    EXPECT_EQ(out.octets(), chunk);
}

// What is written just where an owned buffer grows.
TEST(Room, BitsBehindAGrownBufferAreThere) {
    const Octets chunk(16384, 0x5A);
    for (const uint32_t bits : {1U, 5U, 32U}) {
        Writer byBit;
        Writer byNumber;
        ASSERT_EQ(pe_bitData(&byBit, chunk.data(), 16384 * 8), 0);
        ASSERT_EQ(pe_bitData(&byNumber, chunk.data(), 16384 * 8), 0);
        for (uint32_t i = 0; i < bits; ++i) {
            ASSERT_EQ(pe_bit(&byBit, 1), 0);
        }
        ASSERT_EQ(pe_bits(&byNumber, UINT32_MAX, bits), 0);
        const Octets octets = byBit.octets();
        EXPECT_EQ(toHex(&octets[16384], 1), bits == 1 ? "80" : bits == 5 ? "f8" : "ff");
        EXPECT_EQ(octets, byNumber.octets());
    }
}

TEST(Room, CheckAsksForOneOctetBeyondTheAdvance) {
    Octets room(4);
    Writer out(&room, 1);
    EXPECT_EQ(pe_checkBuffer(&out, 3), 0);
    EXPECT_EQ(pe_checkBuffer(&out, 4), PER_OVERFLOW);
    ASSERT_EQ(pe_bits(&out, 1, 25), 0);
    EXPECT_EQ(pe_byteAlign(&out), PER_OVERFLOW); // no octet to go on in
}

// One encoding of each primitive, and what reads it again.
struct Step {
    const char* name;
    std::function<int32_t(PerContext*)> write;
    std::function<int32_t(PerContext*)> read;
};

uint32_t number;
int32_t signedNumber;
uint8_t octet;
uint8_t array[32];
uint8_t* pointer;
const char* text;
BMPStringValue wideText;
ObjectIdentifier identifier;
OpenTypeValue keptContent;
const uint8_t CONTENT[24] = {0xDE, 0xAD, 0xBE, 0xEF, 0x11, 0x22,
                             0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
const uint16_t WIDE[3] = {0x48, 0x3042, 0xFFFF};
const ObjectIdentifier H225 = {6, {0, 0, 8, 2250, 0, 2}};

const Step STEPS[] = {
    {"bit", [](PerContext* c) { return pe_bit(c, 1); },
     [](PerContext* c) { return pd_bit(c, &octet); }},
    {"bits", [](PerContext* c) { return pe_bits(c, 0x1FFFF, 17); },
     [](PerContext* c) { return pd_bits(c, &number, 17); }},
    {"bit run", [](PerContext* c) { return pe_bitRun(c, 0x2AA, 10); },
     [](PerContext* c) { return pd_bitRun(c, &number, 10); }},
    {"two octets", [](PerContext* c) { return pe_ConsUnsigned(c, 40000, 0, 65535); },
     [](PerContext* c) { return pd_ConsUnsigned(c, &number, 0, 65535); }},
    {"counted octets", [](PerContext* c) { return pe_ConsUnsigned(c, 1U << 30, 0, UINT32_MAX); },
     [](PerContext* c) { return pd_ConsUnsigned(c, &number, 0, UINT32_MAX); }},
    {"integer", [](PerContext* c) { return pe_UnconsInteger(c, -70000); },
     [](PerContext* c) { return pd_UnconsInteger(c, &signedNumber); }},
    {"small number", [](PerContext* c) { return pe_SmallNonNegWholeNumber(c, 300); },
     [](PerContext* c) { return pd_SmallNonNegWholeNumber(c, &number); }},
    {"fixed octets", [](PerContext* c) { return pe_OctetStringSized(c, 4, CONTENT, 4, 4); },
     [](PerContext* c) { return pd_OctetStringSized(c, &number, array, 32, 4, 4); }},
    {"packed octets", [](PerContext* c) { return pe_OctetStringSized(c, 2, CONTENT, 2, 2); },
     [](PerContext* c) { return pd_OctetStringSized(c, &number, array, 32, 2, 2); }},
    {"octets", [](PerContext* c) { return pe_OctetStringSized(c, 12, CONTENT, 1, 20); },
     [](PerContext* c) { return pd_OctetStringSized(c, &number, array, 32, 1, 20); }},
    {"bit string", [](PerContext* c) { return pe_BitString(c, 29, CONTENT); },
     [](PerContext* c) { return pd_BitString(c, &number, array, 32); }},
    {"open type", [](PerContext* c) { return pe_OpenType(c, 5, CONTENT); },
     [](PerContext* c) { return pd_OpenType(c, &pointer, &number); }},
    {"digits", [](PerContext* c) { return pe_IA5StringSized(c, "555#", "0123456789#*,", 1, 128); },
     [](PerContext* c) { return pd_IA5StringSized(c, &text, "0123456789#*,", 1, 128); }},
    {"wide string", [](PerContext* c) { return pe_BMPStringSized(c, 3, WIDE, nullptr, 1, 256); },
     [](PerContext* c) { return pd_BMPStringSized(c, &wideText, nullptr, 1, 256); }},
    {"identifier", [](PerContext* c) { return pe_ObjectIdentifier(c, &H225); },
     [](PerContext* c) { return pd_ObjectIdentifier(c, &identifier); }},
    {"kept content",
     [](PerContext* c) {
         const int32_t status = pe_beginAdditions(c, 3, 5);
         return status != 0 || (pe_OpenType(c, 2, CONTENT) != 0) ? PER_OVERFLOW
                                                                 : pe_OpenType(c, 1, CONTENT);
     },
     [](PerContext* c) { return pd_OpenTypeExt(c, &keptContent); }},
};

TEST(Room, ExactFitSucceedsAndOneOctetLessFails) {
    for (const Step& step : STEPS) {
        for (const uint8_t aligned : VARIANTS) {
            SCOPED_TRACE(step.name);
            Writer whole(aligned);
            ASSERT_EQ(pe_bits(&whole, 1, 9), 0);
            ASSERT_EQ(step.write(&whole), 0);
            Octets room(whole.octets().size(), 0xFF); // old contents never survive
            Writer exact(&room, aligned);
            ASSERT_EQ(pe_bits(&exact, 1, 9), 0);
            EXPECT_EQ(step.write(&exact), 0);
            EXPECT_EQ(exact.octets(), whole.octets());
            Octets less(room.size() - 1);
            Writer shorter(&less, aligned);
            const int32_t first = pe_bits(&shorter, 1, 9);
            EXPECT_EQ(first != 0 ? first : step.write(&shorter), PER_OVERFLOW);
        }
    }
}

TEST(Truncation, AtEveryBit) {
    for (const Step& step : STEPS) {
        for (const uint8_t aligned : VARIANTS) {
            for (uint32_t lead = 0; lead < 8; ++lead) {
                SCOPED_TRACE(std::string(step.name) + " behind " + std::to_string(lead));
                Writer out(aligned);
                ASSERT_EQ(pe_bits(&out, 0, lead), 0);
                ASSERT_EQ(step.write(&out), 0);
                const uint64_t end = pu_bitPosition(&out);
                const Octets encoded = out.octets();
                for (size_t kept = 0; kept <= encoded.size(); ++kept) {
                    Reader in(Octets(encoded.begin(), encoded.begin() + static_cast<long>(kept)),
                              aligned);
                    pu_setBitPosition(&in, lead);
                    const int32_t status = step.read(&in);
                    if (kept * 8 >= end) {
                        EXPECT_EQ(status, 0);
                        EXPECT_EQ(pu_bitPosition(&in), end);
                    } else {
                        EXPECT_TRUE(status == PER_OVERFLOW || status == PER_END_OF_DATA) << status;
                    }
                }
            }
        }
    }
}

} // namespace
