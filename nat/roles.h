// What an address is for, told by where it stands in a message.
#pragma once

#include <cstdint>

#include "locator/locator.h"

struct PlaceRole {
    uint8_t role; // H323NAT_ROLE_...; 0: none, the address stays
    bool rtcp;    // the RTCP port of a media pair
    bool tells;   // in a received message: private hosts may connect to it
};

// `data` says that the channel described carries T.120, so that its media channel is a TCP port.
PlaceRole roleOf(const LocatedPlace& place, bool data);
