#include "gateway/h323_message.h"

#include "gateway/address_fields.h"
#include "gateway/q931.h"

#include "H.323/registry.h"

#include <new>

namespace gateway {
namespace {

// The name of a CHOICE's alternative, by the generated descriptions.
std::string alternativeName(const char* choice, uint32_t alternative) {
    const TypeDescription* const type = findType(choice);
    for (uint32_t i = 0; type != nullptr && i < type->memberCount; ++i) {
        if (type->members[i].alternative == alternative) {
            return type->members[i].name;
        }
    }
    return "unknown";
}

void describe(const H225H323_UserInformation& message, MessageDescription& description) {
    description.name = alternativeName("H225H323_UU_PDU_h323_message_body",
                                       message.h323_uu_pdu.h323_message_body.alternative);
    description.fields = addressFields(message);
    description.controlAddresses = controlAddresses(message);
}

void describe(const H225RasMessage& message, MessageDescription& description) {
    description.name = alternativeName("H225RasMessage", message.alternative);
    description.fields = addressFields(message);
}

std::string nameOf(const H245MultimediaSystemControlMessage& message) {
    switch (message.alternative) {
    case H245MultimediaSystemControlMessage_requestChosen:
        return alternativeName("H245RequestMessage", message.value.request->alternative);
    case H245MultimediaSystemControlMessage_responseChosen:
        return alternativeName("H245ResponseMessage", message.value.response->alternative);
    case H245MultimediaSystemControlMessage_commandChosen:
        return alternativeName("H245CommandMessage", message.value.command->alternative);
    case H245MultimediaSystemControlMessage_indicationChosen:
        return alternativeName("H245IndicationMessage", message.value.indication->alternative);
    default:
        return "unknown";
    }
}

void describe(const H245MultimediaSystemControlMessage& message, MessageDescription& description) {
    description.name = nameOf(message);
    description.fields = addressFields(message);
}

template <typename Message>
MessageDescription decodeAndDescribe(std::span<const uint8_t> encoding,
                                     int32_t (*decode)(PerContext*, Message*)) {
    MessageDescription description;
    PerContext context{};
    if (pu_initContext(&context, encoding.data(), static_cast<uint32_t>(encoding.size()), 1) ==
        PER_OK) {
        pu_setLenient(&context, 1);
        Message message{};
        description.decoded = decode(&context, &message) == PER_OK;
        if (description.decoded) {
            describe(message, description);
        }
    }
    pu_freeContext(&context);
    return description;
}

} // namespace

MessageDescription describeMessage(MessageKind kind, std::span<const uint8_t> octets) {
    MessageDescription undecoded;
    if (kind == MessageKind::Ras) {
        return octets.empty() ? undecoded : decodeAndDescribe(octets, asn1PD_H225RasMessage);
    }
    if (octets.size() <= tpktHeader) {
        return undecoded;
    }
    if (kind == MessageKind::Control) {
        return decodeAndDescribe(octets.subspan(tpktHeader),
                                 asn1PD_H245MultimediaSystemControlMessage);
    }
    bool damaged = false;
    const auto information = userInformation(octets, damaged);
    if (!information) {
        undecoded.decoded = !damaged;
        undecoded.name = damaged ? "" : "Q.931";
        return undecoded;
    }
    return decodeAndDescribe(*information, asn1PD_H225H323_UserInformation);
}

} // namespace gateway
