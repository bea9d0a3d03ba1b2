// Where decoded octets came from, through nested open types, copies and contexts.
#include <cstring>
#include <gtest/gtest.h>

#include "tests/asn1per/support.h"

namespace {

// A message that carries an address and a port (10.0.0.1:1720) directly, in an open type, and in an
// encoding inside an OCTET STRING.
struct Message {
    Octets octets;
    size_t direct;
    size_t inOpenType;
    size_t inOctetString;
};

const uint8_t ADDRESS[4] = {10, 0, 0, 1};

int32_t writeAddress(PerContext* ctx) {
    const int32_t status = pe_OctetStringSized(ctx, 4, ADDRESS, 4, 4);
    return status != 0 ? status : pe_ConsUnsigned(ctx, 1720, 0, 65535);
}

Message makeMessage() {
    Writer out;
    Message message = {};
    PerOpenType open;
    EXPECT_EQ(pe_bits(&out, 5, 3), 0);
    message.direct = 1;
    EXPECT_EQ(writeAddress(&out), 0);
    EXPECT_EQ(pe_bits(&out, 1, 1), 0);
    EXPECT_EQ(pe_beginOpenType(&out, &open), 0);
    EXPECT_EQ(pe_bits(&out, 0x7F, 7), 0);
    EXPECT_EQ(writeAddress(&out), 0);
    EXPECT_EQ(pe_endOpenType(&out, &open, 0), 0);
    message.inOpenType = message.direct + 6 + 1 + 1 + 1;
    Writer element;
    EXPECT_EQ(pe_bits(&element, 0, 9), 0);
    EXPECT_EQ(writeAddress(&element), 0);
    const Octets content = element.octets();
    EXPECT_EQ(pe_OctetString(&out, static_cast<uint32_t>(content.size()), content.data()), 0);
    message.inOctetString = message.inOpenType + 6 + 1 + 2;
    message.octets = out.octets();
    EXPECT_EQ(std::memcmp(&message.octets[message.inOctetString], ADDRESS, 4), 0);
    return message;
}

int32_t readAddress(PerContext* ctx, uint8_t* address) {
    uint32_t count = 0;
    uint32_t port = 0;
    const int32_t status = pd_OctetStringSized(ctx, &count, address, 4, 4, 4);
    return status != 0 ? status : pd_ConsUnsigned(ctx, &port, 0, 65535);
}

TEST(Spans, LeadToTheOutermostBuffer) {
    const Message message = makeMessage();
    Reader in(message.octets);
    pu_recordSpans(&in, nullptr);
    uint32_t bits = 0;
    uint8_t direct[4];
    uint8_t inOpenType[4];
    uint8_t inOctetString[4];
    ASSERT_EQ(pd_bits(&in, &bits, 3), 0);
    ASSERT_EQ(readAddress(&in, direct), 0);
    ASSERT_EQ(pd_bits(&in, &bits, 1), 0);

    // The contents copied to the heap, then decoded there by the same context.
    uint8_t* copy = nullptr;
    uint32_t octets = 0;
    ASSERT_EQ(pd_OpenType(&in, &copy, &octets), 0);
    PerContext parked = {};
    pu_copyBufferState(&parked, &in);
    ASSERT_EQ(pu_setBuffer(&in, copy, octets), 0);
    ASSERT_EQ(pd_bits(&in, &bits, 7), 0);
    ASSERT_EQ(readAddress(&in, inOpenType), 0);
    pu_copyBufferState(&in, &parked);

    // The contents of an OCTET STRING, decoded by a context of their own.
    DynOctetString element = {};
    ASSERT_EQ(pd_DynOctetString(&in, &element), 0);
    PerContext nested = {};
    ASSERT_EQ(pu_initContext(&nested, element.data, element.numocts, 1), 0);
    pu_recordSpans(&nested, &in);
    ASSERT_EQ(pd_bits(&nested, &bits, 9), 0);
    ASSERT_EQ(readAddress(&nested, inOctetString), 0);

    const uint8_t* start = in.spanBase;
    EXPECT_EQ(pu_sourceOf(&in, direct, 6), start + message.direct);
    EXPECT_EQ(pu_sourceOf(&in, inOpenType, 6), start + message.inOpenType);
    EXPECT_EQ(pu_sourceOf(&nested, inOctetString, 6), start + message.inOctetString);
    EXPECT_EQ(pu_sourceOf(&nested, inOctetString + 2, 1), start + message.inOctetString + 2);
    // What lies outside the copy's surroundings, or was never decoded, has no source.
    EXPECT_EQ(pu_sourceOf(&nested, inOctetString, 7), nullptr);
    EXPECT_EQ(pu_sourceOf(&in, inOpenType, 7), nullptr);
    EXPECT_EQ(pu_sourceOf(&in, inOctetString, 4), nullptr);
    pu_freeContext(&nested);
}

TEST(Spans, AnAdditionIsSearchedWhereItStands) {
    Writer out;
    PerOpenType open;
    ASSERT_EQ(pe_beginAdditions(&out, 1, 1), 0);
    ASSERT_EQ(pe_beginOpenType(&out, &open), 0);
    ASSERT_EQ(writeAddress(&out), 0);
    ASSERT_EQ(pe_endOpenType(&out, &open, 0), 0);
    Reader in(out.octets());
    pu_recordSpans(&in, nullptr);
    PerAdditions additions;
    uint8_t address[4];
    ASSERT_EQ(pd_beginAdditions(&in, &additions), 0);
    ASSERT_EQ(pd_nextAddition(&in, &additions, 1), 1);
    ASSERT_EQ(readAddress(&in, address), 0);
    ASSERT_EQ(pd_nextAddition(&in, &additions, 1), 0);
    EXPECT_EQ(pu_sourceOf(&in, address, 6), in.buffer + 2);
}

TEST(Spans, FragmentsAndShiftedCopiesHaveNone) {
    Octets content(20000);
    Writer out;
    ASSERT_EQ(pe_OpenType(&out, 20000, content.data()), 0);
    Reader in(out.octets());
    pu_recordSpans(&in, nullptr);
    uint8_t* copy = nullptr;
    uint32_t octets = 0;
    ASSERT_EQ(pd_OpenType(&in, &copy, &octets), 0);
    ASSERT_EQ(pu_setBuffer(&in, copy, octets), 0);
    uint8_t address[4];
    const std::pair<uint32_t, bool> places[] = {
        {100, true}, {16376, true}, {16382, false}, {16384, true}};
    for (const auto& [place, known] : places) {
        pu_setBitPosition(&in, uint64_t{place} * 8);
        ASSERT_EQ(pd_octets(&in, address, 4, 32), 0);
        const uint32_t lengths = place < 16384 ? 1 : 3;
        EXPECT_EQ(pu_sourceOf(&in, address, 4), known ? in.spanBase + place + lengths : nullptr)
            << place;
    }
    pu_setBitPosition(&in, 3);
    uint8_t shifted[4];
    ASSERT_EQ(pd_octets(&in, shifted, 4, 32), 0);
    EXPECT_EQ(pu_sourceOf(&in, shifted, 4), nullptr);
}

TEST(Spans, AreNotRecordedUnlessAskedFor) {
    Reader in(Octets(8));
    uint8_t address[4];
    ASSERT_EQ(pd_octets(&in, address, 4, 32), 0);
    EXPECT_EQ(pu_sourceOf(&in, address, 4), nullptr);
    EXPECT_EQ(in.heap, nullptr);
}

} // namespace
