#include "tests/support/messages.h"

#include <algorithm>
#include <list>
#include <memory>

#include <gtest/gtest.h>

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

namespace test_support {

namespace {

// The records that a message's pointers lead to, until it is encoded.
struct Arena {
    std::list<std::shared_ptr<void>> records;

    template <typename Record> Record* make() {
        auto record = std::make_shared<Record>();
        records.push_back(record);
        return record.get();
    }
};

template <typename Record, typename Encoder> Octets encode(Encoder encoder, const Record& record) {
    PerContext context = {};
    pu_initContext(&context, nullptr, 0, 1);
    EXPECT_EQ(encoder(&context, &record), 0);
    uint32_t length = 0;
    const uint8_t* octets = pe_getMsgPtr(&context, &length);
    Octets encoding(octets, octets + length);
    pu_freeContext(&context);
    return encoding;
}

void setAddress(Arena& arena, const TestAddress& spec, H225TransportAddress& address) {
    if (!spec.ipv4) {
        address.alternative = H225TransportAddress_ip6AddressChosen;
        address.value.ip6Address = arena.make<H225TransportAddress_ip6Address>();
        address.value.ip6Address->ip.numocts = 16;
        return;
    }
    address.alternative = H225TransportAddress_ipAddressChosen;
    address.value.ipAddress = arena.make<H225TransportAddress_ipAddress>();
    address.value.ipAddress->ip.numocts = 4;
    storeAddress(address.value.ipAddress->ip.data, spec.ipv4->address);
    address.value.ipAddress->port = spec.ipv4->port;
}

void setAddress(Arena& arena, const TestAddress& spec, H245TransportAddress& address) {
    address.alternative = H245TransportAddress_unicastAddressChosen;
    auto* unicast = address.value.unicastAddress = arena.make<H245UnicastAddress>();
    if (!spec.ipv4) {
        unicast->alternative = H245UnicastAddress_iP6AddressChosen;
        unicast->value.iP6Address = arena.make<H245UnicastAddress_iP6Address>();
        unicast->value.iP6Address->network.numocts = 16;
        return;
    }
    unicast->alternative = H245UnicastAddress_iPAddressChosen;
    auto* ip = unicast->value.iPAddress = arena.make<H245UnicastAddress_iPAddress>();
    ip->network.numocts = 4;
    storeAddress(ip->network.data, spec.ipv4->address);
    ip->tsapIdentifier = spec.ipv4->port;
}

// An OPTIONAL address of a record with a presence word.
template <typename Record, typename Address>
void setOptional(Arena& arena, const OptionalAddress& spec, Record& record, uint32_t mask,
                 Address& address) {
    if (spec) {
        record.presence |= mask;
        setAddress(arena, *spec, address);
    }
}

template <typename List>
void setAddresses(Arena& arena, const std::vector<TestAddress>& specs, List& list) {
    using Elements = std::vector<H225TransportAddress>;
    auto* elements = arena.make<Elements>();
    elements->resize(specs.size());
    for (size_t i = 0; i < specs.size(); ++i) {
        setAddress(arena, specs[i], (*elements)[i]);
    }
    list.count = static_cast<uint32_t>(specs.size());
    list.elements = elements->data();
}

void setProtocol(ObjectIdentifier& identifier) {
    constexpr uint32_t arcs[] = {0, 0, 8, 2250, 0, 2};
    identifier.numarcs = std::size(arcs);
    std::copy(std::begin(arcs), std::end(arcs), identifier.arcs);
}

H245H2250LogicalChannelParameters* rtpParameters(Arena& arena, const OptionalAddress& media,
                                                 const OptionalAddress& control) {
    auto* rtp = arena.make<H245H2250LogicalChannelParameters>();
    rtp->sessionID = 1;
    setOptional(arena, media, *rtp, H245H2250LogicalChannelParameters_mediaChannelPresent,
                rtp->mediaChannel);
    setOptional(arena, control, *rtp, H245H2250LogicalChannelParameters_mediaControlChannelPresent,
                rtp->mediaControlChannel);
    return rtp;
}

template <typename Record>
void setSeparateStack(Arena& arena, const OptionalAddress& spec, Record& record, uint32_t mask) {
    if (spec) {
        record.presence |= mask;
        auto& choice = record.separateStack.networkAddress;
        choice.alternative = H245NetworkAccessParameters_networkAddress_localAreaAddressChosen;
        choice.value.localAreaAddress = arena.make<H245TransportAddress>();
        setAddress(arena, *spec, *choice.value.localAreaAddress);
    }
}

void fill(Arena& arena, const ChannelSpec& spec, H245OpenLogicalChannel& channel) {
    channel.forwardLogicalChannelNumber = spec.number;
    auto& forward = channel.forwardLogicalChannelParameters;
    forward.dataType.alternative = H245DataType_nullDataChosen;
    if (spec.t120) {
        forward.dataType.alternative = H245DataType_dataChosen;
        auto* data = forward.dataType.value.data = arena.make<H245DataApplicationCapability>();
        data->application.alternative = H245DataApplicationCapability_application_t120Chosen;
        data->application.value.t120 = arena.make<H245DataProtocolCapability>();
        data->application.value.t120->alternative =
            H245DataProtocolCapability_separateLANStackChosen;
    }
    auto& multiplex = forward.multiplexParameters;
    if (spec.forwardOverRtp) {
        multiplex.alternative =
            H245OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen;
        multiplex.value.h2250LogicalChannelParameters =
            rtpParameters(arena, spec.forwardMedia, spec.forwardControl);
    } else {
        multiplex.alternative =
            H245OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters_noneChosen;
    }
    if (spec.reverse) {
        channel.presence |= H245OpenLogicalChannel_reverseLogicalChannelParametersPresent;
        auto& reverse = channel.reverseLogicalChannelParameters;
        reverse.dataType.alternative = H245DataType_nullDataChosen;
        reverse.presence |=
            H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParametersPresent;
        reverse.multiplexParameters.alternative =
            H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen;
        reverse.multiplexParameters.value.h2250LogicalChannelParameters =
            rtpParameters(arena, spec.reverseMedia, spec.reverseControl);
    }
    setSeparateStack(arena, spec.separateStack, channel,
                     H245OpenLogicalChannel_separateStackPresent);
}

Octets request(const H245RequestMessage& request) {
    H245MultimediaSystemControlMessage message = {};
    message.alternative = H245MultimediaSystemControlMessage_requestChosen;
    message.value.request = const_cast<H245RequestMessage*>(&request);
    return tpkt(encode(asn1PE_H245MultimediaSystemControlMessage, message));
}

Octets ras(H225RasMessage& message) {
    return encode(asn1PE_H225RasMessage, message);
}

template <typename Body>
void fillAnswer(Arena& arena, Body& body, const OptionalAddress& h245Address, uint32_t mask) {
    setProtocol(body.protocolIdentifier);
    setOptional(arena, h245Address, body, mask, body.h245Address);
}

} // namespace

Octets fastStartElement(const ChannelSpec& spec) {
    Arena arena;
    auto* channel = arena.make<H245OpenLogicalChannel>();
    fill(arena, spec, *channel);
    return encode(asn1PE_H245OpenLogicalChannel, *channel);
}

Octets openLogicalChannel(const ChannelSpec& spec) {
    Arena arena;
    H245RequestMessage message = {};
    message.alternative = H245RequestMessage_openLogicalChannelChosen;
    message.value.openLogicalChannel = arena.make<H245OpenLogicalChannel>();
    fill(arena, spec, *message.value.openLogicalChannel);
    return request(message);
}

Octets openLogicalChannelAck(const AcknowledgementSpec& spec) {
    Arena arena;
    auto* acknowledgement = arena.make<H245OpenLogicalChannelAck>();
    acknowledgement->forwardLogicalChannelNumber = spec.number;
    if (spec.reverseNumber != 0) {
        acknowledgement->presence |=
            H245OpenLogicalChannelAck_reverseLogicalChannelParametersPresent;
        acknowledgement->reverseLogicalChannelParameters.reverseLogicalChannelNumber =
            spec.reverseNumber;
    }
    if (spec.overRtp) {
        acknowledgement->presence |= H245OpenLogicalChannelAck_forwardMultiplexAckParametersPresent;
        auto& parameters = acknowledgement->forwardMultiplexAckParameters;
        parameters.alternative =
            H245OpenLogicalChannelAck_forwardMultiplexAckParameters_h2250LogicalChannelAckParametersChosen;
        auto* rtp = parameters.value.h2250LogicalChannelAckParameters =
            arena.make<H245H2250LogicalChannelAckParameters>();
        setOptional(arena, spec.media, *rtp,
                    H245H2250LogicalChannelAckParameters_mediaChannelPresent, rtp->mediaChannel);
        setOptional(arena, spec.control, *rtp,
                    H245H2250LogicalChannelAckParameters_mediaControlChannelPresent,
                    rtp->mediaControlChannel);
    }
    setSeparateStack(arena, spec.separateStack, *acknowledgement,
                     H245OpenLogicalChannelAck_separateStackPresent);

    H245ResponseMessage response = {};
    response.alternative = H245ResponseMessage_openLogicalChannelAckChosen;
    response.value.openLogicalChannelAck = acknowledgement;
    H245MultimediaSystemControlMessage message = {};
    message.alternative = H245MultimediaSystemControlMessage_responseChosen;
    message.value.response = &response;
    return tpkt(encode(asn1PE_H245MultimediaSystemControlMessage, message));
}

Octets roundTripDelayRequest() {
    H245RoundTripDelayRequest delay = {};
    H245RequestMessage message = {};
    message.alternative = H245RequestMessage_roundTripDelayRequestChosen;
    message.value.roundTripDelayRequest = &delay;
    return request(message);
}

Octets setup(const SetupSpec& spec) {
    Arena arena;
    auto* setup = arena.make<H225Setup_UUIE>();
    setProtocol(setup->protocolIdentifier);
    setOptional(arena, spec.destCallSignalAddress, *setup,
                H225Setup_UUIE_destCallSignalAddressPresent, setup->destCallSignalAddress);
    setup->conferenceID.numocts = 16;
    setup->conferenceGoal.alternative = H225Setup_UUIE_conferenceGoal_createChosen;
    setup->callType.alternative = H225CallType_pointToPointChosen;
    setup->callIdentifier.guid.numocts = 16;
    if (spec.call != 0) {
        setup->presence |= H225Setup_UUIE_callIdentifierPresent;
        setup->callIdentifier.guid.data[15] = spec.call;
    }
    std::vector<Octets> octets;
    std::vector<DynOctetString> elements;
    if (spec.fastStart) {
        octets = *spec.fastStart;
        for (Octets& element : octets) {
            elements.push_back({static_cast<uint32_t>(element.size()), element.data()});
        }
        setup->presence |= H225Setup_UUIE_fastStartPresent | H225Setup_UUIE_callIdentifierPresent;
        setup->fastStart.count = static_cast<uint32_t>(elements.size());
        setup->fastStart.elements = elements.data();
    }
    H225H323_UserInformation message = {};
    auto& body = message.h323_uu_pdu.h323_message_body;
    body.alternative = H225H323_UU_PDU_h323_message_body_setupChosen;
    body.value.setup = setup;
    return encode(asn1PE_H225H323_UserInformation, message);
}

Octets answer(Answer kind, const OptionalAddress& h245Address) {
    Arena arena;
    H225H323_UserInformation message = {};
    auto& body = message.h323_uu_pdu.h323_message_body;
    if (kind == Answer::callProceeding) {
        body.alternative = H225H323_UU_PDU_h323_message_body_callProceedingChosen;
        body.value.callProceeding = arena.make<H225CallProceeding_UUIE>();
        fillAnswer(arena, *body.value.callProceeding, h245Address,
                   H225CallProceeding_UUIE_h245AddressPresent);
    } else if (kind == Answer::connect) {
        body.alternative = H225H323_UU_PDU_h323_message_body_connectChosen;
        body.value.connect = arena.make<H225Connect_UUIE>();
        body.value.connect->conferenceID.numocts = 16;
        fillAnswer(arena, *body.value.connect, h245Address, H225Connect_UUIE_h245AddressPresent);
    } else if (kind == Answer::alerting) {
        body.alternative = H225H323_UU_PDU_h323_message_body_alertingChosen;
        body.value.alerting = arena.make<H225Alerting_UUIE>();
        fillAnswer(arena, *body.value.alerting, h245Address, H225Alerting_UUIE_h245AddressPresent);
    } else {
        body.alternative = H225H323_UU_PDU_h323_message_body_progressChosen;
        body.value.progress = arena.make<H225Progress_UUIE>();
        body.value.progress->callIdentifier.guid.numocts = 16;
        fillAnswer(arena, *body.value.progress, h245Address, H225Progress_UUIE_h245AddressPresent);
    }
    return encode(asn1PE_H225H323_UserInformation, message);
}

Octets releaseComplete() {
    H225ReleaseComplete_UUIE release = {};
    setProtocol(release.protocolIdentifier);
    H225H323_UserInformation message = {};
    auto& body = message.h323_uu_pdu.h323_message_body;
    body.alternative = H225H323_UU_PDU_h323_message_body_releaseCompleteChosen;
    body.value.releaseComplete = &release;
    return encode(asn1PE_H225H323_UserInformation, message);
}

Octets emptyBody() {
    H225H323_UserInformation message = {};
    message.h323_uu_pdu.h323_message_body.alternative =
        H225H323_UU_PDU_h323_message_body_emptyChosen;
    return encode(asn1PE_H225H323_UserInformation, message);
}

Octets gatekeeperRequest(const TestAddress& rasAddress) {
    Arena arena;
    auto* request = arena.make<H225GatekeeperRequest>();
    request->requestSeqNum = 1;
    setProtocol(request->protocolIdentifier);
    setAddress(arena, rasAddress, request->rasAddress);
    H225RasMessage message = {};
    message.alternative = H225RasMessage_gatekeeperRequestChosen;
    message.value.gatekeeperRequest = request;
    return ras(message);
}

Octets registrationRequest(const std::vector<TestAddress>& callSignalAddress,
                           const std::vector<TestAddress>& rasAddress) {
    Arena arena;
    auto* request = arena.make<H225RegistrationRequest>();
    request->requestSeqNum = 2;
    setProtocol(request->protocolIdentifier);
    setAddresses(arena, callSignalAddress, request->callSignalAddress);
    setAddresses(arena, rasAddress, request->rasAddress);
    H225RasMessage message = {};
    message.alternative = H225RasMessage_registrationRequestChosen;
    message.value.registrationRequest = request;
    return ras(message);
}

Octets unregistrationRequest(const TestAddress& callSignalAddress) {
    Arena arena;
    auto* request = arena.make<H225UnregistrationRequest>();
    request->requestSeqNum = 3;
    setAddresses(arena, {callSignalAddress}, request->callSignalAddress);
    H225RasMessage message = {};
    message.alternative = H225RasMessage_unregistrationRequestChosen;
    message.value.unregistrationRequest = request;
    return ras(message);
}

Octets tpkt(const Octets& content) {
    const size_t length = content.size() + 4;
    return joined({3, 0, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)}, content);
}

Octets userUserElement(const Octets& userInformation) {
    const size_t length = userInformation.size() + 1;
    return joined({0x7e, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 5},
                  userInformation);
}

Octets q931(const std::vector<Octets>& userInformation, const Octets& before) {
    Octets content = {8, 2, 0, 1, 5};
    for (const Octets& information : userInformation) {
        content.insert(content.end(), before.begin(), before.end());
        const Octets element = userUserElement(information);
        content.insert(content.end(), element.begin(), element.end());
    }
    return tpkt(content);
}

} // namespace test_support
