// What the codecs do beyond the vector files: statuses, unknown extensions by shape of the type,
// presence of additions, recursion.
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "cli/hex.h"
#include "tree/value_text.h"

namespace {

using Octets = std::vector<uint8_t>;

// Encodes with any of the generated functions; the octets on success, else the status alone.
struct Encoded {
    int32_t status;
    std::string hex;
};

template <typename Record>
Encoded encoded(int32_t (*encode)(PerContext*, const Record*), const Record& record) {
    PerContext ctx{};
    Encoded result{pu_initContext(&ctx, nullptr, 0, 1), ""};
    result.status = encode(&ctx, &record);
    if (result.status == PER_OK) {
        uint32_t length = 0;
        const uint8_t* start = pe_getMsgPtr(&ctx, &length);
        result.hex = tree::hexText({start, length});
    }
    pu_freeContext(&ctx);
    return result;
}

struct IpAddress {
    H225TransportAddress_ipAddress record;
    H225TransportAddress address{};

    explicit IpAddress(int32_t port) : record{{4, {192, 168, 1, 2}}, port} {
        address.alternative = H225TransportAddress_ipAddressChosen;
        address.value.ipAddress = &record;
    }
};

TEST(TransportAddresses, TakeSevenOctets) {
    EXPECT_EQ(encoded(asn1PE_H225TransportAddress, IpAddress(1720).address).hex, "00c0a8010206b8");

    H245UnicastAddress_iPAddress ip{{4, {10, 0, 0, 1}}, 5004, {}};
    H245UnicastAddress unicast{};
    unicast.alternative = H245UnicastAddress_iPAddressChosen;
    unicast.value.iPAddress = &ip;
    H245TransportAddress address{};
    address.alternative = H245TransportAddress_unicastAddressChosen;
    address.value.unicastAddress = &unicast;
    EXPECT_EQ(encoded(asn1PE_H245TransportAddress, address).hex, "000a000001138c");
}

TEST(Encoders, RefuseWhatTheTypeCannotHold) {
    EXPECT_EQ(encoded(asn1PE_H225TransportAddress, IpAddress(65535).address).status, PER_OK);
    EXPECT_EQ(encoded(asn1PE_H225TransportAddress, IpAddress(65536).address).status,
              PER_CONSTRAINT);
    EXPECT_EQ(encoded(asn1PE_H225TransportAddress, IpAddress(-1).address).status, PER_CONSTRAINT);

    IpAddress shortAddress(1);
    shortAddress.record.ip.numocts = 3;
    EXPECT_EQ(encoded(asn1PE_H225TransportAddress, shortAddress.address).status, PER_CONSTRAINT);

    PerContext ctx{};
    ASSERT_EQ(pu_initContext(&ctx, nullptr, 0, 1), PER_OK);
    EXPECT_EQ(asn1PE_H235TimeStamp(&ctx, 0), PER_CONSTRAINT);
    EXPECT_EQ(asn1PE_H235KeyMaterial(&ctx, H235KeyMaterial{}), PER_CONSTRAINT);
    EXPECT_EQ(asn1PE_H235DHset_halfkey(&ctx, H235DHset_halfkey{}), PER_OK);
    EXPECT_EQ(asn1PE_H235ChallengeString(&ctx, H235ChallengeString{7, {}}), PER_CONSTRAINT);
    EXPECT_EQ(asn1PE_H225NumberDigits(&ctx, "12a"), PER_DOES_NOT_FIT);
    pu_freeContext(&ctx);
}

// Every CHOICE of the codecs, with numbers of no alternative: an index of no bits does not hide
// them.
TEST(Encoders, RefuseAlternativesThatDoNotExist) {
    size_t choices = 0;
    for (size_t i = 0; i < registeredTypeCount(); ++i) {
        const TypeDescription& type = registeredType(i);
        if (type.kind != TypeKind::Choice) {
            continue;
        }
        ++choices;
        const MemberDescription& last = type.members[type.memberCount - 1];
        const bool keeps = last.type->kind == TypeKind::KeptExtension;
        uint32_t known = 0;
        bool additions = false;
        for (uint32_t member = 0; member < type.memberCount; ++member) {
            known = std::max(known, type.members[member].alternative);
            additions = additions || type.members[member].addition;
        }
        for (const uint32_t alternative : {0U, known + 1, UINT32_MAX}) {
            if (keeps && alternative != 0) {
                continue; // stands for what the record keeps
            }
            std::vector<std::max_align_t> record(type.size / sizeof(std::max_align_t) + 1);
            std::memcpy(record.data(), &alternative, sizeof alternative);
            PerContext ctx{};
            ASSERT_EQ(pu_initContext(&ctx, nullptr, 0, 1), PER_OK);
            EXPECT_EQ(type.encode(&ctx, record.data()),
                      alternative != 0 && type.extensible ? PER_BAD_CHOICE : PER_RANGE)
                << type.name << " " << alternative;
            pu_freeContext(&ctx);
        }
    }
    EXPECT_GT(choices, 100U);
}

TEST(Decoders, RefuseAnIndexWithoutAnAlternative) {
    // 25 root alternatives in five bits: 26 to 32 do not exist.
    H225RasMessage message{};
    const Octets octets(16, 0x7F);
    PerContext ctx{};
    ASSERT_EQ(pu_initContext(&ctx, octets.data(), 16, 1), PER_OK);
    EXPECT_EQ(asn1PD_H225RasMessage(&ctx, &message), PER_BAD_CHOICE);
    pu_freeContext(&ctx);
}

TEST(EmptyAlternative, IsAnOpenTypeOfOneZeroOctet) {
    H225H323_UU_PDU_h323_message_body body{};
    body.alternative = H225H323_UU_PDU_h323_message_body_emptyChosen;
    const Encoded result = encoded(asn1PE_H225H323_UU_PDU_h323_message_body, body);
    EXPECT_EQ(result.hex, "810100"); // extension bit, index 1 in 7 bits, one octet, zero

    const Octets octets = cli::fromHex(result.hex);
    MessageValue value(*findType("H225H323_UU_PDU_h323_message_body"));
    ASSERT_EQ(value.decode(octets), PER_OK);
    EXPECT_EQ(static_cast<H225H323_UU_PDU_h323_message_body*>(value.record())->alternative,
              H225H323_UU_PDU_h323_message_body_emptyChosen);
}

// H245CloseLogicalChannel: one mandatory addition.
TEST(Additions, AreWrittenWhenAPresenceBitAsksForThem) {
    H245CloseLogicalChannel close{};
    close.forwardLogicalChannelNumber = 1;
    close.source.alternative = H245CloseLogicalChannel_source_userChosen;
    close.reason.alternative = H245CloseLogicalChannel_reason_reopenChosen;
    EXPECT_EQ(encoded(asn1PE_H245CloseLogicalChannel, close).hex, "00000000");
    close.presence = H245CloseLogicalChannel_reasonPresent;
    // Extension bit; channel; source, one addition, its presence; an octet with the reason.
    EXPECT_EQ(encoded(asn1PE_H245CloseLogicalChannel, close).hex, "80000000800120");
}

// A mandatory addition goes along with any other one (h245Tunneling with nonStandardControl).
TEST(Additions, MandatoryOnesAccompanyTheOthers) {
    H225H323_UU_PDU pdu{};
    pdu.h323_message_body.alternative = H225H323_UU_PDU_h323_message_body_emptyChosen;
    pdu.presence = H225H323_UU_PDU_nonStandardControlPresent;
    pdu.h245Tunneling = 1;
    const Encoded result = encoded(asn1PE_H225H323_UU_PDU, pdu);
    ASSERT_EQ(result.status, PER_OK);
    const Octets octets = cli::fromHex(result.hex);
    MessageValue value(*findType("H225H323_UU_PDU"));
    ASSERT_EQ(value.decode(octets), PER_OK);
    const auto* again = static_cast<const H225H323_UU_PDU*>(value.record());
    EXPECT_EQ(again->presence,
              H225H323_UU_PDU_nonStandardControlPresent | H225H323_UU_PDU_h245TunnelingPresent);
    EXPECT_EQ(again->h245Tunneling, 1);
    EXPECT_EQ(again->nonStandardControl.count, 0U);
}

// H245H2250LogicalChannelAckParameters knows two additions. The number of additions, bitmap and
// open types differ; what is known of them is the same.
TEST(Additions, OfAnyNumberGiveWhatIsKnownOfThem) {
    const std::string canonical = "800c0180";
    for (const char* hex : {
             "800c0180",       // both in the bitmap
             "80040180",       // bitmap of one bit
             "8015018002dead", // bitmap of three, the third present and not known
             "800c03800000",   // open type longer than its contents
         }) {
        const Octets octets = cli::fromHex(hex);
        MessageValue value(*findType("H245H2250LogicalChannelAckParameters"));
        ASSERT_EQ(value.decode(octets), PER_OK) << hex;
        EXPECT_EQ(value.consumed(), octets.size()) << hex;
        const auto* ack = static_cast<const H245H2250LogicalChannelAckParameters*>(value.record());
        EXPECT_EQ(ack->presence, H245H2250LogicalChannelAckParameters_flowControlToZeroPresent);
        EXPECT_EQ(ack->flowControlToZero, 1) << hex;
        EXPECT_EQ(encoded(asn1PE_H245H2250LogicalChannelAckParameters, *ack).hex, canonical);
    }
}

// Nested elements, each the first of two in the list of the one before.
struct NestedElements {
    std::vector<H245MultiplexElement> elements;
    std::vector<H245MultiplexElement_type_subElementList> lists;

