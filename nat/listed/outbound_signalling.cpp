#include "nat/listed/outbound_signalling.h"

#include "nat/host_callbacks.h"
#include "nat/listed/fast_start.h"
#include "nat/listed/observed.h"
#include "nat/listed/stream_message.h"
#include "nat/wall_clock.h"

namespace {

constexpr int32_t segmentRefused = -1;
constexpr int32_t noRecordFree = -101;
constexpr size_t tpktAndQ931Header = 9;

HostMappingRecord* findHostRecord(const FlowKey& outsideFlow) {
    return hostCallbacks.HostFindOutsideMapping(outsideFlow.destinationAddress,
                                                outsideFlow.destinationPort,
                                                outsideFlow.sourceAddress, outsideFlow.sourcePort);
}

// The called party accepted a connection: from now on the call is followed.
int32_t followCall(const FlowKey& key) {
    expireRecords(callSignalPool);
    CallSignalConnection* record = takeRecord(callSignalPool);
    if (record == nullptr) {
        return noRecordFree;
    }
    record->lastActivity = wallClockSeconds();
    record->outsideFlow = key;
    record->insideFlow.destinationAddress = key.sourceAddress;
    record->insideFlow.destinationPort = key.sourcePort;
    if (const HostMappingRecord* host = findHostRecord(key)) {
        record->insideFlow.sourceAddress = host->insideAddress;
        record->insideFlow.sourcePort = host->insidePort;
    }
    observeBegin(*record);
    return 0;
}

// The called party announced the address of its H.245 channel.
void followControlChannel(CallSignalConnection& call, const H225TransportAddress& h245Address) {
    EndpointField field;
    if (!findEndpoint(h245Address, field)) {
        return;
    }
    const Endpoint endpoint = readEndpoint(field);
    const EndpointKey key = {endpoint.address, endpoint.port};
    if (findByRemoteEndpoint(key) != nullptr) {
        return;
    }
    expireRecords(controlChannelPool);
    ControlChannelConnection* control = takeRecord(controlChannelPool);
    if (control == nullptr) {
        return;
    }
    control->lastActivity = wallClockSeconds();
    setRemoteEndpoint(*control, key);
    control->publicAddress = call.outsideFlow.destinationAddress;
    control->callHostRecord = findHostRecord(call.outsideFlow);
    control->callNumber = call.callNumber;
    call.controlChannel = control;
    observeControl(*control, false);
}

// The h245Address of a received message; null when its body has none or may not be used.
template <typename Body>
const H225TransportAddress* h245AddressOf(const Body& body, uint32_t presentMask) {
    return (body.presence & presentMask) != 0 ? &body.h245Address : nullptr;
}

const H225TransportAddress* announcedControlAddress(const H225H323_UserInformation& message) {
    const auto& body = message.h323_uu_pdu.h323_message_body;
    switch (body.alternative) {
    case H225H323_UU_PDU_h323_message_body_callProceedingChosen:
        return h245AddressOf(*body.value.callProceeding,
                             H225CallProceeding_UUIE_h245AddressPresent);
    case H225H323_UU_PDU_h323_message_body_connectChosen:
        return h245AddressOf(*body.value.connect, H225Connect_UUIE_h245AddressPresent);
    case H225H323_UU_PDU_h323_message_body_alertingChosen:
        return h245AddressOf(*body.value.alerting, H225Alerting_UUIE_h245AddressPresent);
    case H225H323_UU_PDU_h323_message_body_progressChosen:
        return h245AddressOf(*body.value.progress, H225Progress_UUIE_h245AddressPresent);
    default:
        return nullptr;
    }
}

void examineReceived(CallSignalConnection& call, const H225H323_UserInformation& message) {
    const uint32_t alternative = message.h323_uu_pdu.h323_message_body.alternative;
    if (alternative >= H225H323_UU_PDU_h323_message_body_setupChosen &&
        alternative <= H225H323_UU_PDU_h323_message_body_emptyChosen) {
        call.lastMessage = alternative;
    }
    if (const H225TransportAddress* address = announcedControlAddress(message)) {
        followControlChannel(call, *address);
    }
}

// Received messages are read, never changed.
MessageOutcome processReceived(StreamBuffer& stream, void* owner) {
    return lookAtUserInformation(
        stream, [&](MessageEdit& edit, const H225H323_UserInformation& message) {
            examineReceived(*static_cast<CallSignalConnection*>(owner), message);
            closeMessage(edit);
        });
}

// Gives true when the message is a Setup with fast-start elements, translated or not.
bool translateSetup(HostContext* hostContext, uint8_t* octets, size_t count,
                    MediaMapping& mapping) {
    H225H323_UserInformation message;
    MessageEdit edit;
    if (!decodeMessage(edit, {octets, count}, {octets, 0, count}, message)) {
        return false;
    }
    const auto& body = message.h323_uu_pdu.h323_message_body;
    const bool found = body.alternative == H225H323_UU_PDU_h323_message_body_setupChosen &&
                       (body.value.setup->presence & H225Setup_UUIE_fastStartPresent) != 0;
    if (found) {
        translateFastStart(hostContext, edit, body.value.setup->fastStart, mapping);
        writeBack(edit);
    }
    closeMessage(edit);
    return found;
}

} // namespace

int32_t ReceiveCallSignalSegment(const FlowKey& key, uint8_t* payload, uint32_t length,
                                 uint32_t sequence) {
    CallSignalConnection* record = findByOutsideFlow(key);
    if (record == nullptr) {
        return length == 0 ? followCall(key) : 0;
    }
    if (length == 0) {
        return 0;
    }
    observeCallNumber(record->callNumber);
    if (appendSegment(*record, {payload, length, sequence}, {processReceived, record}) != 0) {
        return segmentRefused;
    }
    if (record->lastMessage == H225H323_UU_PDU_h323_message_body_releaseCompleteChosen) {
        observeEnd(*record, H323NAT_END_RELEASED);
        releaseRecord(callSignalPool, *record);
    }
    return 0;
}

int32_t SendCallSignalSegment(HostContext* hostContext, uint8_t* payload, uint32_t length) {
    // One whole message or nothing: the sent direction is not reassembled.
    if (length <= tpktHeader || tpktLength(payload) != length || length <= tpktAndQ931Header) {
        return 0;
    }
    int32_t changed = 0;
    MediaMapping mapping = {};
    Q931Walk walk = walkQ931(payload, length);
    OctetRange range;
    Q931Element found = nextUserInformation(walk, range);
    while (found == Q931Element::UserInformation) {
        if (translateSetup(hostContext, payload + range.offset, range.octets, mapping)) {
            changed = 1;
        }
        found = nextUserInformation(walk, range);
    }
    return found == Q931Element::End ? changed : 0;
}
