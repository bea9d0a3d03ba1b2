// What both scopes share of asking the host for media: the request, and linking the host's records
// of a pair under that of the call's H.245 connection.
#pragma once

#include <cstdint>

#include "include/h323nat.h"
#include "nat/flow_key.h"

// The host's answer to HostOpenMediaMapping, its out values in order.
struct MediaMapping {
    uint32_t publicPort; // only the low 16 bits count
    uint32_t publicAddress;
    HostMappingRecord* first; // the host's records of the pair
    HostMappingRecord* second;
    uint8_t skipLinking;
};

// Asks the host for a mapping of a private endpoint towards a remote address. `mapping` keeps its
// public port and address where the host writes none; the rest is cleared before the call.
void openMediaMapping(HostContext* hostContext, const EndpointKey& privateEndpoint,
                      uint32_t remoteAddress, MediaMapping& mapping);

// Puts the pair's records at the head of the media records of the H.245 connection that the private
// host sends as `controlFlow`, unless the host asked to skip it or set no records. Gives the host's
// record of that connection; null when nothing was linked.
HostMappingRecord* linkToControlConnection(const MediaMapping& mapping, const FlowKey& controlFlow);
