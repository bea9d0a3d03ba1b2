#include "nat/listed/inbound_control.h"

#include "nat/listed/inbound_state.h"
#include "nat/listed/logical_channel.h"
#include "nat/listed/media_mapping.h"
#include "nat/listed/stream_message.h"
#include "nat/well_known_ports.h"

namespace {

// What a rule did. `failed`: it changed the message, and encoding it again failed; no further rule
// is tried then.
enum class RuleOutcome { unchanged, changed, failed };

RuleOutcome write(MessageEdit& edit) {
    return writeBack(edit) == 0 ? RuleOutcome::changed : RuleOutcome::failed;
}

// The channel on which the published host will receive.
RuleOutcome translateAcknowledgedMedia(MessageEdit& edit, HostContext* hostContext,
                                       H245OpenLogicalChannelAck& acknowledgement) {
    const MediaPairFields pair = acknowledgedMediaOf(acknowledgement);
    if (!pair.hasMedia) {
        return RuleOutcome::unchanged;
    }
    const InboundMappingState& call = inboundMappingState;
    MediaMapping mapping = {};
    openMediaMapping(hostContext, readEndpoint(pair.media), call.remoteAddress, mapping);
    linkToControlConnection(mapping, {call.publishedAddress, call.remoteAddress,
                                      call.publishedControlPort, call.remoteControlPort});
    return setMediaPair(edit, pair, publicEndpoint(mapping)) ? write(edit) : RuleOutcome::unchanged;
}

// The RTCP address of a channel that the published host opens. Its port stays: the host maps it
// when it maps the channel's media.
RuleOutcome translateOpenedControl(MessageEdit& edit, HostContext* hostContext,
                                   H245OpenLogicalChannel& channel) {
    EndpointField control;
    if (!findForwardControl(channel, control)) {
        return RuleOutcome::unchanged;
    }
    setAddress(edit, control, hostContext->publicAddress);
    return write(edit);
}

// T.120 address in an acknowledgement, whatever it names.
RuleOutcome translateAcknowledgedStack(MessageEdit& edit, HostContext* hostContext,
                                       H245OpenLogicalChannelAck& acknowledgement) {
    EndpointField stack;
    if (!findSeparateStack(acknowledgement, stack) || readEndpoint(stack).port != t120Port) {
        return RuleOutcome::unchanged;
    }
    setAddress(edit, stack, hostContext->publicAddress);
    return write(edit);
}

// T.120 address of a bidirectional channel that the published host opens, if it is its own.
RuleOutcome translateOpenedStack(MessageEdit& edit, HostContext* hostContext,
                                 H245OpenLogicalChannel& channel) {
    EndpointField stack;
    if ((channel.presence & H245OpenLogicalChannel_reverseLogicalChannelParametersPresent) == 0 ||
        !findSeparateStack(channel, stack)) {
        return RuleOutcome::unchanged;
    }
    const Endpoint endpoint = readEndpoint(stack);
    if (endpoint.address != inboundMappingState.publishedAddress || endpoint.port != t120Port) {
        return RuleOutcome::unchanged;
    }
    setAddress(edit, stack, hostContext->publicAddress);
    return write(edit);
}

void translateMessage(MessageEdit& edit, HostContext* hostContext,
                      const H245MultimediaSystemControlMessage& message) {
    if (H245OpenLogicalChannelAck* acknowledgement = openLogicalChannelAckOf(message)) {
        if (translateAcknowledgedMedia(edit, hostContext, *acknowledgement) !=
            RuleOutcome::failed) {
            translateAcknowledgedStack(edit, hostContext, *acknowledgement);
        }
    } else if (H245OpenLogicalChannel* channel = openLogicalChannelOf(message)) {
        if (translateOpenedControl(edit, hostContext, *channel) != RuleOutcome::failed) {
            translateOpenedStack(edit, hostContext, *channel);
        }
    }
}

MessageOutcome ProcessControlToRemote(StreamBuffer& stream, void* owner) {
    H245MultimediaSystemControlMessage message;
    MessageEdit edit;
    if (decodeStreamMessage(edit, stream, tpktContent(stream), message)) {
        translateMessage(edit, static_cast<HostContext*>(owner), message);
        closeStreamMessage(edit, stream);
    }
    return MessageOutcome::done;
}

} // namespace

uint32_t InboundControlToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                uint32_t sequence) {
    return AppendInboundSegment(inboundMappingState.controlToRemote, {payload, length, sequence},
                                {ProcessControlToRemote, hostContext});
}
