// Character strings and OBJECT IDENTIFIER.
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

using PutString = int32_t (*)(PerContext*, const char*, const char*);
using GetString = int32_t (*)(PerContext*, const char**, const char*);

struct TextCase {
    PutString write;
    GetString read;
    const char* from;
    uint8_t aligned;
    const char* text;
    const char* hex;
};

const char* const DIGITS = "0123456789#*,";
const char* const SIGNALS = "0123456789#*ABCD!";

const TextCase TEXTS[] = {
    {pe_NumericString, pd_NumericString, nullptr, 1, "12 3", "042304"},
    {pe_IA5String, pd_IA5String, nullptr, 1, "Az~",
     "0341"
     "7a7e"},
    {pe_IA5String, pd_IA5String, nullptr, 0, "AA",
     "0283"
     "04"},
    {pe_IA5String, pd_IA5String, DIGITS, 1, "#*,09",
     "05012"
     "3c0"},
    {pe_IA5String, pd_IA5String, SIGNALS, 1, "!", "0121"},
    {pe_IA5String, pd_IA5String, SIGNALS, 0, "!#", "020040"},
    {pe_PrintableString, pd_PrintableString, nullptr, 1, "a@", "026140"}, // by code, unchecked
    {pe_GeneralString, pd_GeneralString, nullptr, 1, "\xC3\xA4", "02c3a4"},
    {pe_IA5String, pd_IA5String, nullptr, 1, "", "00"},
    // Any other FROM: indexes in the order of the codes, in the next power of two of their bits.
    {pe_NumericString, pd_NumericString, "321", 1, "231", "0360"},
    {pe_PrintableString, pd_PrintableString, "ABC", 1, "CAB", "0384"},
    {pe_PrintableString, pd_PrintableString, DIGITS, 1, ",9", "020a"},
    {pe_GeneralString, pd_GeneralString, "\xFC\xF6\xE4", 1, "\xFC\xE4", "0280"},
    {pe_IA5String, pd_IA5String, "0123456", 1, "65", "0265"},
    {pe_IA5String, pd_IA5String, "0123456", 0, "65", "02d4"},
    {pe_IA5String, pd_IA5String, "ABCDEFGHIJKLMNOP", 1, "P", "0150"},
    {pe_IA5String, pd_IA5String, "ABCDEFGHIJKLMNOP", 0, "P", "0178"},
};

TEST(Text, CodesAndIndexes) {
    for (const TextCase& c : TEXTS) {
        SCOPED_TRACE(c.text);
        Writer out(c.aligned);
        ASSERT_EQ(c.write(&out, c.text, c.from), 0);
        EXPECT_EQ(out.hex(), c.hex);
        Octets encoded = out.octets();
        encoded.push_back(0); // an aligned empty string needs an octet to align to
        Reader in(encoded, c.aligned);
        const char* text = nullptr;
        ASSERT_EQ(c.read(&in, &text, c.from), 0);
        EXPECT_STREQ(text, c.text);
    }
}

TEST(Text, AnAlphabetBuiltWhenCompiledIsTheSame) {
    static constexpr PermittedAlphabet ALPHABET = pu_ia5Alphabet("0123456789#*,");
    static_assert(ALPHABET.count == 13 && ALPHABET.alignedBits == 4 && ALPHABET.chars[0] == '#');
    Writer built;
    Writer given;
    ASSERT_EQ(pe_ConstrainedStringSized(&built, "4711", &ALPHABET, 1, 128), 0);
    ASSERT_EQ(pe_IA5StringSized(&given, "4711", DIGITS, 1, 128), 0);
    EXPECT_EQ(built.hex(), given.hex());
    const char* text = nullptr;
    ASSERT_EQ(pd_ConstrainedStringSized(Reader(built.octets()).self(), &text, &ALPHABET, 1, 128),
              0);
}

