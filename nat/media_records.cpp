#include "nat/media_records.h"

#include "nat/host_callbacks.h"

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

void openMediaMapping(HostContext* hostContext, const EndpointKey& privateEndpoint,
                      uint32_t remoteAddress, MediaMapping& mapping) {
    mapping.first = nullptr;
    mapping.second = nullptr;
    mapping.skipLinking = 0;
    hostCallbacks.HostOpenMediaMapping(hostContext, privateEndpoint.address, remoteAddress,
                                       privateEndpoint.port, &mapping.publicPort,
                                       &mapping.publicAddress, &mapping.first, &mapping.second,
                                       &mapping.skipLinking);
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
