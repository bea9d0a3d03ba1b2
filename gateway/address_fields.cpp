#include "gateway/address_fields.h"

#include <cstring>
#include <optional>
#include <span>
#include <string_view>

namespace gateway {
namespace {

uint32_t addressOf(const uint8_t* octets) {
    return (static_cast<uint32_t>(octets[0]) << 24) | (static_cast<uint32_t>(octets[1]) << 16) |
           (static_cast<uint32_t>(octets[2]) << 8) | octets[3];
}

std::optional<Endpoint> endpointOf(const H225TransportAddress& address) {
    if (address.alternative != H225TransportAddress_ipAddressChosen) {
        return std::nullopt;
    }
    const auto& ip = *address.value.ipAddress;
    return Endpoint{addressOf(ip.ip.data), static_cast<uint16_t>(ip.port)};
}

std::optional<Endpoint> endpointOf(const H245TransportAddress& address) {
    if (address.alternative != H245TransportAddress_unicastAddressChosen ||
        address.value.unicastAddress->alternative != H245UnicastAddress_iPAddressChosen) {
        return std::nullopt;
    }
    const auto& ip = *address.value.unicastAddress->value.iPAddress;
    return Endpoint{addressOf(ip.network.data), static_cast<uint16_t>(ip.tsapIdentifier)};
}

// Collects fields under a prefix that names the message or a part of it.
class FieldList {
public:
    explicit FieldList(std::string prefix, std::vector<AddressField>& fields)
        : prefix_(std::move(prefix)), fields_(fields) {}

    template <typename Address> void add(std::string_view name, const Address& address) {
        if (const auto endpoint = endpointOf(address)) {
            fields_.push_back({prefix_ + '.' + std::string(name), *endpoint});
        }
    }