// A FROM constraint holds whatever the width of the codes; decoding reads by code what it finds.
TEST(Text, CharactersOutsideTheAlphabet) {
    struct Outside {
        PutString write;
        const char* from;
        const char* text;
        int32_t status;
    };
    const Outside cases[] = {
        {pe_NumericString, nullptr, "1x", PER_DOES_NOT_FIT},
        {pe_NumericString, "123", "14", PER_DOES_NOT_FIT},
        {pe_IA5String, DIGITS, "a", PER_DOES_NOT_FIT},
        {pe_IA5String, DIGITS, "12345a", PER_DOES_NOT_FIT},
        {pe_IA5String, DIGITS, "1234a5", PER_DOES_NOT_FIT},
        {pe_IA5String, SIGNALS, "Z", PER_DOES_NOT_FIT}, // codes of 8 bits, indexes of 5
        {pe_IA5String, SIGNALS, "1!Z1", PER_DOES_NOT_FIT},
        {pe_IA5String, "xyz", "x", PER_DOES_NOT_FIT}, // IA5String has no character of these
        {pe_PrintableString, "ABCDEFGHIJKLMNOPQRSTUVWXYZ", "a", PER_DOES_NOT_FIT},
        {pe_GeneralString, "\xE4\xF6\xFC", "a", PER_DOES_NOT_FIT},
        {pe_PrintableString, nullptr, "@", PER_OK},
        {pe_IA5String, nullptr, "\x7F", PER_OK},
    };
    for (const uint8_t aligned : VARIANTS) {
        for (const Outside& c : cases) {
            EXPECT_EQ(c.write(Writer(aligned).self(), c.text, c.from), c.status) << c.text;
        }
    }
    static constexpr PermittedAlphabet SIGNAL_ALPHABET = pu_ia5Alphabet("0123456789#*ABCD!");
    EXPECT_EQ(pe_ConstrainedString(Writer().self(), "Z", &SIGNAL_ALPHABET), PER_DOES_NOT_FIT);
    const char* text = nullptr;
    ASSERT_EQ(pd_IA5String(Reader("015a").self(), &text, SIGNALS), PER_OK);
    const std::pair<GetString, const char*> indexes[] = {{pd_NumericString, "01b0"}, // 11 of 11
                                                         {pd_NumericString, "021b"},
                                                         {pd_NumericString, "02b1"},
                                                         {pd_NumericString, "0412b1"},
                                                         {pd_NumericString, "04121b"}};
    for (const auto& [read, hex] : indexes) {
        EXPECT_EQ(read(Reader(hex).self(), &text, nullptr), PER_CONSTRAINT) << hex;
    }
    EXPECT_EQ(pd_IA5String(Reader("01d0").self(), &text, DIGITS), PER_CONSTRAINT); // 13 of 13
}

TEST(Text, SixteenBitAlphabets) {
    const uint16_t text[] = {0x3A9, 0x3A1, 0x3A9};
    const uint16_t list[] = {0x3A1, 0x3A9};
    const PermittedCharacters16 listed = {2, list, 0, 0};
    const PermittedCharacters16 ranged = {0, nullptr, 0x3A0, 0x3BF};
    const PermittedCharacters16 sixteen = {0, nullptr, 0x3A0, 0x3AF}; // 5 bits, in 8
    const PermittedCharacters16 fifteen = {0, nullptr, 0x3A0, 0x3AE};
    struct Case {
        const PermittedCharacters16* from;
        uint8_t aligned;
        const char* hex;
    };
    const Case cases[] = {{nullptr, 1, "0303a903a103a9"}, {&listed, 1, "0344"},
                          {&ranged, 1, "03090109"},       {&sixteen, 1, "03090109"},
                          {&sixteen, 0, "034852"},        {&fifteen, 1, "039190"}};
    for (const auto& [from, aligned, hex] : cases) {
        Writer out(aligned);
        ASSERT_EQ(pe_BMPString(&out, 3, text, from), 0);
        EXPECT_EQ(out.hex(), hex);
        Reader in(out.octets(), aligned);
        BMPStringValue read = {};
        ASSERT_EQ(pd_BMPString(&in, &read, from), 0);
        ASSERT_EQ(read.nchars, 3U);
        EXPECT_EQ(std::vector<uint16_t>(read.data, read.data + 3),
                  std::vector<uint16_t>(text, text + 3));
    }
    for (const uint16_t other : {uint16_t{0x41}, uint16_t{0x39F}, uint16_t{0x3C0}}) {
        EXPECT_EQ(pe_BMPString(Writer().self(), 1, &other, &listed), PER_DOES_NOT_FIT);
        EXPECT_EQ(pe_BMPString(Writer().self(), 1, &other, &ranged), PER_DOES_NOT_FIT);
    }
    BMPStringValue read = {};
    EXPECT_EQ(pd_BMPString(Reader("01c0").self(), &read, &listed), PER_CONSTRAINT);
}