    explicit NestedElements(size_t depth) : elements(depth * 2), lists(depth) {
        for (size_t i = 0; i < elements.size(); ++i) {
            elements[i].type.alternative = H245MultiplexElement_type_logicalChannelNumberChosen;
            elements[i].type.value.logicalChannelNumber = 1;
            elements[i].repeatCount.alternative = H245MultiplexElement_repeatCount_finiteChosen;
            elements[i].repeatCount.value.finite = 1;
        }
        for (size_t level = 0; level + 1 < depth; ++level) {
            H245MultiplexElement& outer = elements[level * 2];
            lists[level] = {2, &elements[level * 2 + 2]};
            outer.type.alternative = H245MultiplexElement_type_subElementListChosen;
            outer.type.value.subElementList = &lists[level];
        }
    }
};

// Runs on a stack of 256 KiB.
void onSmallStack(std::function<void()> work) {
    constexpr size_t stackOctets = size_t{256} * 1024;
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackOctets), 0);
    pthread_t thread{};
    const auto start = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

TEST(RecursiveTypes, NestToTheLimitOnASmallStack) {
    const NestedElements nested(PER_MAX_DEPTH);
    const TypeDescription& type = *findType("H245MultiplexElement");
    Encoded result{};
    int32_t status = PER_TOO_DEEP;
    onSmallStack([&] {
        result = encoded(asn1PE_H245MultiplexElement, nested.elements[0]);
        const Octets octets = cli::fromHex(result.hex);
        MessageValue value(type);
        status = value.decode(octets);
    });
    EXPECT_EQ(result.status, PER_OK);
    EXPECT_EQ(status, PER_OK);
}

