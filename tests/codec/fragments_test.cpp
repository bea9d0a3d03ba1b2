// Codecs of values with 16,384 items and more: strings and open types in fragments, lists in none.
#include <gtest/gtest.h>

#include <vector>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "H.323/message_value.h"
#include "H.323/registry.h"

namespace {

using Octets = std::vector<uint8_t>;

constexpr uint32_t SIZES[] = {16383, 16384, 20000, 32767, 32768, 40000};

Octets pattern(uint32_t size) {
    Octets octets(size);
    for (uint32_t i = 0; i < size; ++i) {
        octets[i] = static_cast<uint8_t>(i * 7 + i / 251);
    }
    return octets;
}

// Octets that `write` gives, which need not be whole.
template <typename Write> Octets written(Write write) {
    PerContext ctx{};
    EXPECT_EQ(pu_initContext(&ctx, nullptr, 0, 1), PER_OK);
    EXPECT_EQ(write(&ctx), PER_OK);
    uint32_t length = 0;
    const uint8_t* start = pe_getMsgPtr(&ctx, &length);
    Octets octets(start, start + length);
    pu_freeContext(&ctx);
    return octets;
}

// A context is left behind that holds what was decoded.
template <typename Record> const Record& decoded(MessageValue& value, const Octets& octets) {
    EXPECT_EQ(value.decode(octets), PER_OK);
    EXPECT_EQ(value.consumed(), octets.size());
    return *static_cast<const Record*>(value.record());
}

Octets contentsOf(const DynOctetString& value) {
    return {value.data, value.data + value.numocts};
}

TEST(Fragments, OfAnOctetStringAndOfTheOpenTypeAroundIt) {
    for (const uint32_t size : SIZES) {
        Octets data = pattern(size);
        H225NonStandardParameter parameter{};
        parameter.nonStandardIdentifier.alternative =
            H225NonStandardIdentifier_h221NonStandardChosen;
        H225H221NonStandard h221{181, 0, 18, {}};
        parameter.nonStandardIdentifier.value.h221NonStandard = &h221;
        parameter.data = {size, data.data()};
        H225H323_UU_PDU pdu{};
        pdu.h323_message_body.alternative = H225H323_UU_PDU_h323_message_body_emptyChosen;
        pdu.presence = H225H323_UU_PDU_nonStandardControlPresent;
        pdu.nonStandardControl = {1, &parameter};
        const Octets octets =
            written([&](PerContext* ctx) { return asn1PE_H225H323_UU_PDU(ctx, &pdu); });
        MessageValue value(*findType("H225H323_UU_PDU"));
        const auto& again = decoded<H225H323_UU_PDU>(value, octets);
        ASSERT_EQ(again.nonStandardControl.count, 1U);
        EXPECT_EQ(contentsOf(again.nonStandardControl.elements[0].data), data) << size;
        Octets encoding;
        ASSERT_EQ(value.encode(&encoding), PER_OK);
        EXPECT_EQ(encoding, octets) << size;
    }
}

// A known addition in an open type that is longer than its contents, and one that is not known.
TEST(Fragments, OfAdditions) {
    for (const uint32_t size : SIZES) {
        const Octets data(size, 0x20); // a reason, then what is left unread
        const Octets unknown(18000, 0x20);
        const Octets octets = written([&](PerContext* ctx) {
            const Octets root = {0x80, 0x00, 0x00};
            int32_t status = pe_bitData(ctx, root.data(), 24);
            status = status != 0 ? status : pe_bits(ctx, 0, 1); // source
            status = status != 0 ? status : pe_beginAdditions(ctx, 2, 3);
            status = status != 0 ? status : pe_OpenType(ctx, size, data.data());
            return status != 0 ? status : pe_OpenType(ctx, 18000, unknown.data());
        });
        MessageValue value(*findType("H245CloseLogicalChannel"));
        const auto& close = decoded<H245CloseLogicalChannel>(value, octets);
        EXPECT_EQ(close.reason.alternative, H245CloseLogicalChannel_reason_reopenChosen);
    }
}

TEST(Fragments, OfExtensionAlternativesKnownAndKept) {
    for (const uint32_t size : SIZES) {
        const Octets data = pattern(size);
        const Octets known = written([&](PerContext* ctx) {
            int32_t status = pe_bit(ctx, 1);
            status = status != 0 ? status : pe_SmallNonNegWholeNumber(ctx, 1); // empty
            return status != 0 ? status : pe_OpenType(ctx, size, data.data());
        });
        MessageValue body(*findType("H225H323_UU_PDU_h323_message_body"));
        EXPECT_EQ(decoded<H225H323_UU_PDU_h323_message_body>(body, known).alternative,
                  H225H323_UU_PDU_h323_message_body_emptyChosen);

        MessageValue address(*findType("H225TransportAddress"));
        decoded<H225TransportAddress>(address, known);
        Octets encoding;
        ASSERT_EQ(address.encode(&encoding), PER_OK);
        EXPECT_EQ(encoding, known) << size;
    }
}

TEST(Fragments, OfAdditionsThatAreKept) {
    for (const uint32_t size : SIZES) {
        const Octets data = pattern(size);
        const Octets octets = written([&](PerContext* ctx) {
            const Octets address = {10, 0, 0, 1};
            int32_t status = pe_bit(ctx, 1);
            status = status != 0 ? status : pe_OctetStringSized(ctx, 4, address.data(), 4, 4);
            status = status != 0 ? status : pe_ConsUnsigned(ctx, 5004, 0, 65535);
            status = status != 0 ? status : pe_beginAdditions(ctx, 3, 2);
            return status != 0 ? status : pe_OpenType(ctx, size, data.data());
        });
        MessageValue value(*findType("H245UnicastAddress_iPAddress"));
        EXPECT_EQ(decoded<H245UnicastAddress_iPAddress>(value, octets).tsapIdentifier, 5004);
        Octets encoding;
        ASSERT_EQ(value.encode(&encoding), PER_OK);
        EXPECT_EQ(encoding, octets) << size;
    }
}

// A bounded count stands in one piece up to its bound; an unbounded one would come in fragments,
// which no decoder of lists takes and no encoder writes.
TEST(Lists, OfManyElementsOnlyWhereTheCountIsBounded) {
    std::vector<int32_t> numbers(20000, 4711);
    H245SendTerminalCapabilitySet_specificRequest request{};
    request.multiplexCapability = 1;
    request.presence =
        H245SendTerminalCapabilitySet_specificRequest_capabilityTableEntryNumbersPresent;
    request.capabilityTableEntryNumbers = {20000, numbers.data()};
    const Octets octets = written([&](PerContext* ctx) {
        return asn1PE_H245SendTerminalCapabilitySet_specificRequest(ctx, &request);
    });
    MessageValue value(*findType("H245SendTerminalCapabilitySet_specificRequest"));
    const auto& again = decoded<H245SendTerminalCapabilitySet_specificRequest>(value, octets);
    ASSERT_EQ(again.capabilityTableEntryNumbers.count, 20000U);
    EXPECT_EQ(again.capabilityTableEntryNumbers.elements[19999], 4711);

    std::vector<H225AliasAddress> none(65536);
    for (const uint32_t count : {16384U, 32768U, 49152U, 65536U, 16385U}) {
        const H225_SeqOfH225AliasAddress list = {count, none.data()};
        PerContext ctx{};
        ASSERT_EQ(pu_initContext(&ctx, nullptr, 0, 1), PER_OK);
        EXPECT_EQ(asn1PE_H225_SeqOfH225AliasAddress(&ctx, &list), PER_FRAGMENT) << count;
        pu_freeContext(&ctx);
        Octets cut(60000, 0);
        cut[0] = static_cast<uint8_t>(0xC0 | count / 16384);
        MessageValue aliases(*findType("H225_SeqOfH225AliasAddress"));
        EXPECT_EQ(aliases.decode(cut), PER_FRAGMENT) << count;
    }
}

} // namespace