// The place of the characters is aligned even when there are none.
TEST(Text, NoCharactersNeedAnOctetToAlignTo) {
    for (const uint8_t tracking : {uint8_t{0}, uint8_t{1}}) { // the fast way and the exact one
        BMPStringValue read = {};
        const char* text = nullptr;
        Reader cut("00");
        Reader cutText("00");
        Reader whole("00 55");
        pu_setFieldTracking(&cut, tracking);
        pu_setFieldTracking(&whole, tracking);
        EXPECT_EQ(pd_BMPStringSized(&cut, &read, nullptr, 0, 255), PER_OVERFLOW);
        EXPECT_EQ(pd_IA5StringSized(&cutText, &text, nullptr, 0, 255), PER_OVERFLOW);
        ASSERT_EQ(pd_BMPStringSized(&whole, &read, nullptr, 0, 255), PER_OK);
        EXPECT_EQ(read.nchars, 0U);
        EXPECT_EQ(pu_bitPosition(&whole), 8U);
    }
}

TEST(Identifier, ContentsOfWellKnownIdentifiers) {
    const std::pair<ObjectIdentifier, const char*> cases[] = {
        {{6, {0, 0, 8, 2250, 0, 2}}, "060008914a0002"},
        {{3, {2, 100, 3}}, "03813403"},
        {{2, {1, 39}}, "014f"},
        {{2, {2, UINT32_MAX}},
         "059080"
         "80804f"},
    };
    for (const auto& [value, hex] : cases) {
        Writer out;
        ASSERT_EQ(pe_ObjectIdentifier(&out, &value), 0);
        EXPECT_EQ(out.hex(), hex);
        Reader in(out.octets());
        ObjectIdentifier read;
        ASSERT_EQ(pd_ObjectIdentifier(&in, &read), 0);
        EXPECT_EQ(std::vector<uint32_t>(read.arcs, read.arcs + read.numarcs),
                  std::vector<uint32_t>(value.arcs, value.arcs + value.numarcs));
    }
}

TEST(Identifier, Limits) {
    Writer out;
    for (const ObjectIdentifier& bad :
         {ObjectIdentifier{1, {0}}, ObjectIdentifier{2, {3, 0}}, ObjectIdentifier{2, {1, 40}}}) {
        EXPECT_EQ(pe_ObjectIdentifier(&out, &bad), PER_BAD_OID);
    }
    ObjectIdentifier large = {128, {1, 1}};
    for (uint32_t i = 2; i < 128; ++i) {
        large.arcs[i] = UINT32_MAX; // 5 octets each
    }
    EXPECT_EQ(pe_ObjectIdentifier(&out, &large), PER_OVERFLOW);
    for (uint32_t i = 2; i < 128; ++i) {
        large.arcs[i] = i < 2 + 58 ? 1U << 21 : 127; // 1 + 58 * 4 + 66 = 299 octets: 58 long ones
    }
    large.numarcs = 2 + 58 + 66;
    EXPECT_EQ(pe_ObjectIdentifier(&out, &large), 0);
    large.arcs[100] = 128; // one octet more
    EXPECT_EQ(pe_ObjectIdentifier(&out, &large), PER_OVERFLOW);

    ObjectIdentifier read;
    read.numarcs = 99;
    EXPECT_EQ(pd_ObjectIdentifier(Reader("032b0681").self(), &read), PER_END_OF_DATA);
    EXPECT_EQ(read.numarcs, 3U); // those before the cut
    EXPECT_EQ(pd_ObjectIdentifier(Reader("0500").self(), &read), PER_END_OF_DATA);
    Octets contents(2 + 301, 0x01);
    contents[0] = 0x81;
    contents[1] = 0x2D; // 301
    EXPECT_EQ(pd_ObjectIdentifier(Reader(contents).self(), &read), PER_DOES_NOT_FIT);
    contents[0] = 0x80;
    contents[1] = 127; // 128 arcs
    EXPECT_EQ(pd_ObjectIdentifier(Reader(contents).self(), &read), 0);
    EXPECT_EQ(read.numarcs, 128U);
    contents[1] = 128;
    EXPECT_EQ(pd_ObjectIdentifier(Reader(contents).self(), &read), PER_BAD_OID);
    EXPECT_EQ(read.numarcs, 128U);
}

} // namespace
