#include "nat/listed/fast_start.h"

#include "nat/listed/logical_channel.h"

// The forward channel: media from the caller. Only the RTCP address is the caller's own.
static void translateForward(HostContext* hostContext, MessageEdit& element,
                             H245OpenLogicalChannel& channel, MediaMapping& mapping) {
    EndpointField control;
    if (!findForwardControl(channel, control)) {
        return;
    }
    Endpoint rtp = readEndpoint(control);
    rtp.port = static_cast<uint16_t>(rtp.port - 1);
    openMediaMapping(hostContext, rtp, UNKNOWN_REMOTE_ADDRESS, mapping);
    if (setMediaControl(element, control, publicEndpoint(mapping))) {
        writeBack(element);
    }
}

// The reverse channel: media to the caller.
static void translateReverse(HostContext* hostContext, MessageEdit& element,
                             H245OpenLogicalChannel& channel, MediaMapping& mapping) {
    const MediaPairFields pair = reverseMediaOf(channel);
    if (!pair.hasMedia) {
        return;
    }
    openMediaMapping(hostContext, readEndpoint(pair.media), UNKNOWN_REMOTE_ADDRESS, mapping);
    if (setMediaPair(element, pair, publicEndpoint(mapping))) {
        writeBack(element);
    }
}

void translateFastStart(HostContext* hostContext, MessageEdit& setup,
                        H225Setup_UUIE_fastStart& fastStart, MediaMapping& mapping) {
    // Too large for the stack of a packet path; the host calls one hook at a time.
    static H245OpenLogicalChannel channel;
    for (uint32_t i = 0; i < fastStart.count; ++i) {
        const DynOctetString& octets = fastStart.elements[i];
        MessageEdit element;
        if (decodeElement(element, setup, {octets.data, octets.numocts}, channel)) {
            translateForward(hostContext, element, channel, mapping);
            translateReverse(hostContext, element, channel, mapping);
            closeMessage(element);
        }
    }
}
