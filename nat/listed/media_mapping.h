// What the listed rules for media channels share: the two ports of a pair (RTP on N, RTCP on N +
// 1).
//
// A public RTP port of 65535 has no RTCP port. Where a message names the pair's RTCP address, both
// addresses of the pair then stay as they are: one half rewritten would send media to one host and
// its control to another. The host has been asked by then, and its records have been linked.
#pragma once

#include <cstdint>

#include "nat/listed/logical_channel.h"
#include "nat/listed/message_edit.h"
#include "nat/media_records.h"

// openMediaMapping of nat/media_records.h for an endpoint of a decoded message.
void openMediaMapping(HostContext* hostContext, Endpoint privateEndpoint, uint32_t remoteAddress,
                      MediaMapping& mapping);

// The public endpoint of a mapping.
Endpoint publicEndpoint(const MediaMapping& mapping);

// Sets the addresses of a media pair: its RTP endpoint becomes `rtp`, its RTCP endpoint, if the
// message names one, the same address with the port behind. Gives false, and sets nothing, when
// there is no such port.
bool setMediaPair(MessageEdit& edit, const MediaPairFields& pair, Endpoint rtp);

// Sets the RTCP endpoint alone, for a pair whose RTP endpoint is `rtp`. Gives false, and sets
// nothing, when there is no port behind that of `rtp`.
bool setMediaControl(MessageEdit& edit, const EndpointField& control, Endpoint rtp);