TEST(RecursiveTypes, FailBeyondTheLimit) {
    const NestedElements nested(PER_MAX_DEPTH + 1);
    EXPECT_EQ(encoded(asn1PE_H245MultiplexElement, nested.elements[0]).status, PER_TOO_DEEP);

    // Nine bits open a level: alternative 1, then 0 for two elements. 4096 octets open thousands.
    Octets octets(4096, 0);
    for (size_t bit = 0; bit < octets.size() * 8; bit += 9) {
        octets[bit / 8] = static_cast<uint8_t>(octets[bit / 8] | 0x80 >> bit % 8);
    }
    MessageValue value(*findType("H245MultiplexElement"));
    int32_t status = PER_OK;
    onSmallStack([&] { status = value.decode(octets); });
    EXPECT_EQ(status, PER_TOO_DEEP);
}

size_t largestRequest = 0;

void* measuredAllocate(size_t octets) {
    largestRequest = std::max(largestRequest, octets);
    return std::malloc(octets);
}

// 65,535 elements announced, none there.
TEST(Lists, ACountThatTheMessageCannotHoldTakesNoMemory) {
    const PerAllocator original = rtAllocator;
    rtAllocator.allocate = measuredAllocate;
    largestRequest = 0;
    {
        const Octets octets = cli::fromHex("40fffe0001000100010001");
        MessageValue value(*findType("H245SendTerminalCapabilitySet_specificRequest"));
        EXPECT_EQ(value.decode(octets), PER_END_OF_DATA);
    }
    rtAllocator = original;
    EXPECT_LE(largestRequest, sizeof(MemBlock));
}

} // namespace
