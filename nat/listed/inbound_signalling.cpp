#include "nat/listed/inbound_signalling.h"

#include "nat/host_callbacks.h"
#include "nat/listed/inbound_state.h"
#include "nat/listed/observed.h"
#include "nat/listed/stream_message.h"

namespace {

// The address that the outside party called is the NAT's; the published host is to see its own.
void translateSetup(MessageEdit& edit, HostContext*, const H225Setup_UUIE& setup) {
    EndpointField called;
    if ((setup.presence & H225Setup_UUIE_destCallSignalAddressPresent) == 0 ||
        !findEndpoint(setup.destCallSignalAddress, called)) {
        return;
    }
    setAddress(edit, called, inboundMappingState.publishedAddress);
    writeBack(edit);
}

// The published host's H.245 address: the outside party is to connect to the NAT instead.
void translateConnect(MessageEdit& edit, HostContext* hostContext,
                      const H225Connect_UUIE& connect) {
    EndpointField control;
    if ((connect.presence & H225Connect_UUIE_h245AddressPresent) == 0 ||
        !findEndpoint(connect.h245Address, control)) {
        return;
    }
    InboundMappingState& call = inboundMappingState;
    call.publishedControlPort = readEndpoint(control).port;
    uint32_t publicPort = 0;
    uint32_t publicAddress = 0;
    uint32_t reserved = 0;
    const uint8_t refused = hostCallbacks.HostOpenControlMapping(
        hostContext, call.publishedAddress, call.remoteAddress, call.publishedControlPort,
        &publicPort, &publicAddress, &reserved);
    if (refused == 0) {
        setEndpoint(edit, control, {publicAddress, static_cast<uint16_t>(publicPort)});
        writeBack(edit);
        observeInboundControl({publicAddress, static_cast<uint16_t>(publicPort)});
    }
}

void translateSetupBody(MessageEdit& edit, HostContext* hostContext,
                        const H225H323_UserInformation& message) {
    const auto& body = message.h323_uu_pdu.h323_message_body;
    if (body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen) {
        translateSetup(edit, hostContext, *body.value.setup);
    }
}

void translateConnectBody(MessageEdit& edit, HostContext* hostContext,
                          const H225H323_UserInformation& message) {
    const auto& body = message.h323_uu_pdu.h323_message_body;
    if (body.alternative == H225H323_UU_PDU_h323_message_body_connectChosen) {
        translateConnect(edit, hostContext, *body.value.connect);
    }
}

using BodyTranslator = void (*)(MessageEdit& edit, HostContext* hostContext,
                                const H225H323_UserInformation& message);

MessageOutcome processSignalling(StreamBuffer& stream, HostContext* hostContext,
                                 BodyTranslator translate) {
    return lookAtUserInformation(stream,
                                 [&](MessageEdit& edit, const H225H323_UserInformation& message) {
                                     translate(edit, hostContext, message);
                                     closeStreamMessage(edit, stream);
                                 });
}

MessageOutcome ProcessSignallingFromRemote(StreamBuffer& stream, void* owner) {
    return processSignalling(stream, static_cast<HostContext*>(owner), translateSetupBody);
}

MessageOutcome ProcessSignallingToRemote(StreamBuffer& stream, void* owner) {
    return processSignalling(stream, static_cast<HostContext*>(owner), translateConnectBody);
}

} // namespace

uint32_t InboundSignallingFromRemote(HostContext* hostContext, uint32_t sourceAddress,
                                     uint16_t sourcePort, uint8_t* payload, uint32_t length,
                                     uint32_t sequence, uint8_t syn) {
    if (syn != 0) {
        BeginInboundCall(sourceAddress, sourcePort);
        return 0;
    }
    InboundMappingState& call = inboundMappingState;
    if (length == 0 || sourceAddress != call.remoteAddress ||
        sourcePort != call.remoteSignallingPort) {
        return 0;
    }
    return AppendInboundSegment(call.signallingFromRemote, {payload, length, sequence},
                                {ProcessSignallingFromRemote, hostContext});
}

uint32_t InboundSignallingToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                   uint32_t sequence) {
    return AppendInboundSegment(inboundMappingState.signallingToRemote, {payload, length, sequence},
                                {ProcessSignallingToRemote, hostContext});
}
