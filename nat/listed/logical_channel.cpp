#include "nat/listed/logical_channel.h"

namespace {

// The alternatives of multiplexParameters that carry RTP, under shorter names.
constexpr uint32_t forwardOverRtp =
    H245OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen;
constexpr uint32_t reverseOverRtp =
    H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters_h2250LogicalChannelParametersChosen;
constexpr uint32_t acknowledgedOverRtp =
    H245OpenLogicalChannelAck_forwardMultiplexAckParameters_h2250LogicalChannelAckParametersChosen;
constexpr uint32_t reverseMultiplexPresent =
    H245OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParametersPresent;

} // namespace

H245OpenLogicalChannel* openLogicalChannelOf(const H245MultimediaSystemControlMessage& message) {
    if (message.alternative != H245MultimediaSystemControlMessage_requestChosen ||
        message.value.request->alternative != H245RequestMessage_openLogicalChannelChosen) {
        return nullptr;
    }
    return message.value.request->value.openLogicalChannel;
}

H245OpenLogicalChannelAck*
openLogicalChannelAckOf(const H245MultimediaSystemControlMessage& message) {
    if (message.alternative != H245MultimediaSystemControlMessage_responseChosen ||
        message.value.response->alternative != H245ResponseMessage_openLogicalChannelAckChosen) {
        return nullptr;
    }
    return message.value.response->value.openLogicalChannelAck;
}

bool findForwardControl(const H245OpenLogicalChannel& channel, EndpointField& control) {
    const auto& multiplex = channel.forwardLogicalChannelParameters.multiplexParameters;
    if (multiplex.alternative != forwardOverRtp) {
        return false;
    }
    const H245H2250LogicalChannelParameters& media = *multiplex.value.h2250LogicalChannelParameters;
    return (media.presence & H245H2250LogicalChannelParameters_mediaControlChannelPresent) != 0 &&
           findEndpoint(media.mediaControlChannel, control);
}

MediaPairFields reverseMediaOf(const H245OpenLogicalChannel& channel) {
    MediaPairFields pair = {};
    const auto& reverse = channel.reverseLogicalChannelParameters;
    if ((channel.presence & H245OpenLogicalChannel_reverseLogicalChannelParametersPresent) == 0 ||
        (reverse.presence & reverseMultiplexPresent) == 0 ||
        reverse.multiplexParameters.alternative != reverseOverRtp) {
        return pair;
    }
    const H245H2250LogicalChannelParameters& media =
        *reverse.multiplexParameters.value.h2250LogicalChannelParameters;
    pair.hasMedia = (media.presence & H245H2250LogicalChannelParameters_mediaChannelPresent) != 0 &&
                    findEndpoint(media.mediaChannel, pair.media);
    pair.hasControl =
        (media.presence & H245H2250LogicalChannelParameters_mediaControlChannelPresent) != 0 &&
        findEndpoint(media.mediaControlChannel, pair.control);
    return pair;
}

MediaPairFields acknowledgedMediaOf(const H245OpenLogicalChannelAck& acknowledgement) {
    MediaPairFields pair = {};
    if ((acknowledgement.presence &
         H245OpenLogicalChannelAck_forwardMultiplexAckParametersPresent) == 0 ||
        acknowledgement.forwardMultiplexAckParameters.alternative != acknowledgedOverRtp) {
        return pair;
    }
    const H245H2250LogicalChannelAckParameters& media =
        *acknowledgement.forwardMultiplexAckParameters.value.h2250LogicalChannelAckParameters;
    pair.hasMedia =
        (media.presence & H245H2250LogicalChannelAckParameters_mediaChannelPresent) != 0 &&
        findEndpoint(media.mediaChannel, pair.media);
    pair.hasControl =
        (media.presence & H245H2250LogicalChannelAckParameters_mediaControlChannelPresent) != 0 &&
        findEndpoint(media.mediaControlChannel, pair.control);
    return pair;
}

static bool findStackAddress(const H245NetworkAccessParameters& stack, EndpointField& field) {
    return stack.networkAddress.alternative ==
               H245NetworkAccessParameters_networkAddress_localAreaAddressChosen &&
           findEndpoint(*stack.networkAddress.value.localAreaAddress, field);
}

bool findSeparateStack(const H245OpenLogicalChannel& channel, EndpointField& stack) {
    return (channel.presence & H245OpenLogicalChannel_separateStackPresent) != 0 &&
           findStackAddress(channel.separateStack, stack);
}

bool findSeparateStack(const H245OpenLogicalChannelAck& acknowledgement, EndpointField& stack) {
    return (acknowledgement.presence & H245OpenLogicalChannelAck_separateStackPresent) != 0 &&
           findStackAddress(acknowledgement.separateStack, stack);
}
