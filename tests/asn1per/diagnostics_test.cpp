// Field tracking, trace texts and printers.
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

struct Field {
    std::string name;
    uint32_t offset;
    uint32_t bits;
    bool operator==(const Field&) const = default;
};

void PrintTo(const Field& field, std::ostream* out) {
    *out << field.name << " @" << field.offset << " +" << field.bits;
}

std::vector<Field> fieldsOf(const PerContext& ctx) {
    std::vector<Field> fields;
    for (const FieldNode* node = ctx.fieldList.first; node != nullptr; node = node->next) {
        fields.push_back({node->record->name, node->record->bitOffset, node->record->bitCount});
    }
    EXPECT_EQ(fields.size(), ctx.fieldList.count);
    return fields;
}

TEST(Tracking, RecordsFieldsWithoutTheirAlignment) {
    Writer out;
    const uint8_t data[3] = {1, 2, 3};
    EXPECT_EQ(pu_newField(&out, "nothing"), nullptr);
    pu_setFieldTracking(&out, 1);
    ASSERT_EQ(pe_ConsInteger(&out, 9, 0, 15), 0);
    ASSERT_EQ(pe_ConsUnsigned(&out, 70000, 0, 100000), 0);
    ASSERT_EQ(pe_OctetStringSized(&out, 3, data, 1, 4), 0);
    pu_setFieldTracking(&out, 0);
    ASSERT_EQ(pe_ConsInteger(&out, 9, 0, 15), 0);
    const std::vector<Field> written = {{" ConsInteger", 0, 4},
                                        {" ConsUnsigned length", 4, 2},
                                        {" ConsUnsigned", 8, 24},
                                        {" length", 32, 2},
                                        {" OctetString", 40, 24}};
    EXPECT_EQ(fieldsOf(out), written);

    Reader in(out.octets());
    pu_setFieldTracking(&in, 1);
    int32_t number = 0;
    uint32_t large = 0;
    uint8_t* open = nullptr;
    ASSERT_EQ(pd_ConsInteger(&in, &number, 0, 15), 0);
    ASSERT_EQ(pd_ConsUnsigned(&in, &large, 0, 100000), 0);
    ASSERT_EQ(pd_OctetStringSized(&in, &large, out.buffer + 100, 4, 1, 4), 0);
    const std::vector<Field> read = {
        {" ConsInteger", 0, 4}, {" ConsUnsigned", 8, 24}, {" length", 32, 2}, {" octets", 40, 24}};
    EXPECT_EQ(fieldsOf(in), read);
    EXPECT_EQ(pd_OpenType(&in, &open, &large), PER_END_OF_DATA); // 90, of which nothing follows
}

// What an open type collects has positions of its own, which are not recorded.
TEST(Tracking, IsOffInsideAnOpenTypeThatIsEncoded) {
    Writer out;
    PerOpenType open;
    pu_setFieldTracking(&out, 1);
    ASSERT_EQ(pe_beginOpenType(&out, &open), 0);
    ASSERT_EQ(pe_ConsInteger(&out, 9, 0, 15), 0);
    ASSERT_EQ(pe_endOpenType(&out, &open, 0), 0);
    ASSERT_EQ(pe_ConsInteger(&out, 9, 0, 15), 0);
    const std::vector<Field> expected = {
        {" length", 0, 8}, {" OpenType", 8, 8}, {" ConsInteger", 16, 4}};
    EXPECT_EQ(fieldsOf(out), expected);
}

TEST(Trace, PrintsOnlyWhenSwitchedOn) {
    Reader in("a5");
    uint32_t value = 0;
    uint8_t bit = 0;
    testing::internal::CaptureStdout();
    ASSERT_EQ(pd_bits(&in, &value, 3), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    testing::internal::CaptureStdout();
    rtSetTrace(1);
    pu_updateFastSize(&in);
    ASSERT_EQ(pd_bit(&in, &bit), 0);
    ASSERT_EQ(pd_ConsUnsigned(&in, &value, 0, 7), 0);
    ASSERT_EQ(pd_moveBitCursor(&in, -2), 0);
    EXPECT_EQ(pe_GetIntLen(300), 2);
    rtSetTrace(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "pd_IncrBitIdx: bitOffset = 4, byteIndex = 0"
              "pd_bit: value = 0\n"
              "pd_bits: nbits = 3, nbytes = 1\n"
              "pd_ConsUnsigned: decoded value is 2\n"
              "pd_moveBitCursor: bitOffset = 7\n"
              "context before move: bitOffset = 1, byteIndex = 0"
              "context after move: bitOffset = 3, byteIndex = 0"
              "pe_GetIntLen: shift is 23, value is 0x12c"
              "pe_GetIntLen: shift is 23, tempValue is 0x0"
              "pe_GetIntLen: shift is 15, tempValue is 0x0"
              "pe_GetIntLen: shift is 7, tempValue is 0x2"
              "pe_GetIntLen: len is 2\n");
}

TEST(Printers, GiveTheirFormats) {
    const Octets sixteen(16, 0xAB);
    uint16_t wide[1] = {0x4141};
    const BMPStringValue text = {1, wide};
    const ObjectIdentifier identifier = {3, {1, 2, 300}};
    testing::internal::CaptureStdout();
    rtPrintBoolean("b", 1);
    rtPrintInteger("i", -4);
    rtPrintUnsigned("u", UINT32_MAX);
    rtPrintCharStr("s", "x");
    rtPrintBitStr("bits", 9, sixteen.data(), ".");
    rtPrintOctStr("o", 16, sixteen.data(), ".");
    rtPrint16BitCharStr("w", &text, ".");
    rtPrintOID("oid", &identifier);
    std::string line;
    for (int i = 0; i < 16; ++i) {
        line += "0xab ";
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "b = TRUE\ni = -4\nu = 4294967295\ns = 'x'\n"
                                                      "bits.numbits = 9\nbits.data = \n0xab 0xab \n"
                                                      "o.numocts = 16\no.data = \n" +
                                                          line +
                                                          "\n\n"
                                                          "w.nchars = 1\nw.data = \n0x41 0x41 \n"
                                                          "oid = { \n1 2 300 }\n");
}

} // namespace
