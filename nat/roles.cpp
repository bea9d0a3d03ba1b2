#include "nat/roles.h"

#include "include/h323nat.h"
#include "locator/fields.h"

// Alternate transports of signalling (Annex E, SCTP) and addresses in generic data have no role:
// nothing tells the host how to map them.
PlaceRole roleOf(const LocatedPlace& place, bool data) {
    using namespace locatorField;
    constexpr PlaceRole rtcp = {H323NAT_ROLE_MEDIA, true, false};
    switch (place.field) {
    case H245H2250LogicalChannelParameters_mediaChannel:
    case H245H2250LogicalChannelAckParameters_mediaChannel:
        return {data ? uint8_t{H323NAT_ROLE_T120} : uint8_t{H323NAT_ROLE_MEDIA}, false, false};
    case H245CommunicationModeTableEntry_mediaChannel:
    case H225RTPSession_rtpAddress:
        return {H323NAT_ROLE_MEDIA, false, false};
    case H245H2250LogicalChannelParameters_mediaControlChannel:
    case H245H2250LogicalChannelAckParameters_mediaControlChannel:
    case H245CommunicationModeTableEntry_mediaControlChannel:
    case H225RTPSession_rtcpAddress:
    case H225BandwidthDetails_rtcpAddresses:
        return rtcp;

    case H245NetworkAccessParameters_networkAddress_localAreaAddress: // separateStack
    case H225InfoRequestResponse_perCallInfo_element_data:
        return {H323NAT_ROLE_T120, false, false};

    case H225Setup_UUIE_h245Address:
    case H225CallProceeding_UUIE_h245Address:
    case H225Alerting_UUIE_h245Address:
    case H225Connect_UUIE_h245Address:
    case H225Progress_UUIE_h245Address:
    case H225Facility_UUIE_h245Address:
        return {H323NAT_ROLE_H245, false, true};
    case H225InfoRequestResponse_perCallInfo_element_h245:
        return {H323NAT_ROLE_H245, false, false};

    // Told by a gatekeeper, or by a party that passes the call on.
    case H225Facility_UUIE_alternativeAddress:
    case H225AdmissionConfirm_destCallSignalAddress:
    case H225AdmissionReject_callSignalAddress:
    case H225LocationConfirm_callSignalAddress:
    case H225RegistrationConfirm_callSignalAddress:
        return {H323NAT_ROLE_SIGNALLING, false, true};
    case H225Setup_UUIE_sourceCallSignalAddress:
    case H225Setup_UUIE_destCallSignalAddress:
    case H225RegistrationRequest_callSignalAddress:
    case H225UnregistrationRequest_callSignalAddress:
    case H225AdmissionRequest_srcCallSignalAddress:
    case H225AdmissionRequest_destCallSignalAddress:
    case H225InfoRequestResponse_callSignalAddress:
    case H225InfoRequestResponse_perCallInfo_element_callSignalling:
    case H225Endpoint_callSignalAddress:
    case H225AliasAddress_transportID:
    case H245MCLocationIndication_signalAddress:
        return {H323NAT_ROLE_SIGNALLING, false, false};

    case H225GatekeeperRequest_rasAddress:
    case H225GatekeeperConfirm_rasAddress:
    case H225RegistrationRequest_rasAddress:
    case H225LocationConfirm_rasAddress:
    case H225InfoRequestResponse_rasAddress:
    case H225Endpoint_rasAddress:
    case H225AlternateGK_rasAddress:
    case H225LocationRequest_replyAddress:
    case H225InfoRequest_replyAddress:
        return {H323NAT_ROLE_RAS, false, false};
    default:
        return {0, false, false};
    }
}
