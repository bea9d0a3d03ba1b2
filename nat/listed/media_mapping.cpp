#include "nat/listed/media_mapping.h"

#include "nat/listed/translation_counts.h"

void openMediaMapping(HostContext* hostContext, Endpoint privateEndpoint, uint32_t remoteAddress,
                      MediaMapping& mapping) {
    openMediaMapping(hostContext, EndpointKey{privateEndpoint.address, privateEndpoint.port},
                     remoteAddress, mapping);
}

Endpoint publicEndpoint(const MediaMapping& mapping) {
    return {mapping.publicAddress, static_cast<uint16_t>(mapping.publicPort)};
}

// The RTCP endpoint of a pair; false when the port range ends before it.
static bool controlEndpoint(Endpoint rtp, Endpoint& rtcp) {
    if (rtp.port == UINT16_MAX) {
        countTranslation(&TranslationCounts::portsOutOfRange);
        return false;
    }
    rtcp = {rtp.address, static_cast<uint16_t>(rtp.port + 1)};
    return true;
}

bool setMediaPair(MessageEdit& edit, const MediaPairFields& pair, Endpoint rtp) {
    Endpoint rtcp = {};
    if (pair.hasControl && !controlEndpoint(rtp, rtcp)) {
        return false;
    }
    setEndpoint(edit, pair.media, rtp);
    if (pair.hasControl) {
        setEndpoint(edit, pair.control, rtcp);
    }
    return true;
}

bool setMediaControl(MessageEdit& edit, const EndpointField& control, Endpoint rtp) {
    Endpoint rtcp = {};
    if (!controlEndpoint(rtp, rtcp)) {
        return false;
    }
    setEndpoint(edit, control, rtcp);
    return true;
}
