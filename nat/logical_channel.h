// The addresses of H.245 logical channels: where an OpenLogicalChannel and its acknowledgement name
// the RTP and RTCP endpoints of a channel and the address of a separate (T.120) stack.
//
// Each function gives false, and leaves its result alone, when the message lacks the field, carries
// the channel over something else than RTP (h2250), or names no IPv4 unicast address there.
#pragma once

#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"
#include "nat/transport_address.h"

// The addresses of one media stream.
struct MediaPairFields {
    EndpointField media;   // RTP
    EndpointField control; // RTCP; valid when hasControl is set
    bool hasControl;
};

// The OpenLogicalChannel or OpenLogicalChannelAck that an H.245 message is; null when it is not.
H245OpenLogicalChannel* openLogicalChannelOf(const H245MultimediaSystemControlMessage& message);
H245OpenLogicalChannelAck*
openLogicalChannelAckOf(const H245MultimediaSystemControlMessage& message);

// RTCP address of the forward channel.
bool findForwardControl(H245OpenLogicalChannel& channel, EndpointField& control);

// RTP address of the reverse channel, with its RTCP address if that is there.
bool findReverseMedia(H245OpenLogicalChannel& channel, MediaPairFields& pair);

// RTP address of the acknowledged channel, with its RTCP address if that is there.
bool findAcknowledgedMedia(H245OpenLogicalChannelAck& acknowledgement, MediaPairFields& pair);

// Address of the separate stack.
bool findSeparateStack(H245OpenLogicalChannel& channel, EndpointField& stack);
bool findSeparateStack(H245OpenLogicalChannelAck& acknowledgement, EndpointField& stack);
