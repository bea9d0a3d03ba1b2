#include "nat/listed/outbound_control.h"

#include "nat/listed/logical_channel.h"
#include "nat/listed/media_mapping.h"
#include "nat/listed/stream_message.h"

// The channel on which the private caller will receive: the host opens a mapping towards the called
// party, whose media address is not known here; its H.245 address stands for it.
static bool translateAcknowledgement(MessageEdit& edit, ControlChannelConnection& record,
                                     H245OpenLogicalChannelAck& acknowledgement) {
    const MediaPairFields pair = acknowledgedMediaOf(acknowledgement);
    if (!pair.hasMedia) {
        return false;
    }
    MediaMapping mapping = {};
    openMediaMapping(record.hostContext, readEndpoint(pair.media), record.remoteEndpoint.address,
                     mapping);
    HostMappingRecord* control = linkToControlConnection(mapping, record.insideFlow);
    if (control != nullptr && record.callHostRecord != nullptr) {
        record.callHostRecord->controlLink = control;
    }
    return setMediaPair(edit, pair, {record.publicAddress, publicEndpoint(mapping).port});
}

static MessageOutcome processControlMessage(StreamBuffer& stream, void* owner) {
    auto& record = *static_cast<ControlChannelConnection*>(owner);
    H245MultimediaSystemControlMessage message;
    MessageEdit edit;
    if (decodeStreamMessage(edit, stream, tpktContent(stream), message)) {
        H245OpenLogicalChannelAck* acknowledgement = openLogicalChannelAckOf(message);
        if (acknowledgement != nullptr &&
            translateAcknowledgement(edit, record, *acknowledgement)) {
            writeBack(edit);
        }
        closeStreamMessage(edit, stream);
    }
    return MessageOutcome::done;
}

int32_t SendControlSegment(ControlChannelConnection& record, uint8_t* payload, uint32_t length,
                           uint32_t sequence) {
    const int32_t status =
        appendSegment(record, {payload, length, sequence}, {processControlMessage, &record});
    if (status != 0) {
        return status;
    }
    return takeMessageChanged(record.stream) ? 1 : 0;
}
