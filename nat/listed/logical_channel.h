// The addresses of H.245 logical channels: where an OpenLogicalChannel and its acknowledgement name
// the RTP and RTCP endpoints of a channel and the address of a separate (T.120) stack.
//
// An address is found when the message has the field, carries the channel over RTP (h2250), and
// names an IPv4 unicast address there. A find function that finds none gives false and leaves its
// result alone.
#pragma once

#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "nat/listed/transport_address.h"

// The addresses of one media stream, each on its own.
struct MediaPairFields {
    EndpointField media;   // RTP; valid when hasMedia is set
    EndpointField control; // RTCP; valid when hasControl is set
    bool hasMedia;
    bool hasControl;
};

// The OpenLogicalChannel or OpenLogicalChannelAck that an H.245 message is; null when it is not.
H245OpenLogicalChannel* openLogicalChannelOf(const H245MultimediaSystemControlMessage& message);
H245OpenLogicalChannelAck*
openLogicalChannelAckOf(const H245MultimediaSystemControlMessage& message);

// RTCP address of the forward channel.
bool findForwardControl(const H245OpenLogicalChannel& channel, EndpointField& control);

// Addresses of the reverse channel, and of the channel that is acknowledged.
MediaPairFields reverseMediaOf(const H245OpenLogicalChannel& channel);
MediaPairFields acknowledgedMediaOf(const H245OpenLogicalChannelAck& acknowledgement);

// Address of the separate stack.
bool findSeparateStack(const H245OpenLogicalChannel& channel, EndpointField& stack);
bool findSeparateStack(const H245OpenLogicalChannelAck& acknowledgement, EndpointField& stack);
