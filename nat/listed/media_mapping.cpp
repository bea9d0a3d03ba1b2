#include "nat/listed/media_mapping.h"

#include "nat/host_callbacks.h"
#include "nat/listed/translation_counts.h"

static void inheritFrom(const HostMappingRecord& parent, HostMappingRecord& record) {
    record.inherited2A = parent.inherited2A;
    record.inherited24 = parent.inherited24;
    record.inherited28 = parent.inherited28;
}

static void linkUnder(HostMappingRecord& parent, HostMappingRecord& first,
                      HostMappingRecord& second) {
    inheritFrom(parent, first);
    inheritFrom(parent, second);
    first.parent = &parent;
    second.parent = &parent;
    first.nextSibling = &second;
    second.nextSibling = parent.firstMediaRecord;
    first.previousSibling = nullptr;
    second.previousSibling = &first;
    if (parent.firstMediaRecord != nullptr) {
        parent.firstMediaRecord->previousSibling = &second;
    }
    parent.firstMediaRecord = &first;
}

void openMediaMapping(HostContext* hostContext, Endpoint privateEndpoint, uint32_t remoteAddress,
                      MediaMapping& mapping) {
    mapping.first = nullptr;
    mapping.second = nullptr;
    mapping.skipLinking = 0;
    hostCallbacks.HostOpenMediaMapping(hostContext, privateEndpoint.address, remoteAddress,
                                       privateEndpoint.port, &mapping.publicPort,
                                       &mapping.publicAddress, &mapping.first, &mapping.second,
                                       &mapping.skipLinking);
}

Endpoint publicEndpoint(const MediaMapping& mapping) {
    return {mapping.publicAddress, static_cast<uint16_t>(mapping.publicPort)};
}

HostMappingRecord* linkToControlConnection(const MediaMapping& mapping,
                                           const FlowKey& controlFlow) {
    if (mapping.skipLinking != 0) {
        return nullptr;
    }
    HostMappingRecord* parent = hostCallbacks.HostFindInsideMapping(
        controlFlow.sourceAddress, controlFlow.sourcePort, controlFlow.destinationAddress,
        controlFlow.destinationPort);
    if (parent == nullptr || mapping.first == nullptr || mapping.second == nullptr) {
        return nullptr;
    }
    linkUnder(*parent, *mapping.first, *mapping.second);
    return parent;
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