    [[nodiscard]] FieldList under(const std::string& name) {
        return FieldList(prefix_ + '.' + name, fields_);
    }

private:
    std::string prefix_;
    std::vector<AddressField>& fields_;
};

void addSeparateStack(const H245NetworkAccessParameters& stack, FieldList& list) {
    if (stack.networkAddress.alternative ==
        H245NetworkAccessParameters_networkAddress_localAreaAddressChosen) {
        list.add("separateStack", *stack.networkAddress.value.localAreaAddress);
    }
}

void addForwardChannel(const H245OpenLogicalChannel& channel, FieldList& list) {
    const auto& parameters = channel.forwardLogicalChannelParameters.multiplexParameters;
    if (parameters.alternative ==
        H245OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen) {
        const auto& h2250 = *parameters.value.h2250LogicalChannelParameters;
        if ((h2250.presence & H245H2250LogicalChannelParameters_mediaControlChannelPresent) != 0) {
            list.under("forward").add("mediaControlChannel", h2250.mediaControlChannel);
        }
    }
}

void addReverseChannel(const H245OpenLogicalChannel& channel, FieldList& list) {
    if ((channel.presence & H245OpenLogicalChannel_reverseLogicalChannelParametersPresent) == 0) {
        return;
    }
    const auto& reverse = channel.reverseLogicalChannelParameters;
    if ((reverse.presence &
         H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParametersPresent) == 0 ||
        reverse.multiplexParameters.alternative !=
            H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen) {
        return;
    }
    const auto& h2250 = *reverse.multiplexParameters.value.h2250LogicalChannelParameters;
    FieldList part = list.under("reverse");
    if ((h2250.presence & H245H2250LogicalChannelParameters_mediaChannelPresent) != 0) {
        part.add("mediaChannel", h2250.mediaChannel);
    }
    if ((h2250.presence & H245H2250LogicalChannelParameters_mediaControlChannelPresent) != 0) {
        part.add("mediaControlChannel", h2250.mediaControlChannel);
    }
}

// One element of a fastStart list: an encoding inside an OCTET STRING. What does not decode is not
// listed, as the module leaves it alone.
void addFastStartElement(const DynOctetString& element, FieldList list) {
    PerContext context{};
    if (pu_initContext(&context, element.data, element.numocts, 1) == PER_OK) {
        pu_setLenient(&context, 1);
        H245OpenLogicalChannel channel{};
        if (asn1PD_H245OpenLogicalChannel(&context, &channel) == PER_OK) {
            addForwardChannel(channel, list);
            addReverseChannel(channel, list);
        }
    }
    pu_freeContext(&context);
}

void addSetup(const H225Setup_UUIE& setup, std::vector<AddressField>& fields) {
    FieldList list("setup", fields);
    if ((setup.presence & H225Setup_UUIE_destCallSignalAddressPresent) != 0) {
        list.add("destCallSignalAddress", setup.destCallSignalAddress);
    }
    if ((setup.presence & H225Setup_UUIE_fastStartPresent) != 0) {
        for (uint32_t i = 0; i < setup.fastStart.count; ++i) {
            addFastStartElement(setup.fastStart.elements[i],
                                list.under("fastStart[" + std::to_string(i) + "]"));
        }
    }
}

void addOpenLogicalChannel(const H245OpenLogicalChannel& channel,
                           std::vector<AddressField>& fields) {
    FieldList list("olc", fields);
    addForwardChannel(channel, list);
    if ((channel.presence & H245OpenLogicalChannel_separateStackPresent) != 0) {
        addSeparateStack(channel.separateStack, list);
    }
}

void addOpenLogicalChannelAck(const H245OpenLogicalChannelAck& ack,
                              std::vector<AddressField>& fields) {
    FieldList list("olcAck", fields);
    if ((ack.presence & H245OpenLogicalChannelAck_separateStackPresent) != 0) {
        addSeparateStack(ack.separateStack, list);
    }
    if ((ack.presence & H245OpenLogicalChannelAck_forwardMultiplexAckParametersPresent) == 0 ||
        ack.forwardMultiplexAckParameters.alternative !=
            H245OpenLogicalChannelAck_forwardMultiplexAckParameters_h2250LogicalChannelAckParametersChosen) {
        return;
    }
    const auto& h2250 = *ack.forwardMultiplexAckParameters.value.h2250LogicalChannelAckParameters;
    if ((h2250.presence & H245H2250LogicalChannelAckParameters_mediaChannelPresent) != 0) {
        list.add("mediaChannel", h2250.mediaChannel);
    }
    if ((h2250.presence & H245H2250LogicalChannelAckParameters_mediaControlChannelPresent) != 0) {
        list.add("mediaControlChannel", h2250.mediaControlChannel);
    }
}

void addRegistration(const H225RegistrationRequest& request, std::vector<AddressField>& fields) {
    FieldList list("rrq", fields);
    if (request.callSignalAddress.count > 0) {
        list.add("callSignalAddress[0]", request.callSignalAddress.elements[0]);
    }
    if (request.rasAddress.count > 0) {
        list.add("rasAddress[0]", request.rasAddress.elements[0]);
    }
}

template <typename Body>
void addControlAddress(const Body& body, uint32_t presentMask, std::vector<Endpoint>& addresses) {
    if ((body.presence & presentMask) != 0) {
        if (const auto endpoint = endpointOf(body.h245Address)) {
            addresses.push_back(*endpoint);
        }
    }
}

} // namespace

std::vector<AddressField> addressFields(const H225H323_UserInformation& message) {
    std::vector<AddressField> fields;
    const auto& body = message.h323_uu_pdu.h323_message_body;
    if (body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen) {
        addSetup(*body.value.setup, fields);
    } else if (body.alternative == H225H323_UU_PDU_h323_message_body_connectChosen) {
        const auto& connect = *body.value.connect;
        if ((connect.presence & H225Connect_UUIE_h245AddressPresent) != 0) {
            FieldList("connect", fields).add("h245Address", connect.h245Address);
        }
    }
    return fields;
}

std::vector<AddressField> addressFields(const H245MultimediaSystemControlMessage& message) {
    std::vector<AddressField> fields;
    if (message.alternative == H245MultimediaSystemControlMessage_requestChosen) {
        const auto& request = *message.value.request;
        if (request.alternative == H245RequestMessage_openLogicalChannelChosen) {
            addOpenLogicalChannel(*request.value.openLogicalChannel, fields);
        }
    } else if (message.alternative == H245MultimediaSystemControlMessage_responseChosen) {
        const auto& response = *message.value.response;
        if (response.alternative == H245ResponseMessage_openLogicalChannelAckChosen) {
            addOpenLogicalChannelAck(*response.value.openLogicalChannelAck, fields);
        }
    }
    return fields;
}

std::vector<AddressField> addressFields(const H225RasMessage& message) {
    std::vector<AddressField> fields;
    if (message.alternative == H225RasMessage_gatekeeperRequestChosen) {
        FieldList("grq", fields).add("rasAddress", message.value.gatekeeperRequest->rasAddress);
    } else if (message.alternative == H225RasMessage_registrationRequestChosen) {
        addRegistration(*message.value.registrationRequest, fields);
    }
    return fields;
}

std::vector<Endpoint> controlAddresses(const H225H323_UserInformation& message) {
    std::vector<Endpoint> addresses;
    const auto& body = message.h323_uu_pdu.h323_message_body;
    switch (body.alternative) {
    case H225H323_UU_PDU_h323_message_body_setupChosen:
        addControlAddress(*body.value.setup, H225Setup_UUIE_h245AddressPresent, addresses);
        break;
    case H225H323_UU_PDU_h323_message_body_callProceedingChosen:
        addControlAddress(*body.value.callProceeding, H225CallProceeding_UUIE_h245AddressPresent,
                          addresses);
        break;
    case H225H323_UU_PDU_h323_message_body_connectChosen:
        addControlAddress(*body.value.connect, H225Connect_UUIE_h245AddressPresent, addresses);
        break;
    case H225H323_UU_PDU_h323_message_body_alertingChosen:
        addControlAddress(*body.value.alerting, H225Alerting_UUIE_h245AddressPresent, addresses);
        break;
    case H225H323_UU_PDU_h323_message_body_facilityChosen:
        addControlAddress(*body.value.facility, H225Facility_UUIE_h245AddressPresent, addresses);
        break;
    case H225H323_UU_PDU_h323_message_body_progressChosen:
        addControlAddress(*body.value.progress, H225Progress_UUIE_h245AddressPresent, addresses);
        break;
    default:
        break;
    }
    return addresses;
}

} // namespace gateway
