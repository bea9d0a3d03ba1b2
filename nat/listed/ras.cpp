#include "nat/listed/ras.h"

#include "nat/listed/media_mapping.h"
#include "nat/listed/message_edit.h"

// Asks the host for a mapping of the endpoint's RAS address towards the gatekeeper and sets the
// answer. Gives the mapping's public address.
static uint32_t translateRasAddress(MessageEdit& edit, HostContext* hostContext,
                                    const EndpointField& rasAddress, uint32_t gatekeeper) {
    MediaMapping mapping = {};
    openMediaMapping(hostContext, readEndpoint(rasAddress), gatekeeper, mapping);
    setEndpoint(edit, rasAddress, publicEndpoint(mapping));
    return mapping.publicAddress;
}

static bool translateGatekeeperRequest(MessageEdit& edit, HostContext* hostContext,
                                       const H225GatekeeperRequest& request, uint32_t gatekeeper) {
    EndpointField rasAddress;
    if (!findEndpoint(request.rasAddress, rasAddress)) {
        return false;
    }
    translateRasAddress(edit, hostContext, rasAddress, gatekeeper);
    return true;
}

// Only the first address of each list is looked at. The call-signalling address keeps its port.
static bool translateRegistrationRequest(MessageEdit& edit, HostContext* hostContext,
                                         const H225RegistrationRequest& request,
                                         uint32_t gatekeeper) {
    EndpointField rasAddress;
    if (request.rasAddress.count == 0 ||
        !findEndpoint(request.rasAddress.elements[0], rasAddress)) {
        return false;
    }
    const uint32_t publicAddress = translateRasAddress(edit, hostContext, rasAddress, gatekeeper);
    EndpointField signalling;
    if (request.callSignalAddress.count > 0 &&
        findEndpoint(request.callSignalAddress.elements[0], signalling)) {
        setAddress(edit, signalling, publicAddress);
    }
    return true;
}

uint32_t TranslateRasMessage(HostContext* hostContext, uint8_t* datagram, uint32_t length,
                             uint32_t destinationAddress) {
    H225RasMessage message;
    MessageEdit edit;
    if (!decodeMessage(edit, {datagram, length}, {datagram, 0, length}, message)) {
        return 0;
    }
    bool translated = false;
    if (message.alternative == H225RasMessage_gatekeeperRequestChosen) {
        translated = translateGatekeeperRequest(edit, hostContext, *message.value.gatekeeperRequest,
                                                destinationAddress);
    } else if (message.alternative == H225RasMessage_registrationRequestChosen) {
        translated = translateRegistrationRequest(
            edit, hostContext, *message.value.registrationRequest, destinationAddress);
    }
    if (translated) {
        writeBack(edit);
    }
    const uint32_t changed = edit.changed ? 1 : 0;
    closeMessage(edit);
    return changed;
}
