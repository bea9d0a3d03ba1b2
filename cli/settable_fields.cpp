#include "cli/settable_fields.h"

#include <string_view>

namespace cli {

EditedMessage::EditedMessage(const TypeDescription& messageType, std::vector<uint8_t>& octets)
    : type(messageType), codec{messageType.decode, messageType.encode},
      memory(messageType.size / sizeof(std::max_align_t) + 1),
      open(openMessage(message, nullptr, {octets.data(), octets.size()},
                       {octets.data(), 0, octets.size()}, codec, memory.data())) {
    if (open) {
        addRecord(memory.data());
    }
}

EditedMessage::~EditedMessage() {
    for (Element& element : elements) {
        closeMessage(element.edit);
    }
    if (open) {
        closeMessage(message);
    }
}

int64_t EditedMessage::offsetOf(const SettableField& field) const {
    const uint8_t* place = pu_sourceOf(&field.edit->context, field.field.ip, endpointOctets);
    return place == nullptr ? -1 : place - message.octets.data;
}

void EditedMessage::add(const std::string& name, MessageEdit& in, const EndpointField& field) {
    found.push_back({name, &in, field});
}

void EditedMessage::addPair(const std::string& name, MessageEdit& in, const MediaPairFields& pair) {
    if (pair.hasMedia) {
        add(name + ".mediaChannel", in, pair.media);
    }
    if (pair.hasControl) {
        add(name + ".mediaControlChannel", in, pair.control);
    }
}

void EditedMessage::addRecord(const void* record) {
    // The record of a type that holds such fields, by name.
    void* const value = const_cast<void*>(record);
    const std::string_view name = type.name;
    if (name == "H225H323_UserInformation") {
        addUserInformation(*static_cast<H225H323_UserInformation*>(value));
    } else if (name == "H225Setup_UUIE") {
        addSetup(*static_cast<H225Setup_UUIE*>(value));
    } else if (name == "H225Connect_UUIE") {
        addConnect(*static_cast<H225Connect_UUIE*>(value));
    } else if (name == "H225RasMessage") {
        addRasMessage(*static_cast<H225RasMessage*>(value));
    } else if (name == "H225GatekeeperRequest") {
        addGatekeeperRequest(*static_cast<H225GatekeeperRequest*>(value));
    } else if (name == "H225RegistrationRequest") {
        addRegistrationRequest(*static_cast<H225RegistrationRequest*>(value));
    } else if (name == "H245MultimediaSystemControlMessage") {
        addControlMessage(*static_cast<H245MultimediaSystemControlMessage*>(value));
    } else if (name == "H245OpenLogicalChannel") {
        addOpenLogicalChannel(*static_cast<H245OpenLogicalChannel*>(value));
    } else if (name == "H245OpenLogicalChannelAck") {
        addOpenLogicalChannelAck(*static_cast<H245OpenLogicalChannelAck*>(value));
    }
}

void EditedMessage::addUserInformation(const H225H323_UserInformation& information) {
    const auto& body = information.h323_uu_pdu.h323_message_body;
    if (body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen) {
        addSetup(*body.value.setup);
    } else if (body.alternative == H225H323_UU_PDU_h323_message_body_connectChosen) {
        addConnect(*body.value.connect);
    }
}

void EditedMessage::addSetup(H225Setup_UUIE& setup) {
    EndpointField field;
    if ((setup.presence & H225Setup_UUIE_destCallSignalAddressPresent) != 0 &&
        findEndpoint(setup.destCallSignalAddress, field)) {
        add("setup.destCallSignalAddress", message, field);
    }
    if ((setup.presence & H225Setup_UUIE_fastStartPresent) == 0) {
        return;
    }
    for (uint32_t i = 0; i < setup.fastStart.count; ++i) {
        addFastStartElement("setup.fastStart[" + std::to_string(i) + "]",
                            setup.fastStart.elements[i]);
    }
}

void EditedMessage::addFastStartElement(const std::string& name, const DynOctetString& octets) {
    Element& element = elements.emplace_back();
    if (!decodeElement(element.edit, message, {octets.data, octets.numocts}, element.channel)) {
        elements.pop_back();
        return;
    }
    EndpointField control;
    if (findForwardControl(element.channel, control)) {
        add(name + ".forward.mediaControlChannel", element.edit, control);
    }
    addPair(name + ".reverse", element.edit, reverseMediaOf(element.channel));
}

void EditedMessage::addConnect(const H225Connect_UUIE& connect) {
    EndpointField field;
    if ((connect.presence & H225Connect_UUIE_h245AddressPresent) != 0 &&
        findEndpoint(connect.h245Address, field)) {
        add("connect.h245Address", message, field);
    }
}

void EditedMessage::addRasMessage(const H225RasMessage& ras) {
    if (ras.alternative == H225RasMessage_gatekeeperRequestChosen) {
        addGatekeeperRequest(*ras.value.gatekeeperRequest);
    } else if (ras.alternative == H225RasMessage_registrationRequestChosen) {
        addRegistrationRequest(*ras.value.registrationRequest);
    }
}

void EditedMessage::addGatekeeperRequest(const H225GatekeeperRequest& request) {
    EndpointField field;
    if (findEndpoint(request.rasAddress, field)) {
        add("grq.rasAddress", message, field);
    }
}

void EditedMessage::addRegistrationRequest(const H225RegistrationRequest& request) {
    EndpointField field;
    if (request.rasAddress.count > 0 && findEndpoint(request.rasAddress.elements[0], field)) {
        add("rrq.rasAddress[0]", message, field);
    }
    if (request.callSignalAddress.count > 0 &&
        findEndpoint(request.callSignalAddress.elements[0], field)) {
        add("rrq.callSignalAddress[0]", message, field);
    }
}

void EditedMessage::addControlMessage(const H245MultimediaSystemControlMessage& control) {
    if (H245OpenLogicalChannel* channel = openLogicalChannelOf(control)) {
        addOpenLogicalChannel(*channel);
    } else if (H245OpenLogicalChannelAck* acknowledgement = openLogicalChannelAckOf(control)) {
        addOpenLogicalChannelAck(*acknowledgement);
    }
}

void EditedMessage::addOpenLogicalChannel(H245OpenLogicalChannel& channel) {
    EndpointField field;
    if (findForwardControl(channel, field)) {
        add("olc.forward.mediaControlChannel", message, field);
    }
    if (findSeparateStack(channel, field)) {
        add("olc.separateStack", message, field);
    }
}

void EditedMessage::addOpenLogicalChannelAck(H245OpenLogicalChannelAck& acknowledgement) {
    addPair("olcAck", message, acknowledgedMediaOf(acknowledgement));
    EndpointField stack;
    if (findSeparateStack(acknowledgement, stack)) {
        add("olcAck.separateStack", message, stack);
    }
}

} // namespace cli
