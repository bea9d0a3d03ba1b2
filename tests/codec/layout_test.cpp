// Names of all types, and the places in records that code outside the codecs relies on.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "H.323/registry.h"

namespace {

TEST(TypeNames, AreThoseOfTheModulesInOrder) {
    std::map<std::string, std::vector<std::string>> expected;
    std::ifstream file(std::string(H323NAT_VECTORS) + "/types.txt");
    std::string module;
    std::string name;
    while (file >> module >> name) {
        expected[name.substr(0, 4)].push_back(name);
    }
    std::map<std::string, std::vector<std::string>> found;
    for (size_t i = 0; i < registeredTypeCount(); ++i) {
        const std::string type = registeredType(i).name;
        found[type.substr(0, 4)].push_back(type);
    }
    EXPECT_EQ(expected["H225"].size(), 175U);
    EXPECT_EQ(expected["H245"].size(), 401U);
    EXPECT_EQ(expected["H235"].size(), 36U);
    EXPECT_EQ(found, expected);
}

// The parts of a type that decide its version: presence bits, root and extension alternatives.
struct Shape {
    const char* type;
    uint32_t root;      // SEQUENCE: OPTIONAL root fields; CHOICE: root alternatives
    uint32_t additions; // known behind the extension marker
    bool keeps;         // unknown extension content is kept
};

constexpr Shape shapes[] = {
    {"H225RasMessage", 25, 5, false},
    {"H225H323_UU_PDU_h323_message_body", 7, 2, false},
    {"H225H323_UU_PDU", 1, 4, false},
    {"H225Setup_UUIE", 7, 10, false},
    {"H225CallProceeding_UUIE", 1, 5, false},
    {"H225Connect_UUIE", 1, 5, false},
    {"H225Alerting_UUIE", 1, 5, false},
    {"H225Information_UUIE", 0, 4, false},
    {"H225ReleaseComplete_UUIE", 1, 1, false},
    {"H225Facility_UUIE", 3, 8, false},
    {"H225Progress_UUIE", 5, 0, true},
    {"H225GatekeeperRequest", 4, 7, false},
    {"H225GatekeeperConfirm", 2, 7, false},
    {"H225RegistrationRequest", 3, 8, false},
    {"H225RegistrationConfirm", 3, 7, false},
    {"H225TransportAddress", 7, 0, true},
    {"H225AliasAddress", 2, 4, false},
    {"H245MultimediaSystemControlMessage", 4, 0, true},
    {"H245RequestMessage", 11, 2, false},
    {"H245ResponseMessage", 19, 2, false},
    {"H245CommandMessage", 7, 3, false},
    {"H245IndicationMessage", 14, 5, false},
    {"H245Capability", 12, 6, false},
    {"H245AudioCapability", 14, 6, false},
    {"H245VideoCapability", 5, 0, true},
    {"H245DataType", 6, 2, false},
    {"H245OpenLogicalChannel", 1, 2, false},
    {"H245H2250LogicalChannelParameters", 10, 3, false},
    {"H245OpenLogicalChannelAck", 1, 3, false},
    {"H245H2250LogicalChannelAckParameters", 5, 2, false},
    {"H245TransportAddress", 2, 0, true},
    {"H245UnicastAddress", 5, 2, false},
    {"H245MulticastAddress", 2, 2, false},
    {"H235ClearToken", 8, 0, true},
    {"H235AuthenticationMechanism", 7, 0, true},
    {"H235CryptoToken", 4, 0, true},
};

TEST(Records, HaveTheShapesOfTheirVersion) {
    for (const Shape& shape : shapes) {
        const TypeDescription* type = findType(shape.type);
        ASSERT_NE(type, nullptr) << shape.type;
        uint32_t root = 0;
        uint32_t additions = 0;
        bool keeps = false;
        for (uint32_t i = 0; i < type->memberCount; ++i) {
            const MemberDescription& member = type->members[i];
            const bool kept = member.type->kind == TypeKind::KeptExtension;
            const bool counts = type->kind == TypeKind::Choice || member.optional;
            keeps = keeps || kept;
            additions += member.addition ? 1 : 0;
            root += counts && !member.addition && !kept ? 1 : 0;
        }
        EXPECT_EQ(root, shape.root) << shape.type;
        EXPECT_EQ(additions, shape.additions) << shape.type;
        EXPECT_EQ(keeps, shape.keeps) << shape.type;
        EXPECT_TRUE(type->extensible) << shape.type;
    }
}

TEST(Records, PresenceBitsCountOptionalFieldsFirstThenAdditions) {
    EXPECT_EQ(H225H323_UserInformation_user_dataPresent, 1U << 0);
    EXPECT_EQ(H225Setup_UUIE_callServicesPresent, 1U << 6);
    EXPECT_EQ(H225Setup_UUIE_sourceCallSignalAddressPresent, 1U << 7);
    EXPECT_EQ(H225Setup_UUIE_callIdentifierPresent, 1U << 9);
    EXPECT_EQ(H225Setup_UUIE_fastStartPresent, 1U << 13);
    EXPECT_EQ(H225Setup_UUIE_endpointIdentifierPresent, 1U << 16);
    EXPECT_EQ(H225Connect_UUIE_fastStartPresent, 1U << 5);
    EXPECT_EQ(H225Progress_UUIE_fastStartPresent, 1U << 4);
    EXPECT_EQ(H225H323_UU_PDU_nonStandardControlPresent, 1U << 4);
    EXPECT_EQ(H245OpenLogicalChannel_encryptionSyncPresent, 1U << 2);
    EXPECT_EQ(H245H2250LogicalChannelParameters_mediaChannelPresent, 1U << 2);
    EXPECT_EQ(H245H2250LogicalChannelParameters_sourcePresent, 1U << 12);
    EXPECT_EQ(H245H2250LogicalChannelAckParameters_mediaControlChannelPresent, 1U << 3);
    EXPECT_EQ(H245H2250LogicalChannelAckParameters_portNumberPresent, 1U << 6);
    EXPECT_EQ(H245NetworkAccessParameters_t120SetupProcedurePresent, 1U << 2);
    EXPECT_EQ(H235ClearToken_nonStandardPresent, 1U << 7);
}

TEST(Records, AlternativesCountFromOneRootFirst) {
    EXPECT_EQ(H225H323_UU_PDU_h323_message_body_setupChosen, 1U);
    EXPECT_EQ(H225H323_UU_PDU_h323_message_body_emptyChosen, 9U);
    EXPECT_EQ(H225RasMessage_unknownMessageResponseChosen, 25U);
    EXPECT_EQ(H225RasMessage_infoRequestNakChosen, 30U);
    EXPECT_EQ(H225TransportAddress_UnknownChosen, 8U);
    EXPECT_EQ(H245RequestMessage_openLogicalChannelChosen, 4U);
    EXPECT_EQ(H245ResponseMessage_openLogicalChannelAckChosen, 6U);
    EXPECT_EQ(H245CommandMessage_h223MultiplexReconfigurationChosen, 10U);
    EXPECT_EQ(H245IndicationMessage_functionNotSupportedChosen, 19U);
    EXPECT_EQ(H245OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters_noneChosen,
              5U);
    EXPECT_EQ(H245UnicastAddress_nonStandardAddressChosen, 7U);
}

template <typename Member, typename Expected> constexpr bool is = std::is_same_v<Member, Expected>;

// Members by value, by pointer, and of the expected width.
static_assert(is<decltype(H225TransportAddress_ipAddress::port), int32_t>);
static_assert(sizeof(H225TransportAddress_ipAddress_ip::data) == 4);
static_assert(sizeof(H225H323_UserInformation_user_data_user_information::data) == 131);
static_assert(sizeof(H235KeyMaterial::data) == 256);
static_assert(sizeof(H245EscrowData_escrowValue::data) == 8192);
static_assert(is<H235TimeStamp, uint32_t> && is<H235RandomVal, int32_t>);
static_assert(is<H225BandWidth, uint32_t> && is<H225RequestSeqNum, int32_t>);
static_assert(is<H235PwdCertToken, H235ClearToken>);
static_assert(is<decltype(H225Setup_UUIE::fastStart), H225Setup_UUIE_fastStart>);
static_assert(is<decltype(H225Setup_UUIE_fastStart::elements), DynOctetString*>);
static_assert(is<decltype(H225Setup_UUIE::sourceAddress), H225_SeqOfH225AliasAddress>);
static_assert(is<decltype(H225Setup_UUIE::endpointIdentifier), BMPStringValue>);
static_assert(is<decltype(H225TransportAddress{}.value.netBios), H225TransportAddress_netBios*>);
static_assert(is<decltype(H225TransportAddress{}.value.extension), OpenTypeValue*>);
static_assert(is<decltype(H225AliasAddress{}.value.e164), const char*>);
static_assert(is<decltype(H225AliasAddress{}.value.h323_ID), BMPStringValue>);
static_assert(is<decltype(H245AudioCapability{}.value.g711Alaw64k), int32_t>);
static_assert(is<decltype(H245MediaEncryptionAlgorithm{}.value.algorithm), ObjectIdentifier*>);
static_assert(is<decltype(H235CryptoToken_cryptoSignedToken_token::toBeSigned), DynOctetString>);

} // namespace
