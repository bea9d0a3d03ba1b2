// What the rules for media channels share: asking the host for a mapping, linking the host's
// records of a pair, and the two ports of a pair (RTP on N, RTCP on N + 1).
//
// A public RTP port of 65535 has no RTCP port. Where a message names the pair's RTCP address, both
// addresses of the pair then stay as they are: one half rewritten would send media to one host and
// its control to another. The host has been asked by then, and its records have been linked.
#pragma once

#include <cstdint>

#include "include/h323nat.h"
#include "nat/flow_key.h"
#include "nat/listed/logical_channel.h"
#include "nat/listed/message_edit.h"

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
void openMediaMapping(HostContext* hostContext, Endpoint privateEndpoint, uint32_t remoteAddress,
                      MediaMapping& mapping);

// The public endpoint of a mapping.
Endpoint publicEndpoint(const MediaMapping& mapping);

// Puts the pair's records at the head of the media records of the H.245 connection that the private
// host sends as `controlFlow`, unless the host asked to skip it or set no records. Gives the host's
// record of that connection; null when nothing was linked.
HostMappingRecord* linkToControlConnection(const MediaMapping& mapping, const FlowKey& controlFlow);

// Sets the addresses of a media pair: its RTP endpoint becomes `rtp`, its RTCP endpoint, if the
// message names one, the same address with the port behind. Gives false, and sets nothing, when
// there is no such port.
bool setMediaPair(MessageEdit& edit, const MediaPairFields& pair, Endpoint rtp);

// Sets the RTCP endpoint alone, for a pair whose RTP endpoint is `rtp`. Gives false, and sets
// nothing, when there is no port behind that of `rtp`.
bool setMediaControl(MessageEdit& edit, const EndpointField& control, Endpoint rtp);
